#include "streams/recordingpath.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <stdexcept>
#include <vector>

#include "unit/streams/recordingsupport.h"

using vnktest::writeWhole;

class RecordingPathTest : public ::testing::Test {
 protected:
    void put(const std::string& name) { writeWhole(mcFolder.file(name), "here"); }
    /// The name that a recording of this wanted name gets, without its folder.
    std::string unique(const std::string& name) {
        const std::string wanted = mcFolder.path(name);
        const std::string path = RecordingPath::makeUnique(wanted);
        const std::string folder = mcFolder.path("");
        EXPECT_EQ(path.substr(0, folder.size()), folder);
        return path.size() > folder.size() ? path.substr(folder.size()) : std::string();
    }
    vnktest::TempFolder mcFolder;
};

// Parts of names.

TEST_F(RecordingPathTest, StemEndsBeforeTheLastDot) {
    EXPECT_EQ(RecordingPath::stemOf("a\\b.json"), "a\\b");
    EXPECT_EQ(RecordingPath::stemOf("a\\b.c.data"), "a\\b.c");
    EXPECT_EQ(RecordingPath::stemOf("a\\b"), "a\\b");
    EXPECT_EQ(RecordingPath::stemOf("a\\.json"), "a\\");
    EXPECT_EQ(RecordingPath::stemOf("a\\b."), "a\\b");
    EXPECT_EQ(RecordingPath::stemOf(""), "");
    EXPECT_EQ(RecordingPath::stemOf("."), "");
}

TEST_F(RecordingPathTest, StemOfANameWithoutADotIsCutAtADotOfItsFolder) {
    EXPECT_EQ(RecordingPath::stemOf("my.folder\\name"), "my");
}

TEST_F(RecordingPathTest, NativeFormHasSlashesInPlaceOfBackslashes) {
    EXPECT_EQ(RecordingPath::nativeForm("/a/b\\c\\d.json"), "/a/b/c/d.json");
    EXPECT_EQ(RecordingPath::nativeForm("plain"), "plain");
    EXPECT_EQ(RecordingPath::nativeForm(""), "");
}

TEST_F(RecordingPathTest, FolderIsWhatStandsBeforeTheLastBackslash) {
    EXPECT_TRUE(RecordingPath::hasFolder(mcFolder.path("x.json")));
    EXPECT_TRUE(RecordingPath::hasFolder(mcFolder.path("")));
    EXPECT_FALSE(RecordingPath::hasFolder(mcFolder.path("missing\\x.json")));
    put("file");
    EXPECT_FALSE(RecordingPath::hasFolder(mcFolder.path("file\\x.json")));
}

TEST_F(RecordingPathTest, NameWithoutABackslashIsItsOwnFolder) {
    EXPECT_FALSE(RecordingPath::hasFolder("x.json"));
    EXPECT_FALSE(RecordingPath::hasFolder(mcFolder.file("x.json")));
    EXPECT_TRUE(RecordingPath::hasFolder(mcFolder.native()));
    EXPECT_FALSE(RecordingPath::hasFolder(""));
}

// Unique names.

TEST_F(RecordingPathTest, FreeNameIsTakenAsItIs) {
    EXPECT_EQ(unique("x.json"), "x.json");
    EXPECT_TRUE(mcFolder.names().empty()) << "the look leaves nothing behind";
}

TEST_F(RecordingPathTest, TakenNameIsNumberedFromOne) {
    put("x.json");
    EXPECT_EQ(unique("x.json"), "x(1).json");
    put("x(1).json");
    EXPECT_EQ(unique("x.json"), "x(2).json");
    put("x(3).json");
    EXPECT_EQ(unique("x.json"), "x(2).json");
    put("x(2).json");
    EXPECT_EQ(unique("x.json"), "x(4).json");
}

TEST_F(RecordingPathTest, OnlyTheDescriptionsNameIsLookedAt) {
    put("x.data");
    EXPECT_EQ(unique("x.json"), "x.json");
}

