#include "platform/LoginItem.h"

#include <QFile>
#include <QSaveFile>
#include <fstream>
#include <system_error>

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

QString toPath(const fs::path &path) {
    return QFile::decodeName(path.c_str());
}

}  // namespace

fs::path LoginItem::file(const std::string &identifier) {
    return configurationFolder() / "autostart" / (identifier + ".desktop");
}

std::string LoginItem::problem(const std::string &identifier) const {
    const fs::path entry = file(identifier);
    std::ifstream reading(entry);
    if (!reading) return entry.string() + " is missing.";
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
           "Comment=Keeps the texts that you copy\n" +
           execLine(program) +
           "\n"
           "Icon=quillery\n"
           "Terminal=false\n"
           "X-GNOME-Autostart-enabled=true\n";
}

std::string LoginItem::setEnabled(const std::string &identifier, bool isEnabled) const {
    const fs::path entry = file(identifier);
    std::error_code error;
    if (!isEnabled) {
        fs::remove(entry, error);
        return error ? entry.string() + " could not be removed: " + error.message() : "";
    }
    fs::create_directories(entry.parent_path(), error);
    QSaveFile writing(toPath(entry));
    const std::string text = entryFor(program_);
    const bool isWritten = writing.open(QIODevice::WriteOnly) &&
                           writing.write(text.data(), static_cast<qint64>(text.size())) >= 0 &&
                           writing.commit();
    return isWritten ? "" : entry.string() + " could not be written: " + writing.errorString().toStdString();
}
