#include "recordings/slowdisk.h"

#include <malloc.h>

#include <atomic>
#include <chrono>
#include <numeric>
#include <thread>

#include "recordings/player.h"
#include "support/resources.h"

namespace {

using namespace recordings;
using namespace std::chrono_literals;

/// Slow enough for a reader that keeps up, so that nothing waits for it.
constexpr uint64_t kStep = 4'000'000;
constexpr size_t kLimit = 100u << 20;  // what may wait for the disk

/// Puts the disk back to its own speed, however a test ends.
struct Disk {
    ~Disk() { slowdisk::release(); }
};

/// Frames of zeros whose first sample tells their number: the files have holes and cost no disk.
void writeSparse(const Folder& cFolder, const std::string& stem, uint32_t uFirst, size_t uFrames,
                 size_t uSamples) {
    std::vector<IQ> lFrames = makeIQ(uFrames, 0, kStep, uFirst);
    writeFile(cFolder.native(stem + ".json"), [&] {
        Record cSummary;
        cSummary.text("TimeResolution", "ns").whole("Samples", uFrames * uSamples);
        cSummary.whole("StartTimestamp", lFrames.front().muTime);
        return describe(lFrames).nested("IQ", cSummary).pretty();
    }());
    std::ofstream cData(cFolder.native(stem + ".data"), std::ios::binary);
    const size_t uFrameBytes = 20 + uSamples * 8;
    for (IQ& cFrame : lFrames) {
        cFrame.mlSamples = {std::complex<float>(static_cast<float>(cFrame.muSequence), 1)};
        std::string bytes = bytesOf(cFrame);
        const auto uCount = static_cast<uint32_t>(uSamples);
        std::memcpy(bytes.data() + 16, &uCount, sizeof uCount);
        cData.seekp(static_cast<std::streamoff>((cFrame.muSequence - uFirst) * uFrameBytes));
        cData.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    }
    cData.close();
    std::filesystem::resize_file(cFolder.native(stem + ".data"), uFrames * uFrameBytes);
}

/// The sequences of the frames in a file of frames of one size; all bytes are looked at.
std::vector<uint32_t> sequencesIn(const std::string& native, size_t uSamples) {
    std::vector<uint32_t> lSequences;
    std::ifstream cFile(native, std::ios::binary);
    std::string bytes(20 + uSamples * 8, '\0');
    while (cFile.read(bytes.data(), static_cast<std::streamsize>(bytes.size()))) {
        EXPECT_EQ(numberAt<uint32_t>(bytes, 0), kIQMarker);
        const auto uSequence = numberAt<uint32_t>(bytes, 12);
        EXPECT_EQ(numberAt<uint32_t>(bytes, 16), uSamples);
        EXPECT_EQ(numberAt<float>(bytes, 20), static_cast<float>(uSequence));
        EXPECT_EQ(bytes.find_first_not_of('\0', 28), std::string::npos);
        lSequences.push_back(uSequence);
    }
    EXPECT_EQ(cFile.gcount(), 0) << "a frame is cut short";
    return lSequences;
}

/// Reads frame for frame, keeps none, and watches the memory.
std::vector<uint32_t> readAndWatch(Stream& cStream, uint64_t& uPeak) {
    std::vector<uint32_t> lSequences;
    HeldIQ cRecord;
    EXPECT_TRUE(vnktest::waitUntil([&] {
        int32_t iStatus = 0;
        while ((iStatus = cStream.read(cRecord, 200)) == 0) {
            lSequences.push_back(cRecord->sequence);
            cRecord.free();
            uPeak = std::max(uPeak, vnktest::residentBytes());
        }
        return iStatus == 2;
    }));
    return lSequences;
}

std::vector<uint32_t> fromTo(uint32_t uFirst, uint32_t uEnd) {
    std::vector<uint32_t> lNumbers(uEnd - uFirst);
    std::iota(lNumbers.begin(), lNumbers.end(), uFirst);
    return lNumbers;
}

/// Lets the writer begin with the one frame of `first` and stand there.
void recordInto(Stream& cStream, const Folder& cFolder, const std::string& output, const std::string& first) {
    ASSERT_EQ(cStream.record(cFolder.name(output)), 0);
    slowdisk::hold(output + ".data");
    ASSERT_EQ(cStream.play(cFolder.name(first)), 0);
    EXPECT_EQ(readIQ(cStream).size(), 1u);
    ASSERT_TRUE(vnktest::waitUntil([] { return slowdisk::held() == 1; }));
}

}  // namespace

