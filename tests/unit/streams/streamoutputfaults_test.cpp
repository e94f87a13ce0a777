#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <functional>

#include "unit/streams/streamoutputsupport.h"

using vnktest::fieldsAt;
using vnktest::iqBytes;
using vnktest::logged;
using vnktest::makeBaseband;
using vnktest::makeSpectrum;
using vnktest::parseRecord;
using vnktest::ramp;
using vnktest::readWhole;
using vnktest::sameBytes;
using vnktest::sequences;
using vnktest::smallIQ;
using vnktest::waitUntil;
using vnktest::writeWhole;

class StreamOutputFaultsTest : public vnktest::StreamOutputFileTest {};

// Frames of a wrong type.

TEST_F(StreamOutputFaultsTest, FrameOfAnotherTypeIsReportedAndStopsAllBehindItUntilTheEnd) {
    auto cFile = record();
    cFile->addFrame(smallIQ(1));
    ASSERT_TRUE(waitForBytes(52));
    utils::RuntimeErrors::instance().clear();
    cFile->addFrame(makeSpectrum(fieldsAt(2), ramp(4)));
    cFile->addFrame(smallIQ(3));
    std::vector<std::string> lReports;
    ASSERT_TRUE(waitUntil([&] { return !(lReports = logged(-28)).empty(); }));
    EXPECT_EQ(lReports[0], "StreamFile::addFrame called with incorrect frame type");
    EXPECT_EQ(sequences(data()), std::vector<int64_t>{1});
    cFile->addFrame(makeBaseband(fieldsAt(4), {ramp(4)}));
    cFile->addFrame(smallIQ(5));
    cFile = nullptr;
    EXPECT_EQ(logged(-28).size(), 1u) << "the second one";
    EXPECT_EQ(sequences(data()), (std::vector<int64_t>{1, 3, 5}));
    EXPECT_EQ(summary("IQ").find("Samples")->getUnsigned64(), 12u);
    EXPECT_FALSE(parseRecord(json()).find("Spectrum"));
}

TEST_F(StreamOutputFaultsTest, RecordingThatEndsWithFramesOfAWrongTypeAtItsHeadEnds) {
    utils::RuntimeErrors::instance().clear();
    auto cFile = record();
    cFile->addFrame(makeSpectrum(fieldsAt(0), ramp(4)));
    for (uint32_t i = 1; i <= 5; ++i)
        cFile->addFrame(smallIQ(i));
    cFile->addFrame(makeSpectrum(fieldsAt(6), ramp(4)));
    cFile = nullptr;
    EXPECT_GE(logged(-28).size(), 5u);
    EXPECT_EQ(data().size(), 2 * (28u + 16u));
    EXPECT_EQ(summary("Spectrum").find("Frames")->getUnsigned32(), 2u);
}

TEST_F(StreamOutputFaultsTest, FrameOfAWrongTypeIsReportedOnceHoweverOftenItIsMet) {
    auto cFile = record();
    cFile->addFrame(smallIQ(0));
    cFile->addFrame(makeSpectrum(fieldsAt(1), ramp(4)));
    ASSERT_TRUE(waitUntil([] { return !logged(-28).empty(); }));
    // Each that comes wakes the writer, and the end makes it look once more.
    for (uint32_t i = 2; i < 100; ++i)
        cFile->addFrame(smallIQ(i));
    cFile = nullptr;
    EXPECT_TRUE(logged(-28).empty());
    EXPECT_EQ(sequences(data()).size(), 99u);
}

// Files that cannot be opened, or not be written any more.

namespace {

/// What the log says of the whole recording's failure to write.
std::vector<std::string> writeFailures() {
    return logged(-71);
}

}  // namespace

