#include "app/LocalList.h"

#include <chrono>
#include <cstdio>
#include <new>
#include <stdexcept>
#include <utility>

#include "app/ClipList.h"

namespace {

// Where there are no locks, another program's write may be under way. None takes that long.
constexpr std::chrono::hours kLeftoverAge{24};

std::optional<std::string_view> view(const LocalList::Text &text) {
    if (!text) return std::nullopt;
    return *text;
}

// Runs `work`, which is to return a problem in words.
template <class Work>
std::string withinMemory(Work work) {
    try {
        return work();
    } catch (const std::bad_alloc &) {
    } catch (const std::length_error &) {
    }
    return "it is too big for the memory";
}

}  // namespace

LocalList::Reading LocalList::read(const std::filesystem::path &path) {
    Reading reading;
    if (std::string problem = withinMemory([&] {
            reading = readText(path);
            return std::string();
        });
        !problem.empty()) {
        reading = {FileText::State::kUnreadable, nullptr, std::move(problem)};
    }
    return reading;
}

LocalList::Change LocalList::add(const std::filesystem::path &path, std::string_view entry) {
    return change(path, [&](const Text &old) { return ClipList::withEntryInFrontOfLocal(entry, view(old)); });
}

LocalList::Change LocalList::remove(const std::filesystem::path &path, std::string_view entry) {
    return change(path,
                  [&](const Text &old) { return ClipList::withoutEntry(view(old).value_or(""), entry); });
}

LocalList::Change LocalList::addUnlessThere(const std::filesystem::path &path, std::string_view entry) {
    if (!read(path).text) return {};
    return change(path, [&](const Text &old) -> std::optional<std::string> {
        if (!old || ClipList::containsEntry(*old, entry)) return std::nullopt;
        return ClipList::withEntryInFront(entry, *old);
    });
}

LocalList::Change LocalList::empty(const std::filesystem::path &path) {
    return change(path, [](const Text &) { return std::string(); });
}

std::string LocalList::createIfMissing(const std::filesystem::path &path) {
    return withinMemory([&] { return files_.createFileIfMissing(path); });
}

LocalList::Text LocalList::lastKnown() const {
    const std::lock_guard lock(lastKnownMutex_);
    return lastKnown_;
}

LocalList::Change LocalList::change(const std::filesystem::path &path, const Edit &edit) {
    const std::lock_guard lock(mutex_);
    Change change;
    const std::string problem = withinMemory([&] {
        changeLocked(path, edit, change);
        return std::string();
    });
    if (!problem.empty()) change.problem = problem;
    return change;
}

void LocalList::changeLocked(const std::filesystem::path &path, const Edit &edit, Change &change) {
    const FileLock lock(path);
    change.problem = lock.problem();
    if (!change.problem.empty()) return;
    if (!std::exchange(isTidy_, true))
        files_.removeLeftovers(path, lock.isHeld() ? std::chrono::seconds::zero() : kLeftoverAge);

    const Text lastKnown = this->lastKnown();
    const Reading old = readText(path);
    change.old = old.text;
    if (old.state == FileText::State::kUnreadable) {
        change.problem = "the list there could not be read: " + old.problem;
        return;
    }
    std::optional<std::string> text = edit(old.text);
    if (!text) return;
    if (old.state == FileText::State::kNotText) {
        change.setAside = files_.setAside(path);
        if (!change.setAside) {
            change.problem = "the list there could not be read (" + old.problem + ") and not be moved aside";
            return;
        }
        change.lastKnown = lastKnown;
        std::fprintf(stderr, "Quillery: %s could not be read (%s) and was kept as %s.\n", path.c_str(),
                     old.problem.c_str(), change.setAside->c_str());
    }
    change.problem = files_.createFileAtPath(path, *text);
    change.isWritten = change.problem.empty();
    if (change.isWritten) remember(std::make_shared<const std::string>(std::move(*text)));
}

LocalList::Reading LocalList::readText(const std::filesystem::path &path) {
    FileText found = files_.textAtPath(path);
    Reading reading{found.state, nullptr, std::move(found.problem)};
    if (found.text) {
        reading.text = std::make_shared<const std::string>(std::move(*found.text));
        remember(reading.text);
    }
    return reading;
}

void LocalList::remember(const Text &text) {
    Text before;  // the old one is freed without the lock
    const std::lock_guard lock(lastKnownMutex_);
    before = std::exchange(lastKnown_, text);
}
