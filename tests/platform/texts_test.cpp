// Texts and folders: what needs no display.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <tuple>

#include "platform/LoginItem.h"
#include "platform/Text.h"
#include "platform/UserFolders.h"
#include "tests/support/TemporaryFolder.h"

namespace fs = std::filesystem;
using namespace std::string_literals;

TEST(Text, TellsUtf8FromOtherBytesAndComesBackFromQStringByteForByte) {
    for (const std::string &good :
         {""s, "plain ascii, long enough for whole words"s, "a\0b"s, "\xC3\xA4"s, "\xE2\x82\xAC"s,
          "\xF0\x9F\x98\x80"s, "\xEF\xBB\xBF"s, "\xF4\x8F\xBF\xBF"s, "12345678\xC3\xA4"s, "\r\n\t"s}) {
        EXPECT_TRUE(isValidUtf8(good)) << testing::PrintToString(good);
        EXPECT_EQ(toUtf8(toQString(good)), good);
    }
    for (const std::string &bad :
         {"\x80"s, "\xC3"s, "\xC0\x80"s, "\xE0\x80\x80"s, "\xED\xA0\x80"s, "\xF0\x80\x80\x80"s,
          "\xF4\x90\x80\x80"s, "\xF5\x80\x80\x80"s, "12345678\xFF"s, "1234567\xE2\x82"s}) {
        EXPECT_FALSE(isValidUtf8(bad)) << testing::PrintToString(bad);
    }
}

TEST(Text, OneLineStandsForAnyText) {
    const std::string smile = "\xF0\x9F\x98\x80", more = "\xE2\x80\xA6", large(5'000'000, 'x');
    const std::string smiles = smile + smile + smile + smile;
    const std::tuple<std::string, std::size_t, std::string> cases[] = {
        {"plain  with blanks ", 200, "plain  with blanks "},
        {"\n\n  first words\nsecond line\tend", 200, "first words second line end"},
        {"a\0b\x7F"s, 200,
         "a\xE2\x90\x80"
         "b\xE2\x90\xA1"},
        {"xxxxxxxxxx", 10, "xxxxxxxxxx"},
        {large, 10, "xxxxxxxxxx" + more},
        // Never half a character, wherever the cut falls.
        {smiles, 5, smile + smile + more},
        {"x" + smiles, 4, "x" + smile + more},
    };
    for (const auto &[text, limit, line] : cases) EXPECT_EQ(toUtf8(oneLine(text, limit)), line);
}

TEST(LoginItem, TheEntryQuotesAnyPath) {
    const std::string entry = LoginItem::entryFor(R"(/opt/a b/100%/$x\y"`)");
    EXPECT_NE(entry.find(R"(Exec="/opt/a b/100%%/\\$x\\\\y\\"\\`")"), std::string::npos) << entry;
}

// As quillery-storage finds it.
static std::string runtimeFolderOfTheServer() {
    FILE *output = popen("/usr/bin/python3 -c 'import runpy; print(runpy.run_path(\"" QUILLERY_STORAGE_SCRIPT
                         "\")[\"runtime_folder\"]() or \"\", end=\"\")'",
                         "r");
    std::string text;
    for (int c = 0; (c = std::fgetc(output)) != EOF;) text += static_cast<char>(c);
    return pclose(output) == 0 ? text : "failed";
}

TEST(UserFolders, ProgramAndServerMeetWhereNobodyElseGets) {
    const TemporaryFolder elsewhere;
    const auto linkTo = [&](const fs::path &path) {
        fs::remove(path);
        fs::create_symlink(elsewhere.path(), path);
    };
    const char *const inRun = "run/quillery", *const inCache = "cache/quillery";
    // What is done to $XDG_RUNTIME_DIR, and where both look then.
    const std::vector<std::pair<const char *, std::function<void(const fs::path &run)>>> cases = {
        {inRun, [](auto &) {}},
        {inCache, [](auto &run) { chmod(run.c_str(), 0755); }},
        {inCache, [](auto &run) { fs::remove(run); }},
        {inCache, linkTo},
        {inCache, [](auto &) { setenv("XDG_RUNTIME_DIR", ".", 1); }},
        {inCache, [](auto &run) { mkdir((run / "quillery").c_str(), 0755); }},
        {inCache, [&](auto &run) { linkTo(run / "quillery"); }},
        {geteuid() == 0 ? inCache : inRun,  // only root can make it another's
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