TEST_F(StreamOutputFaultsTest, DataPathThatIsNoRegularFileCountsAsOneThatFailedToOpen) {
    ASSERT_EQ(::mkfifo(mcFolder.file("fifo.data").c_str(), 0600), 0);
    std::filesystem::create_directory(mcFolder.file("folder.data"));
    std::filesystem::create_symlink("/dev/full", mcFolder.file("device.data"));
    std::filesystem::create_symlink(mcFolder.file("missing/x"), mcFolder.file("link.data"));
    std::filesystem::create_symlink(mcFolder.file("ring.data"), mcFolder.file("ring.data"));
    for (const std::string name : {"fifo", "folder", "device", "link", "ring"}) {
        utils::RuntimeErrors::instance().clear();
        auto cFile = record(name + ".json");
        EXPECT_TRUE(cFile->isOpen()) << name;
        EXPECT_EQ(cFile->getPath(), mcFolder.path(name + ".json"));
        for (uint32_t i = 0; i < 50; ++i)
            EXPECT_TRUE(cFile->addFrame(smallIQ(i)));
        cFile = nullptr;
        EXPECT_EQ(writeFailures().size(), 1u) << name;
        EXPECT_NE(json(name).find("\"DataType\":\"IQ\""), std::string::npos) << name;
    }
}

TEST_F(StreamOutputFaultsTest, LinkThatLeadsNowhereIsFollowedAndItsTargetMade) {
    std::filesystem::create_symlink(mcFolder.file("elsewhere"), mcFolder.file("x.data"));
    std::filesystem::create_symlink(mcFolder.file("described"), mcFolder.file("x.json"));
    auto cFile = record();
    EXPECT_EQ(cFile->getPath(), mcFolder.path("x.json"));
    cFile->addFrame(smallIQ(1));
    cFile = nullptr;
    EXPECT_EQ(sequences(readWhole(mcFolder.file("elsewhere"))), std::vector<int64_t>{1});
    EXPECT_NE(readWhole(mcFolder.file("described")).find("\"IQ\""), std::string::npos);
    EXPECT_TRUE(writeFailures().empty());
}

TEST_F(StreamOutputFaultsTest, FifoInPlaceOfTheDescriptionIsATakenName) {
    ASSERT_EQ(::mkfifo(mcFolder.file("x.json").c_str(), 0600), 0);
    auto cFile = record();
    EXPECT_EQ(cFile->getPath(), mcFolder.path("x(1).json"));
    cFile->addFrame(smallIQ(1));
    cFile = nullptr;
    EXPECT_EQ(sequences(data("x(1)")), std::vector<int64_t>{1});
}

TEST_F(StreamOutputFaultsTest, FolderInPlaceOfTheDescriptionIsATakenName) {
    std::filesystem::create_directory(mcFolder.file("x.json"));
    EXPECT_EQ(record()->getPath(), mcFolder.path("x(1).json"));
}

TEST_F(StreamOutputFaultsTest, FileThatBecomesUnwritableIsNoTroubleOnceItIsOpen) {
    auto cFile = record();
    cFile->addFrame(smallIQ(0));
    ASSERT_TRUE(waitForBytes(52));
    ASSERT_EQ(::chmod(mcFolder.file("x.data").c_str(), 0), 0);
    std::filesystem::rename(mcFolder.native(), mcFolder.native() + "-moved");
    cFile->addFrame(smallIQ(1));
    cFile = nullptr;
    std::filesystem::rename(mcFolder.native() + "-moved", mcFolder.native());
    ASSERT_EQ(::chmod(mcFolder.file("x.data").c_str(), 0600), 0);
    EXPECT_EQ(sequences(data()), (std::vector<int64_t>{0, 1}));
    EXPECT_NE(json(), "");
}

// In a process of its own, whose end tells: 0 or the number of the line that went wrong.

#define CHILD_EXPECT(condition) \
    do {                        \
        if (!(condition))       \
            return __LINE__;    \
    } while (false)

