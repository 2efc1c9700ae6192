#pragma once

#include <filesystem>
#include <string>

// Whether a program starts when its user logs in: an XDG autostart entry, which every desktop's session
// manager reads. UI thread.
class LoginItem {
  public:
    // The entry of the program at `program`, an absolute path, in the user's autostart folder.
    explicit LoginItem(std::filesystem::path program) : program_(std::move(program)) {}

    // Writes the entry of that identifier, or removes it. Returns in words why that failed, and empty when it
    // is done; what was there before is left as it was then.
    std::string setEnabled(const std::string &identifier, bool isEnabled) const;

    // Why the entry of that identifier would not start this program, a sentence; empty if it would.
    std::string problem(const std::string &identifier) const;

    // Where the entry stands.
    static std::filesystem::path file(const std::string &identifier);
    // What it says.
    static std::string entryFor(const std::filesystem::path &program);

  private:
    std::filesystem::path program_;
};