TEST_F(RecordingPathTest, NameWithANumberKeepsItAndCountsOnFromIt) {
    put("x(7).json");
    EXPECT_EQ(unique("x(7).json"), "x(7)(7).json");
    put("x(7)(7).json");
    EXPECT_EQ(unique("x(7).json"), "x(7)(8).json");
    EXPECT_EQ(unique("x(7)(7).json"), "x(7)(7)(7).json");
}

TEST_F(RecordingPathTest, NumberIsReadAsATextToNumberConversionReadsIt) {
    for (const auto& [name, next] :
         std::vector<std::pair<std::string, std::string>>{{"x(-3)", "x(-3)(-3)"},
                                                          {"x( 5)", "x( 5)(5)"},
                                                          {"x(+5)", "x(+5)(5)"},
                                                          {"x(007)", "x(007)(7)"},
                                                          {"x(5th)", "x(5th)(5)"},
                                                          {"x(3)y(9)", "x(3)y(9)(3)"}}) {
        put(name + ".json");
        EXPECT_EQ(unique(name + ".json"), next + ".json");
    }
}

TEST_F(RecordingPathTest, CountingPassesZero) {
    put("x(-1).json");
    put("x(-1)(-1).json");
    EXPECT_EQ(unique("x(-1).json"), "x(-1)(0).json");
    put("x(-1)(0).json");
    EXPECT_EQ(unique("x(-1).json"), "x(-1)(1).json");
}

TEST_F(RecordingPathTest, TakenNameWithTextInParenthesesThrows) {
    for (const char* pName : {"x(abc).json", "x().json", "x(.json", "x(-).json", "x((4)).json"}) {
        put(pName);
        EXPECT_THROW(unique(pName), std::invalid_argument) << pName;
    }
    for (const char* pName : {"x(99999999999).json", "x(2147483648).json", "x(-2147483649).json"}) {
        put(pName);
        EXPECT_THROW(unique(pName), std::out_of_range) << pName;
    }
}

TEST_F(RecordingPathTest, FreeNameWithTextInParenthesesIsFine) {
    EXPECT_EQ(unique("x(abc).json"), "x(abc).json");
    EXPECT_EQ(unique("x(99999999999).json"), "x(99999999999).json");
}

TEST_F(RecordingPathTest, CountingGoesOnBeyond32Bits) {
    put("x(2147483647).json");
    EXPECT_EQ(unique("x(2147483647).json"), "x(2147483647)(2147483647).json");
    put("x(2147483647)(2147483647).json");
    EXPECT_EQ(unique("x(2147483647).json"), "x(2147483647)(2147483648).json");
    put("x(2147483647)(2147483648).json");
    EXPECT_EQ(unique("x(2147483647).json"), "x(2147483647)(2147483649).json");
}

TEST_F(RecordingPathTest, ClosingParenthesisAloneIsPartOfTheName) {
    put("x).json");
    EXPECT_EQ(unique("x).json"), "x)(1).json");
    put("x)(4.json");
    EXPECT_EQ(unique("x)(4.json"), "x)(4(4).json");
}

TEST_F(RecordingPathTest, ParenthesesOfTheFolderCountToo) {
    std::filesystem::create_directory(mcFolder.file("at(12)"));
    put("at(12)/x.json");
    EXPECT_EQ(unique("at(12)\\x.json"), "at(12)\\x(12).json");
    std::filesystem::create_directory(mcFolder.file("at(home)"));
    EXPECT_EQ(unique("at(home)\\x.json"), "at(home)\\x.json");
    put("at(home)/x.json");
    EXPECT_THROW(unique("at(home)\\x.json"), std::invalid_argument);
}

TEST_F(RecordingPathTest, AnyExtensionIsKeptBehindTheNumber) {
    put("x.wav");
    EXPECT_EQ(unique("x.wav"), "x(1).wav");
    put("x.y.wav");
    EXPECT_EQ(unique("x.y.wav"), "x.y(1).wav");
}