namespace {

int runInChild(const std::function<int()>& body) {
    const pid_t iChild = ::fork();
    if (iChild == 0) {
        const int iLine = body();
        if (iLine != 0)
            ::dprintf(STDERR_FILENO, "the child failed at line %d\n", iLine);
        ::_exit(iLine == 0 ? 0 : 1);
    }
    int iStatus = -1;
    if (iChild < 0 || ::waitpid(iChild, &iStatus, 0) != iChild)
        return -1;
    return iStatus;
}

bool limitFiles(rlim_t uBytes) {
    const rlimit cLimit{uBytes, uBytes};
    return ::setrlimit(RLIMIT_FSIZE, &cLimit) == 0;
}

}  // namespace

TEST_F(StreamOutputFaultsTest, FilesThatMayNotBeWrittenAreReportedOnce) {
    writeWhole(mcFolder.file("x.data"), "of another");
    ASSERT_EQ(::chmod(mcFolder.file("x.data").c_str(), 0444), 0);
    ASSERT_EQ(::chmod(mcFolder.native().c_str(), 0777), 0);
    const int iStatus = runInChild([&] {
        // The rights of files do not count for root.
        if (::geteuid() == 0)
            CHILD_EXPECT(::setgid(65534) == 0 && ::setuid(65534) == 0);
        utils::RuntimeErrors::instance().clear();
        auto cFile = record();
        CHILD_EXPECT(cFile->isOpen());
        cFile->addFrame(smallIQ(1));
        cFile->addFrame(smallIQ(2));
        cFile = nullptr;
        CHILD_EXPECT(writeFailures().size() == 1);
        return 0;
    });
    EXPECT_EQ(iStatus, 0);
    EXPECT_EQ(data(), "of another");
    EXPECT_EQ(summary("IQ").find("Samples")->getUnsigned64(), 8u);
}

TEST_F(StreamOutputFaultsTest, FolderThatMayNotBeWrittenLeavesItOpenAndMakesNothing) {
    ASSERT_EQ(::chmod(mcFolder.native().c_str(), 0555), 0);
    const int iStatus = runInChild([&] {
        if (::geteuid() == 0)
            CHILD_EXPECT(::setgid(65534) == 0 && ::setuid(65534) == 0);
        utils::RuntimeErrors::instance().clear();
        auto cFile = record();
        CHILD_EXPECT(cFile->isOpen());
        CHILD_EXPECT(cFile->getPath() == mcFolder.path("x.json"));
        CHILD_EXPECT(cFile->addFrame(smallIQ(1)));
        cFile = nullptr;
        CHILD_EXPECT(writeFailures().size() == 1);
        return 0;
    });
    EXPECT_EQ(iStatus, 0);
    EXPECT_TRUE(mcFolder.names().empty());
}

TEST_F(StreamOutputFaultsTest, FullFileIsReportedOnceKeepsItsWholeFramesAndGetsItsDescription) {
    const int iStatus = runInChild([&] {
        CHILD_EXPECT(limitFiles(52 * 10 + 30));  // ten frames and a part of the next
        utils::RuntimeErrors::instance().clear();
        auto cFile = record();
        for (uint32_t i = 0; i < 100; ++i)
            CHILD_EXPECT(cFile->addFrame(smallIQ(i)));
        cFile = nullptr;
        const std::vector<std::string> lFailures = writeFailures();
        CHILD_EXPECT(lFailures.size() == 1);
        CHILD_EXPECT(lFailures[0].find("x.json") != std::string::npos);
        return 0;
    });
    EXPECT_EQ(iStatus, 0) << "the signal of the limit ends nobody";
    EXPECT_EQ(sequences(data()), (std::vector<int64_t>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9}));
    EXPECT_EQ(summary("IQ").find("Samples")->getUnsigned64(), 400u);
}

