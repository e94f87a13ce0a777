#include "tools/recordingreader.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "recordings.h"
#include "tools/exitcodes.h"

using namespace cli;
using vnktest::littleEndian;

namespace {

class RecordingFile : public ::testing::Test {
 protected:
    std::string write(const std::string& bytes) {
        vnktest::writeFile(mcFolder / "x.data", bytes);
        return mcFolder / "x.data";
    }

    vnktest::ScratchFolder mcFolder;
};

size_t countFrames(RecordingReader& reader) {
    size_t uCount = 0;
    while (reader.next())
        ++uCount;
    return uCount;
}

}  // namespace

TEST_F(RecordingFile, FieldsOfIqFrames) {
    RecordingReader reader(write(vnktest::iqFrame(0x0102030405060708, 7, {1, 2, 3, 4}) +
                                 vnktest::iqFrame(9, 0xFFFFFFFE, {5, 6})));
    ASSERT_EQ(reader.type(), DataType::iq);
    const auto first = reader.next();
    ASSERT_TRUE(first);
    EXPECT_EQ(first->timestamp, 0x0102030405060708u);
    EXPECT_EQ(first->sequence, 7u);
    EXPECT_EQ(first->count, 2u);
    EXPECT_EQ(first->bytes, 36u);
    const auto second = reader.next();
    ASSERT_TRUE(second);
    EXPECT_EQ(second->offset, 36u);
    EXPECT_EQ(second->sequence, 0xFFFFFFFEu);
    EXPECT_FALSE(reader.next());
    EXPECT_EQ(reader.end(), DataEnd::whole);
    EXPECT_EQ(reader.position(), reader.size());
}

TEST_F(RecordingFile, FieldsOfSpectrumAndBasebandFrames) {
    {
        RecordingReader reader(write(vnktest::spectrumFrame(11, 12, 13, {1, 2, 3})));
        EXPECT_EQ(reader.type(), DataType::spectrum);
        const auto frame = reader.next();
        ASSERT_TRUE(frame);
        EXPECT_EQ(frame->timestamp, 11u);
        EXPECT_EQ(frame->duration, 12u);
        EXPECT_EQ(frame->sequence, 13u);
        EXPECT_EQ(frame->count, 3u);
        EXPECT_EQ(frame->bytes, 40u);
    }
    RecordingReader reader(write(vnktest::basebandFrame({{1, 2, 3, 4}, {5, 6, 7, 8}})));
    EXPECT_EQ(reader.type(), DataType::baseband);
    const auto frame = reader.next();
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->count, 4u);
    EXPECT_EQ(frame->channels, 2u);
    EXPECT_EQ(frame->bytes, 44u);
}

TEST_F(RecordingFile, ACutAnywhereLeavesTheWholeFramesBefore) {
    const std::string whole = vnktest::evenIq(3);
    const size_t uFrame = whole.size() / 3;
    const std::string path = write(whole);
    for (size_t uSize = whole.size() + 1; uSize-- > 0;) {
        ASSERT_EQ(::truncate(path.c_str(), static_cast<off_t>(uSize)), 0);
        RecordingReader reader(path);
        EXPECT_EQ(countFrames(reader), uSize / uFrame) << uSize;
        EXPECT_EQ(reader.position(), uSize / uFrame * uFrame) << uSize;
        EXPECT_EQ(reader.end(), uSize % uFrame == 0 ? DataEnd::whole : DataEnd::cut) << uSize;
    }
}

TEST_F(RecordingFile, CountsThatTheFileCannotHoldAreACutFrame) {
    const std::string head = littleEndian(uint32_t{0x12F7A2E6}) + std::string(12, 'x');
    for (const uint32_t uCount : {1u, 0x20000000u, 0xFFFFFFFFu}) {
        RecordingReader reader(write(head + littleEndian(uCount)));
        EXPECT_FALSE(reader.next());
        EXPECT_EQ(reader.end(), DataEnd::cut);
    }
    // Neither product may wrap.
    RecordingReader reader(write(littleEndian(uint32_t{0xBA5EBA4D}) + littleEndian(uint32_t{0x80000000}) +
                                 littleEndian(uint32_t{0x80000000}) + std::string(64, 'x')));
    EXPECT_FALSE(reader.next());
    EXPECT_EQ(reader.end(), DataEnd::cut);
}

