#include "platform/UserFolders.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <functional>

#include "tests/support/TemporaryFolder.h"

namespace fs = std::filesystem;

// As quillery-storage finds it.
static std::string runtimeFolderOfTheServer() {
    FILE *output = popen("/usr/bin/python3 -c 'import runpy; print(runpy.run_path(\"" QUILLERY_STORAGE_SCRIPT
                         "\")[\"runtime_folder\"]() or \"\", end=\"\")'",
                         "r");
    std::string text;
    for (int c = 0; (c = std::fgetc(output)) != EOF;) text += static_cast<char>(c);
    return pclose(output) == 0 ? text : "failed";
}

TEST(UserFoldersTest, ProgramAndServerMeetWhereNobodyElseGets) {
    const TemporaryFolder elsewhere;
    const auto linkTo = [&](const fs::path &path) {
        fs::remove(path);
        fs::create_symlink(elsewhere.path(), path);
    };
    // What is done to $XDG_RUNTIME_DIR, and where both look then.
    const std::vector<std::pair<const char *, std::function<void(const fs::path &run)>>> cases = {
        {"run/quillery", [](auto &) {}},
        {"cache/quillery", [](auto &run) { chmod(run.c_str(), 0755); }},
        {"cache/quillery", [](auto &run) { fs::remove(run); }},
        {"cache/quillery", linkTo},
        {"cache/quillery", [](auto &) { setenv("XDG_RUNTIME_DIR", ".", 1); }},
        {"cache/quillery", [](auto &run) { fs::create_directory(run / "quillery"); }},
        {"cache/quillery", [&](auto &run) { linkTo(run / "quillery"); }},
        {geteuid() == 0 ? "cache/quillery" : "run/quillery",  // only root can make it another's
         [](auto &run) { [[maybe_unused]] const int failed = chown(run.c_str(), 1, 1); }},
        {"",
         [&](auto &run) {
             linkTo(run / "quillery");
             linkTo(run.parent_path() / "cache/quillery");
         }},
    };
    for (std::size_t i = 0; i < cases.size(); ++i) {
        SCOPED_TRACE(i);
        const TemporaryFolder folder;
        const fs::path run = folder.path() / "run";
        mkdir(run.c_str(), 0700);
        fs::create_directory(folder.path() / "cache");
        setenv("XDG_RUNTIME_DIR", run.c_str(), 1);
        setenv("XDG_CACHE_HOME", (folder.path() / "cache").c_str(), 1);
        cases[i].second(run);
        EXPECT_EQ(runtimeFolder().value_or(""), *cases[i].first ? folder.path() / cases[i].first : "");
        EXPECT_EQ(runtimeFolderOfTheServer(), runtimeFolder().value_or("").string());
    }
}