TEST_F(RecordingPathTest, MissingFolderGivesNoName) {
    EXPECT_EQ(RecordingPath::makeUnique(mcFolder.path("missing\\x.json")), "");
    EXPECT_EQ(RecordingPath::makeUnique("x.json"), "");
    EXPECT_EQ(RecordingPath::makeUnique(mcFolder.file("x.json")), "") << "slashes alone";
    EXPECT_EQ(RecordingPath::makeUnique(""), "");
    put("file");
    EXPECT_EQ(RecordingPath::makeUnique(mcFolder.path("file\\x.json")), "");
}

TEST_F(RecordingPathTest, FolderMayBeNestedAndNamedWithEitherSlash) {
    std::filesystem::create_directories(mcFolder.file("a/b"));
    EXPECT_EQ(unique("a/b\\x.json"), "a/b\\x.json");
    EXPECT_EQ(unique("a\\b\\x.json"), "a\\b\\x.json");
    put("a/b/x.json");
    EXPECT_EQ(unique("a\\b\\x.json"), "a\\b\\x(1).json");
}

// What lies under the wanted name.

TEST_F(RecordingPathTest, FifoUnderTheNameIsTakenAndNotWaitedFor) {
    ASSERT_EQ(::mkfifo(mcFolder.file("x.json").c_str(), 0600), 0);
    EXPECT_EQ(unique("x.json"), "x(1).json");
    ASSERT_EQ(::mkfifo(mcFolder.file("x(1).json").c_str(), 0600), 0);
    EXPECT_EQ(unique("x.json"), "x(2).json");
}

TEST_F(RecordingPathTest, FolderUnderTheNameIsTaken) {
    std::filesystem::create_directory(mcFolder.file("x.json"));
    EXPECT_EQ(unique("x.json"), "x(1).json");
}

TEST_F(RecordingPathTest, LinkThatLeadsNowhereIsNoFile) {
    std::filesystem::create_symlink(mcFolder.file("nowhere"), mcFolder.file("x.json"));
    EXPECT_EQ(unique("x.json"), "x.json");
    std::filesystem::create_symlink(mcFolder.file("y.json"), mcFolder.file("y.json"));
    EXPECT_EQ(unique("y.json"), "y.json") << "a link to itself";
}

TEST_F(RecordingPathTest, SocketCannotBeReadAndIsNoFile) {
    const int iSocket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_GE(iSocket, 0);
    sockaddr_un cAddress{};
    cAddress.sun_family = AF_UNIX;
    const std::string name = mcFolder.file("x.json");
    ASSERT_LT(name.size(), sizeof cAddress.sun_path);
    name.copy(cAddress.sun_path, sizeof cAddress.sun_path - 1);
    ASSERT_EQ(::bind(iSocket, reinterpret_cast<sockaddr*>(&cAddress), sizeof cAddress), 0);
    EXPECT_EQ(unique("x.json"), "x.json");
    ::close(iSocket);
}

TEST_F(RecordingPathTest, WithoutADescriptorToLookWithAFileThatExistsStillCounts) {
    put("x.json");
    rlimit cBefore{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &cBefore), 0);
    const int iNext = ::dup(STDERR_FILENO);  // the lowest number that is free
    ASSERT_GE(iNext, 0);
    ::close(iNext);
    rlimit cNone = cBefore;
    cNone.rlim_cur = static_cast<rlim_t>(iNext);
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &cNone), 0);
    const std::string taken = RecordingPath::makeUnique(mcFolder.path("x.json"));
    const std::string free = RecordingPath::makeUnique(mcFolder.path("y.json"));
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &cBefore), 0);
    EXPECT_EQ(taken, mcFolder.path("x(1).json"));
    EXPECT_EQ(free, mcFolder.path("y.json"));
}