TEST(SlowDisk, ThatStandsStillLosesTheOldestFramesAndNeverHoldsTheStream) {
    constexpr size_t kFrames = 180, kSamples = 131072;  // 1 MiB each
    // Large blocks go back to the system when they are freed, so that what is resident is what is held.
    ::mallopt(M_MMAP_THRESHOLD, 1 << 16);
    const Disk cDisk;
    const Folder cFolder;
    writeSparse(cFolder, "first", 0, 1, kSamples);
    writeSparse(cFolder, "rest", 1, kFrames - 1, kSamples);
    Stream cStream;
    cStream.queueAll();
    recordInto(cStream, cFolder, "stuck", "first");
    const uint64_t uBefore = vnktest::residentBytes();
    uint64_t uPeak = 0;
    ASSERT_EQ(cStream.play(cFolder.name("rest")), 0);
    EXPECT_EQ(readAndWatch(cStream, uPeak), fromTo(1, kFrames)) << "the stream goes on without loss";
    EXPECT_EQ(slowdisk::held(), 1u) << "the writer stands in its first frame";
    if (!kSanitized) {
        // Beside what waits: the frame that is written, and some that are on their way between player and
        // reader.
        std::cout << "at most " << ((uPeak - uBefore) >> 20) << " MiB more than before\n";
        EXPECT_LT(uPeak, uBefore + kLimit + (40u << 20));
        EXPECT_GT(uPeak, uBefore + kLimit / 2);
    }
    slowdisk::release();
    EXPECT_EQ(cStream.endRecording(), 0);
    const std::vector<uint32_t> lWritten = sequencesIn(cFolder.native("stuck.data"), kSamples);
    // The one that was being written when its place in the queue was taken, and then the newest that fit.
    const size_t uKept = kLimit / (kSamples * 8);
    ASSERT_GE(lWritten.size(), uKept - 1);
    ASSERT_LE(lWritten.size(), uKept + 1);
    EXPECT_EQ(lWritten[0], 0u);
    for (size_t i = 1; i < lWritten.size(); ++i)
        EXPECT_EQ(lWritten[i], kFrames - (lWritten.size() - i)) << i;
    EXPECT_NE(readFile(cFolder.native("stuck.json"))
                  .find("\"Samples\":" + std::to_string(lWritten.size() * kSamples)),
              std::string::npos);
}

TEST(SlowDisk, IsWaitedForAtTheEndOfARecording) {
    const Disk cDisk;
    const Folder cFolder;
    const std::vector<IQ> lFrames = makeIQ(60, 200);
    writePair(cFolder, "source", lFrames);
    Stream cStream;
    ASSERT_EQ(cStream.record(cFolder.name("slow")), 0);
    slowdisk::hold("slow.data");
    ASSERT_EQ(cStream.play(cFolder.name("source")), 0);
    ASSERT_TRUE(vnktest::waitUntil([&] { return cStream.isAttached() == 5 && slowdisk::held() == 1; }));
    slowdisk::delay("slow.data", 5'000);
    EXPECT_EQ(cStream.close(), 0);
    EXPECT_GE(slowdisk::touched(), 59u) << "the disk was slow to the end";
    EXPECT_EQ(readFile(cFolder.native("slow.data")), bytesOf(lFrames));
    EXPECT_EQ(readFile(cFolder.native("slow.json")), describe(lFrames).pretty());
}

TEST(SlowDisk, ThatStandsStillForLongerThanAThreadIsWaitedForLosesNothingAtTheClose) {
    const Disk cDisk;
    const Folder cFolder;
    const std::vector<IQ> lFrames = makeIQ(10, 200);
    writePair(cFolder, "source", lFrames);
    Stream cStream, cOther;
    cStream.queueAll();
    cOther.queueAll();
    ASSERT_EQ(cStream.record(cFolder.name("stuck")), 0);
    slowdisk::hold("stuck.data");
    ASSERT_EQ(cStream.play(cFolder.name("source")), 0);
    EXPECT_EQ(readIQ(cStream).size(), 10u);
    ASSERT_TRUE(vnktest::waitUntil([] { return slowdisk::held() == 1; }));
    std::atomic<bool> bClosed{false};
    std::thread cCloser([&] {
        EXPECT_EQ(cStream.endRecording(), 0);
        bClosed = true;
    });
    // Longer than the second that a thread has to end: the time itself is what is tested.
    std::this_thread::sleep_for(1500ms);
    EXPECT_FALSE(bClosed) << "the close waits for the disk";
    EXPECT_EQ(cOther.play(cFolder.name("source")), 0);
    EXPECT_EQ(readIQ(cOther).size(), 10u) << "other streams do not";
    EXPECT_EQ(cStream.play(cFolder.name("source")), 0);
    EXPECT_EQ(readIQ(cStream).size(), 10u) << "nor does the stream itself";
    slowdisk::release();
    cCloser.join();
    EXPECT_EQ(readFile(cFolder.native("stuck.data")), bytesOf(lFrames));
    EXPECT_EQ(readFile(cFolder.native("stuck.json")), describe(lFrames).pretty());
}

TEST(SlowDisk, AFrameThatLosesItsPlaceWhileItIsWrittenTakesNoOtherWithIt) {
    constexpr size_t kSamples = 7'500'000;  // 57 MiB: two are above the limit
    const Disk cDisk;
    const Folder cFolder;
    writeSparse(cFolder, "first", 0, 1, kSamples);
    writeSparse(cFolder, "rest", 1, 2, kSamples);
    Stream cStream;
    recordInto(cStream, cFolder, "stuck", "first");
    ASSERT_EQ(cStream.play(cFolder.name("rest")), 0);
    EXPECT_EQ(readIQ(cStream).size(), 2u);
    slowdisk::release();
    EXPECT_EQ(cStream.endRecording(), 0);
    EXPECT_EQ(sequencesIn(cFolder.native("stuck.data"), kSamples), (std::vector<uint32_t>{0, 2}));
}

TEST(SlowDisk, AFrameThatIsAloneAboveTheLimitIsNotKept) {
    constexpr size_t kSamples = 14u << 20;  // 112 MiB
    const Folder cFolder;
    writeSparse(cFolder, "source", 0, 2, kSamples);
    Stream cStream;
    ASSERT_EQ(cStream.record(cFolder.name("large")), 0);
    ASSERT_EQ(cStream.play(cFolder.name("source")), 0);
    uint64_t uPeak = 0;
    EXPECT_EQ(readAndWatch(cStream, uPeak), fromTo(0, 2));
    EXPECT_EQ(cStream.endRecording(), 0);
    EXPECT_EQ(readFile(cFolder.native("large.data")), "");
    EXPECT_EQ(readFile(cFolder.native("large.json")), "{\r\n}");
}
