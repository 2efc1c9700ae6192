#include "app/LocalList.h"

#include <cstdio>

#include "app/ClipList.h"

LocalList::Change LocalList::add(const std::filesystem::path &path, std::string_view entry) {
    const std::lock_guard lock(mutex_);
    FileText old = files_.textAtPath(path);
    std::string problem = replace(path, old, ClipList::withEntryInFrontOfLocal(entry, old.text));
    return {std::move(old.text), problem.empty(), std::move(problem)};
}

LocalList::Change LocalList::remove(const std::filesystem::path &path, std::string_view entry) {
    const std::lock_guard lock(mutex_);
    FileText old = files_.textAtPath(path);
    std::string problem = replace(path, old, ClipList::withoutEntry(old.text.value_or(""), entry));
    return {std::move(old.text), problem.empty(), std::move(problem)};
}

LocalList::Change LocalList::addUnlessThere(const std::filesystem::path &path, std::string_view entry) {
    const std::lock_guard lock(mutex_);
    FileText old = files_.textAtPath(path);
    if (!old.text || ClipList::containsEntry(*old.text, entry)) return {std::move(old.text), false, {}};
    std::string problem = replace(path, old, ClipList::withEntryInFront(entry, old.text));
    return {std::move(old.text), problem.empty(), std::move(problem)};
}

std::string LocalList::empty(const std::filesystem::path &path) {
    const std::lock_guard lock(mutex_);
    return replace(path, files_.textAtPath(path), "");
}

std::string LocalList::replace(const std::filesystem::path &path, const FileText &old,
                               const std::string &text) {
    if (old.mustBeSetAside()) {
        const auto aside = files_.setAside(path);
        if (!aside)
            return "the old list there could not be read (" + old.problem + ") and not be moved aside";
        std::fprintf(stderr, "Quillery: %s could not be read (%s) and was kept as %s.\n", path.c_str(),
                     old.problem.c_str(), aside->c_str());
    }
    return files_.createFileAtPath(path, text);
}
