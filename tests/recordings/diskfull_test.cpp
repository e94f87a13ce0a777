#include <sched.h>
#include <sys/mount.h>
#include <sys/statvfs.h>

#include <functional>
#include <thread>

#include "recordings/player.h"
#include "support/resources.h"

namespace {

using namespace recordings;

constexpr uint64_t kMillisecond = 1'000'000;

/// Runs the work on a thread that sees a disk of so many bytes at the folder, and nobody else does: the
/// system takes it away with the last thread that sees it. False where that is not permitted.
bool onSmallDisk(const std::string& folder, const std::string& size, const std::function<void()>& work) {
    bool bPermitted = false;
    std::thread([&] {
        bPermitted = ::unshare(CLONE_NEWNS) == 0 &&
                     ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                     ::mount("none", folder.c_str(), "tmpfs", 0, ("size=" + size).c_str()) == 0;
        if (bPermitted)
            work();
    }).join();
    return bPermitted;
}

#define VNK_NEED_MOUNTS(permitted) \
    if (!(permitted))              \
    GTEST_SKIP() << "mounting a small disk is not permitted here (it needs root)"

uint64_t freeBytes(const std::string& folder) {
    struct statvfs cDisk {};
    ::statvfs(folder.c_str(), &cDisk);
    return uint64_t{cDisk.f_bavail} * cDisk.f_frsize;
}

/// Reads to the end of the stream and gives the greatest memory seen on the way.
std::vector<IQ> readWatchingMemory(Stream& cStream, uint64_t& uPeak) {
    std::vector<IQ> lFrames;
    HeldIQ cRecord;
    EXPECT_TRUE(vnktest::waitUntil([&] {
        int32_t iStatus = 0;
        while ((iStatus = cStream.read(cRecord, 200)) == 0) {
            lFrames.push_back({cRecord->timestamp, cRecord->sequence, {}});
            uPeak = std::max(uPeak, vnktest::residentBytes());
        }
        return iStatus == 2;
    }));
    return lFrames;
}

void recordUntilTheDiskIsFull(const Folder& cFolder, const Folder& cDisk) {
    constexpr size_t kFrames = 300, kSamples = 5000;  // 12 MB, and some 26 frames fit
    const std::vector<IQ> lSource = makeIQ(kFrames, kSamples, kMillisecond);
    writePair(cFolder, "source", lSource);
    const uint64_t uBefore = vnktest::residentBytes();
    uint64_t uPeak = 0;
    Stream cStream;
    cStream.queueAll();
    takeLog();
    ASSERT_EQ(cStream.record(cDisk.name("x")), 0);
    ASSERT_EQ(cStream.play(cFolder.name("source")), 0);
    const std::vector<IQ> lRead = readWatchingMemory(cStream, uPeak);
    EXPECT_EQ(lRead.size(), kFrames) << "the stream goes on without loss";
    for (size_t i = 0; i < lRead.size(); ++i)
        EXPECT_EQ(lRead[i].muSequence, i);
    EXPECT_EQ(cStream.endRecording(), 0);
    const std::string log = takeLog();
    EXPECT_EQ(countOf(log, "(libvnk code -71)"), 1u) << log;
    EXPECT_NE(log.find("No space left on device"), std::string::npos);
    if (!kSanitized) {
        EXPECT_LT(uPeak, uBefore + (32u << 20)) << "what cannot be written does not pile up";
    }
    std::string rest;
    const std::vector<IQ> lWritten = parseIQ(readFile(cDisk.native("x.data")), &rest);
    EXPECT_EQ(rest, "") << "no frame is left half";
    ASSERT_GE(lWritten.size(), 20u);
    const std::string written = bytesOf(lWritten);
    EXPECT_EQ(written, bytesOf(lSource).substr(0, written.size()));
    // What was written plays, from where it lies.
    ASSERT_NE(readFile(cDisk.native("x.json")), "") << freeBytes(cDisk.path()) << " bytes free";
    ASSERT_EQ(cStream.play(cDisk.name("x")), 0);
    EXPECT_EQ(bytesOf(readIQ(cStream)), written);
}

void recordOnAFullDisk(const Folder& cFolder, const Folder& cDisk) {
    writePair(cFolder, "source", makeIQ(20, 1000));
    writeFile(cDisk.native("ballast"), std::string(2 << 20, 'x'));
    ASSERT_EQ(freeBytes(cDisk.path()), 0u);
    Stream cStream;
    cStream.queueAll();
    takeLog();
    ASSERT_EQ(cStream.record(cDisk.name("x")), 0);
    ASSERT_EQ(cStream.play(cFolder.name("source")), 0);
    EXPECT_EQ(readIQ(cStream).size(), 20u);
    EXPECT_EQ(cStream.close(), 0);
    EXPECT_EQ(countOf(takeLog(), "(libvnk code -71)"), 1u);
    EXPECT_EQ(readFile(cDisk.native("x.data")), "");
    EXPECT_EQ(readFile(cDisk.native("x.json")), "") << "none rather than half of one";
    writePair(cFolder, "audio", std::vector<Baseband>{{{{1, 2, 3}}}});
    EXPECT_EQ(vnkConvertBasebandFileToWavFile(cFolder.name("audio").c_str(), cDisk.name("x.wav").c_str()), 0);
    EXPECT_EQ(readFile(cDisk.native("x.wav")), "");
}

/// The disk gets room again before the recording ends.
void recordWhileADiskIsFull(const Folder& cFolder, const Folder& cDisk) {
    const std::vector<IQ> lSource = makeIQ(20, 1000);
    writePair(cFolder, "source", lSource);
    Stream cStream;
    cStream.queueAll();
    takeLog();
    ASSERT_EQ(cStream.record(cDisk.name("x")), 0);
    writeFile(cDisk.native("ballast"), std::string(2 << 20, 'x'));
    ASSERT_EQ(cStream.play(cFolder.name("source")), 0);
    readIQ(cStream);
    ASSERT_TRUE(vnktest::waitUntil([&] { return countOf(takeLog(), "(libvnk code -71)") == 1; }));
    std::filesystem::remove(cDisk.native("ballast"));
    ASSERT_EQ(cStream.record(cDisk.name("y")), 0) << "a recording that failed can be followed by another";
    ASSERT_EQ(cStream.play(cFolder.name("source")), 0);
    readIQ(cStream);
    ASSERT_EQ(cStream.endRecording(), 0);
    EXPECT_EQ(countOf(takeLog(), "(libvnk code -71)"), 0u);
    EXPECT_EQ(readFile(cDisk.native("y.data")), bytesOf(lSource));
    EXPECT_EQ(readFile(cDisk.native("y.json")), describe(lSource).pretty());
}

}  // namespace

TEST(FullDisk, EndsARecordingAndNotItsStream) {
    const Folder cFolder, cDisk;
    VNK_NEED_MOUNTS(onSmallDisk(cDisk.path(), "1m", [&] { recordUntilTheDiskIsFull(cFolder, cDisk); }));
}

TEST(FullDisk, FromTheStartLeavesBothFilesEmpty) {
    const Folder cFolder, cDisk;
    VNK_NEED_MOUNTS(onSmallDisk(cDisk.path(), "1m", [&] { recordOnAFullDisk(cFolder, cDisk); }));
}

TEST(FullDisk, IsForgottenByTheNextRecording) {
    const Folder cFolder, cDisk;
    VNK_NEED_MOUNTS(onSmallDisk(cDisk.path(), "1m", [&] { recordWhileADiskIsFull(cFolder, cDisk); }));
}
