#include "platform/LoginItem.h"

#include <sstream>
#include <system_error>

#include "platform/FileManager.h"
#include "platform/UserFolders.h"

namespace fs = std::filesystem;

namespace {

// As an argument of an Exec line: quoted, with the quoting's own characters escaped, then those of the file.
std::string execArgument(const std::string &text) {
    std::string quoted = "\"";
    for (const char c : text) {
        if (c == '\\') {
            quoted += R"(\\\\)";
        } else if (c == '"' || c == '`' || c == '$') {
            quoted += R"(\\)";
            quoted += c;
        } else if (c == '%') {
            quoted += "%%";
        } else if (c == '\n') {
            quoted += R"(\n)";
        } else {
            quoted += c;
        }
    }
    return quoted + '"';
}

std::string execLine(const fs::path &program) {
    return "Exec=" + execArgument(program.string());
}

}  // namespace

fs::path LoginItem::file(const std::string &identifier) {
    return configurationFolder() / "autostart" / (identifier + ".desktop");
}

std::string LoginItem::problem(const std::string &identifier) const {
    const fs::path entry = file(identifier);
    const FileText found = FileManager().textAtPath(entry);
    if (found.state == FileText::State::kMissing) return entry.string() + " is missing.";
    if (!found.text) return entry.string() + " could not be read: " + found.problem + ".";
    std::istringstream reading(*found.text);
    const std::string exec = execLine(program_);
    bool startsThis = false;
    for (std::string line; std::getline(reading, line);) {
        if (line == "Hidden=true" || line == "X-GNOME-Autostart-enabled=false")
            return entry.string() + " is switched off.";
        startsThis |= line == exec;
    }
    return startsThis ? "" : entry.string() + " starts another program.";
}

std::string LoginItem::entryFor(const fs::path &program) {
    return "[Desktop Entry]\n"
           "Type=Application\n"
           "Name=Quillery\n"
           "Comment=Keeps the copied texts that you save\n" +
           execLine(program) +
           "\n"
           "Icon=quillery\n"
           "Terminal=false\n"
           "X-GNOME-Autostart-enabled=true\n";
}

std::string LoginItem::setEnabled(const std::string &identifier, bool isEnabled) const {
    const fs::path entry = file(identifier);
    if (!isEnabled) {
        std::error_code error;
        fs::remove(entry, error);
        return error ? entry.string() + " could not be removed: " + error.message() : "";
    }
    const std::string problem = FileManager().createFileAtPath(entry, entryFor(program_));
    return problem.empty() ? "" : entry.string() + " could not be written: " + problem;
}