TEST_F(RecordingFile, OtherBytesAndFramesWithoutSamplesEndIt) {
    const std::string whole = vnktest::evenIq(2);
    RecordingReader foreign(write(whole + vnktest::spectrumFrame(1, 2, 3, {4}) + whole));
    EXPECT_EQ(countFrames(foreign), 2u);
    EXPECT_EQ(foreign.end(), DataEnd::foreign);
    RecordingReader empty(write(whole + vnktest::iqFrame(1, 7, {}) + whole));
    EXPECT_EQ(countFrames(empty), 2u);
    EXPECT_EQ(empty.end(), DataEnd::empty);
    EXPECT_EQ(empty.position(), whole.size());
    RecordingReader nothing(write("this is no recording at all"));
    EXPECT_FALSE(nothing.type());
    EXPECT_EQ(countFrames(nothing), 0u);
    EXPECT_EQ(nothing.end(), DataEnd::foreign);
}

TEST_F(RecordingFile, ManySmallFramesCrossTheWindow) {
    std::string bytes;
    for (uint32_t u = 0; u < 10000; ++u)
        bytes += vnktest::iqFrame(u, u, std::vector<float>(2 * (1 + u % 5), 1.0f));
    RecordingReader reader(write(bytes));
    for (uint32_t u = 0; u < 10000; ++u) {
        const auto frame = reader.next();
        ASSERT_TRUE(frame) << u;
        EXPECT_EQ(frame->sequence, u);
        EXPECT_EQ(frame->count, 1 + u % 5);
    }
    EXPECT_FALSE(reader.next());
    reader.rewind();
    EXPECT_EQ(countFrames(reader), 10000u);
}

TEST_F(RecordingFile, ALargeSparseFileIsReadWithoutItsSamples) {
    const std::string path = write(littleEndian(uint32_t{0x12F7A2E6}) + littleEndian(uint64_t{1}) +
                                   littleEndian(uint32_t{2}) + littleEndian(uint32_t{0x30000000}));
    const uint64_t uFrame = 20 + uint64_t{0x30000000} * 8;
    ASSERT_EQ(::truncate(path.c_str(), static_cast<off_t>(uFrame)), 0);
    std::ofstream(path, std::ios::binary | std::ios::app) << vnktest::iqFrame(3, 3, {1, 2});
    RecordingReader reader(path);
    EXPECT_EQ(countFrames(reader), 2u);
    EXPECT_EQ(reader.end(), DataEnd::whole);
    EXPECT_GT(reader.size(), uint64_t{6} << 30);
}

TEST_F(RecordingFile, WhatIsNoRegularFileIsRefusedAtOnce) {
    ASSERT_EQ(::mkfifo((mcFolder / "pipe").c_str(), 0600), 0);
    for (const std::string& path :
         {mcFolder / "pipe", mcFolder.path(), mcFolder / "nothing", std::string("/dev/zero")}) {
        try {
            const RecordingReader reader(path);
            FAIL() << path;
        } catch (const Failure& failure) {
            EXPECT_EQ(failure.code(), Exit::file) << path;
        }
    }
}

TEST_F(RecordingFile, AWriterIsNoticed) {
    const std::string path = write(vnktest::evenIq(1));
    const int iWriter = ::open(path.c_str(), O_WRONLY | O_CLOEXEC);
    ASSERT_GE(iWriter, 0);
    const RecordingReader reader(path);
    const int iProbe = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    const bool bLeases = ::fcntl(iProbe, F_SETLEASE, F_RDLCK) != 0 && errno == EAGAIN;
    ::close(iProbe);
    // Some file systems cannot tell.
    EXPECT_EQ(reader.isBeingWritten(), bLeases);
    ::close(iWriter);
    EXPECT_FALSE(reader.isBeingWritten());
    EXPECT_FALSE(reader.isBeingWritten());
}
