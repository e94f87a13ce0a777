#include "tools/recordingname.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "recordings.h"
#include "tools/exitcodes.h"

using namespace cli;
using vnktest::fileExists;

namespace {

Exit refusal(const std::string& text) {
    try {
        const RecordingName name(text);
    } catch (const Failure& failure) {
        return failure.code();
    }
    return Exit::done;
}

}  // namespace

TEST(RecordingNames, EitherFileNamesThePair) {
    for (const char* pText : {"dir/radio", "dir/radio.json", "dir/radio.data"}) {
        const RecordingName name(pText);
        EXPECT_EQ(name.stem(), "dir/radio");
        EXPECT_EQ(name.description(), "dir/radio.json");
        EXPECT_EQ(name.data(), "dir/radio.data");
    }
    EXPECT_EQ(RecordingName("radio.bin").data(), "radio.bin.data");
}

TEST(RecordingNames, TheLibraryGetsABackslashBehindTheFolderAndAnExtension) {
    EXPECT_EQ(RecordingName("radio").libraryPath(), ".\\radio.json");
    EXPECT_EQ(RecordingName("./radio").libraryPath(), ".\\radio.json");
    EXPECT_EQ(RecordingName("/radio").libraryPath(), "/.\\radio.json");
    EXPECT_EQ(RecordingName("/home/me/radio").libraryPath(), "/home/me\\radio.json");
    EXPECT_EQ(RecordingName("a.b/98.1 MHz").libraryPath(), "a.b\\98.1 MHz.json");
    EXPECT_EQ(RecordingName("a//b").libraryPath(), "a/\\b.json");
}

TEST(RecordingNames, WhatNamesNoPairIsRefused) {
    for (const char* pText :
         {"", "-", "/", "dir/", ".", "..", "dir/..", ".json", "dir/.data", "a\\b", "a\\b/c"})
        EXPECT_EQ(refusal(pText), Exit::usage) << pText;
    EXPECT_EQ(refusal(".hidden"), Exit::done);
}

TEST(RecordingNames, AFreeNameIsHeldUntilItGoes) {
    const vnktest::ScratchFolder folder;
    const RecordingName wanted(folder / "radio");
    {
        const FreeName first(wanted);
        EXPECT_EQ(first.name().stem(), wanted.stem());
        EXPECT_TRUE(first.taken().empty());
        const FreeName second(wanted);
        EXPECT_EQ(second.name().stem(), wanted.stem() + "-1");
        EXPECT_EQ(second.taken(), std::vector<std::string>{wanted.data()});
        EXPECT_TRUE(fileExists(second.name().data()));
        EXPECT_FALSE(fileExists(second.name().description()));
    }
    EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
    FreeName kept(wanted);
    kept.keep();
    EXPECT_TRUE(fileExists(wanted.data()));
}

TEST(RecordingNames, AKeptNameOutlivesItsObject) {
    const vnktest::ScratchFolder folder;
    {
        FreeName name{RecordingName(folder / "radio")};
        name.keep();
    }
    EXPECT_TRUE(fileExists(folder / "radio.data"));
}

TEST(RecordingNames, AnythingOfOneOfTheNamesIsInTheWay) {
    const vnktest::ScratchFolder folder;
    vnktest::writeFile(folder / "x.json", "{}");
    vnktest::writeFile(folder / "x-1.data", "");
    std::filesystem::create_directory(folder / "x-2.data");
    std::filesystem::create_symlink("nowhere", folder / "x-3.json");
    ASSERT_EQ(::mkfifo((folder / "x-4.data").c_str(), 0600), 0);
    const FreeName name{RecordingName(folder / "x")};
    EXPECT_EQ(name.name().stem(), folder / "x-5");
    EXPECT_EQ(name.taken(), std::vector<std::string>{folder / "x.json"});
}

TEST(RecordingNames, AFolderThatDoesNotExistIsFileTrouble) {
    const vnktest::ScratchFolder folder;
    try {
        const FreeName name{RecordingName(folder / "no/radio")};
        FAIL();
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.code(), Exit::file);
        EXPECT_EQ(std::string(failure.what()), folder / "no/radio.data: No such file or directory");
    }
}