TEST_F(StreamOutputFaultsTest, LimitBelowEvenTheDescriptionEndsNobodyAndLeavesItEmpty) {
    const int iStatus = runInChild([&] {
        CHILD_EXPECT(limitFiles(100));
        utils::RuntimeErrors::instance().clear();
        auto cFile = record();
        CHILD_EXPECT(cFile->addFrame(smallIQ(0)));
        cFile = nullptr;
        CHILD_EXPECT(writeFailures().size() == 1);
        // The caller's own handling of the signal is as it was: not blocked, and nothing left pending.
        sigset_t cSet;
        CHILD_EXPECT(pthread_sigmask(SIG_SETMASK, nullptr, &cSet) == 0 && sigismember(&cSet, SIGXFSZ) == 0);
        CHILD_EXPECT(sigpending(&cSet) == 0 && sigismember(&cSet, SIGXFSZ) == 0);
        return 0;
    });
    EXPECT_EQ(iStatus, 0);
    EXPECT_EQ(sequences(data()), std::vector<int64_t>{0});
    EXPECT_EQ(json(), "") << "rather none than half of one";
}

TEST_F(StreamOutputFaultsTest, LimitOfNothingEndsNobodyEvenWithoutFrames) {
    const int iStatus = runInChild([&] {
        CHILD_EXPECT(limitFiles(0));
        record();
        record("y.json")->addFrame(smallIQ(0));
        return 0;
    });
    EXPECT_EQ(iStatus, 0);
    for (const char* pName : {"x.json", "x.data", "y.json", "y.data"})
        EXPECT_EQ(readWhole(mcFolder.file(pName)), "") << pName;
}

TEST_F(StreamOutputFaultsTest, KilledProcessLeavesItsFramesWholeAndAnEmptyDescription) {
    constexpr uint32_t kFrames = 500;
    const pid_t iChild = ::fork();
    if (iChild == 0) {
        const auto cFile = record();
        for (uint32_t i = 0; i < kFrames; ++i)
            cFile->addFrame(smallIQ(i));
        ::pause();
        ::_exit(1);
    }
    ASSERT_GT(iChild, 0);
    const bool bWritten = waitForBytes(kFrames * 52);
    ::kill(iChild, SIGKILL);
    int iStatus = 0;
    ASSERT_EQ(::waitpid(iChild, &iStatus, 0), iChild);
    EXPECT_TRUE(bWritten);
    EXPECT_TRUE(WIFSIGNALED(iStatus));
    std::string expected;
    for (uint32_t i = 0; i < kFrames; ++i)
        expected += iqBytes(i);
    EXPECT_TRUE(sameBytes(data(), expected));
    EXPECT_EQ(json(), "");
    EXPECT_EQ(mcFolder.names(), (std::vector<std::string>{"x.data", "x.json"}));
}

TEST_F(StreamOutputFaultsTest, ProcessKilledAtAnyMomentLeavesWholeFramesFromTheFirstOn) {
    constexpr uint32_t kMostFrames = 100'000;   // more than it comes to; bounds what has to be read
    for (uint32_t uRun = 0; uRun < 10; ++uRun) {
        const std::string name = "k" + std::to_string(uRun);
        const pid_t iChild = ::fork();
        if (iChild == 0) {
            const auto cFile = record(name + ".json");
            for (uint32_t i = 0; i < kMostFrames; ++i)
                cFile->addFrame(smallIQ(i));
            ::pause();
        }
        ASSERT_GT(iChild, 0);
        std::error_code cNone;   // not there yet
        EXPECT_TRUE(waitUntil([&] {
            const uintmax_t uBytes = std::filesystem::file_size(mcFolder.file(name + ".data"), cNone);
            return !cNone && uBytes > 52 * 100 * (uRun + 1);
        }));
        ::kill(iChild, SIGKILL);
        ASSERT_EQ(::waitpid(iChild, nullptr, 0), iChild);
        const std::vector<int64_t> lSequences = sequences(data(name));
        ASSERT_GT(lSequences.size(), 100u);
        for (size_t i = 1; i + 1 < lSequences.size(); ++i)
            ASSERT_LT(lSequences[i - 1], lSequences[i]);
        EXPECT_EQ(json(name), "");
    }
}
