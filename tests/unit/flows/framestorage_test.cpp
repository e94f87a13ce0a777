#include <gtest/gtest.h>

#include <sstream>

#include "flows/basebandframe.h"
#include "flows/ionlyframe.h"
#include "flows/iqframe.h"
#include "flows/spectrumframe.h"

namespace {

using std::string_literals::operator""s;

// The samples 1.0, -2.0, 0.5 and 4.0, and the headers, as their bytes lie in a file.
const std::string kOne = "\x00\x00\x80\x3F"s;
const std::string kMinusTwo = "\x00\x00\x00\xC0"s;
const std::string kHalf = "\x00\x00\x00\x3F"s;
const std::string kFour = "\x00\x00\x80\x40"s;
const std::string kTimestamp = "\x88\x77\x66\x55\x44\x33\x22\x11"s;
const std::string kDuration = "\x01\x02\x00\x00\x00\x00\x00\x80"s;
const std::string kSequence = "\x04\x03\x02\x01"s;
const std::string kTwo = "\x02\x00\x00\x00"s;

const std::string kIQBytes =
    "\xE6\xA2\xF7\x12"s + kTimestamp + kSequence + kTwo + kOne + kMinusTwo + kHalf + kFour;
const std::string kIOnlyBytes = "\x7A\x2F\x71\x10"s + kTwo + kOne + kMinusTwo;
const std::string kSpectrumBytes =
    "\x22\x74\xEC\x59"s + kTimestamp + kDuration + kSequence + kTwo + kHalf + kFour;
const std::string kBasebandBytes = "\x4D\xBA\x5E\xBA"s + kTwo + kTwo + kOne + kMinusTwo + kHalf + kFour;

IQFrame emptyIQ() {
    return IQFrame(9, 0, 8, kNanoseconds, 0, 0, 1e6f, 0, nullptr, "");
}
IOnlyFrame emptyIOnly() {
    return IOnlyFrame(9, 0, 8, kNanoseconds, 0, 0, 1e6f, 0, {}, nullptr, "");
}
SpectrumFrame emptySpectrum() {
    return SpectrumFrame(9, 8, 7, kNanoseconds, 0, 1, 1, 0, "hann", nullptr, "");
}
BasebandFrame emptyBaseband() {
    return BasebandFrame(8, kNanoseconds, 48e3f, 20e3f);
}

ReferencePtr<FloatArray> values(std::initializer_list<float> fValues) {
    ReferencePtr<FloatArray> cArray(new FloatArray(static_cast<uint32_t>(fValues.size())));
    std::copy(fValues.begin(), fValues.end(), cArray->getData());
    return cArray;
}

TEST(FrameStorage, IQFrameWritesItsBytes) {
    ReferencePtr<ComplexArray> cArray(new ComplexArray(2));
    cArray->getData()[0] = {1.0f, -2.0f};
    cArray->getData()[1] = {0.5f, 4.0f};
    const IQFrame cFrame(0x01020304, 0, 0x1122334455667788, kNanoseconds, 0, 0, 1e6f, 0, cArray, "");
    std::ostringstream cStream;
    EXPECT_EQ(cFrame.writeTo(cStream), 24u);
    EXPECT_EQ(cStream.str(), kIQBytes);
}

TEST(FrameStorage, IOnlyFrameWritesItsBytes) {
    const IOnlyFrame cFrame(1, 0, 2, kNanoseconds, 0, 0, 1e6f, 0, {}, values({1.0f, -2.0f}), "");
    std::ostringstream cStream;
    EXPECT_EQ(cFrame.writeTo(cStream), 16u);
    EXPECT_EQ(cStream.str(), kIOnlyBytes);
}

TEST(FrameStorage, spectrumFrameWritesItsBytes) {
    const SpectrumFrame cFrame(0x01020304, 0x1122334455667788, 0x8000000000000201, kNanoseconds, 0, 1, 1, 0,
                               "hann", values({0.5f, 4.0f}), "");
    std::ostringstream cStream;
    EXPECT_EQ(cFrame.writeTo(cStream), 16u);
    EXPECT_EQ(cStream.str(), kSpectrumBytes);
}

TEST(FrameStorage, basebandFrameWritesItsBytes) {
    BasebandFrame cFrame(emptyBaseband(), 2);
    std::copy_n(values({1.0f, -2.0f})->getData(), 2, cFrame.getChannel(0)->getData());
    std::copy_n(values({0.5f, 4.0f})->getData(), 2, cFrame.getChannel(1)->getData());
    std::ostringstream cStream;
    EXPECT_EQ(cFrame.writeTo(cStream), 28u);
    EXPECT_EQ(cStream.str(), kBasebandBytes);
}

TEST(FrameStorage, onlyTheActiveSamplesAreWritten) {
    auto cArray = values({1.0f, -2.0f, 9.0f});
    cArray->setActive(2);
    const IOnlyFrame cFrame(1, 0, 2, kNanoseconds, 0, 0, 1e6f, 0, {}, cArray, "");
    std::ostringstream cStream;
    EXPECT_EQ(cFrame.writeTo(cStream), 16u);
    EXPECT_EQ(cStream.str(), kIOnlyBytes);
}

TEST(FrameStorage, frameWithoutAnArrayWritesNothing) {
    std::ostringstream cStream;
    EXPECT_EQ(emptyIQ().writeTo(cStream), 0u);
    EXPECT_EQ(emptyIOnly().writeTo(cStream), 0u);
    EXPECT_EQ(emptySpectrum().writeTo(cStream), 0u);
    EXPECT_EQ(cStream.str(), "");
}

TEST(FrameStorage, basebandFrameWithoutChannelsWritesItsHeader) {
    std::ostringstream cStream;
    EXPECT_EQ(emptyBaseband().writeTo(cStream), 12u);
    EXPECT_EQ(cStream.str(), "\x4D\xBA\x5E\xBA\x00\x00\x00\x00\x00\x00\x00\x00"s);
}

TEST(FrameStorage, spectrumFrameWithNoActiveValueWritesItsHeader) {
    const SpectrumFrame cFrame(1, 2, 3, kNanoseconds, 0, 1, 1, 0, "hann", values({}), "");
    std::ostringstream cStream;
    EXPECT_EQ(cFrame.writeTo(cStream), 8u);
    EXPECT_EQ(cStream.str().size(), 28u);
}

TEST(FrameStorage, IQFrameReadsItsBytes) {
    std::istringstream cStream(kIQBytes + "rest");
    IQFrame cFrame = emptyIQ();
    EXPECT_EQ(cFrame.readFrom(cStream), 2u);
    EXPECT_EQ(cFrame.timestamp(), 0x1122334455667788u);
    EXPECT_EQ(cFrame.sequence(), 0x01020304u);
    uint32_t uCount = 0;
    const Complex<float>* pSamples = cFrame.getSamples(uCount);
    ASSERT_EQ(uCount, 2u);
    EXPECT_EQ(pSamples[0], (Complex<float>{1.0f, -2.0f}));
    EXPECT_EQ(pSamples[1], (Complex<float>{0.5f, 4.0f}));
    EXPECT_EQ(cStream.tellg(), std::streamoff(kIQBytes.size()));
}

TEST(FrameStorage, IOnlyFrameReadsItsBytes) {
    std::istringstream cStream(kIOnlyBytes);
    IOnlyFrame cFrame = emptyIOnly();
    EXPECT_EQ(cFrame.readFrom(cStream), 2u);
    EXPECT_EQ(cFrame.getArray()->getData()[1], -2.0f);
    EXPECT_EQ(cFrame.timestamp(), 8u);
}

TEST(FrameStorage, spectrumFrameReadsItsBytes) {
    std::istringstream cStream(kSpectrumBytes);
    SpectrumFrame cFrame = emptySpectrum();
    EXPECT_EQ(cFrame.readFrom(cStream), 2u);
    EXPECT_EQ(cFrame.duration(), 0x8000000000000201u);
    EXPECT_EQ(cFrame.sequence(), 0x01020304u);
    uint32_t uCount = 0;
    EXPECT_EQ(cFrame.getSpectrum(uCount)[1], 4.0f);
}

TEST(FrameStorage, basebandFrameReadsItsBytesInPlaceOfItsChannels) {
    std::istringstream cStream(kBasebandBytes);
    BasebandFrame cFrame(emptyBaseband(), 5);
    cFrame.getChannel(6);
    EXPECT_EQ(cFrame.readFrom(cStream), 2u);
    EXPECT_EQ(cFrame.channelCount(), 2u);
    EXPECT_EQ(cFrame.samplesPerChannel(), 2u);
    EXPECT_EQ(cFrame.getChannel(1)->getData()[0], 0.5f);
}

TEST(FrameStorage, anotherKindsMarkerLeavesTheStreamWhereItWas) {
    const std::string kPadding = "abc";
    for (const std::string* pBytes : {&kIQBytes, &kIOnlyBytes, &kSpectrumBytes, &kBasebandBytes}) {
        std::istringstream cStream(kPadding + *pBytes);
        cStream.seekg(3);
        IQFrame cIQ = emptyIQ();
        IOnlyFrame cIOnly = emptyIOnly();
        SpectrumFrame cSpectrum = emptySpectrum();
        BasebandFrame cBaseband = emptyBaseband();
        for (Frame* pFrame : {static_cast<Frame*>(&cIQ), static_cast<Frame*>(&cIOnly),
                              static_cast<Frame*>(&cSpectrum), static_cast<Frame*>(&cBaseband)}) {
            const uint64_t uRead = pFrame->readFrom(cStream);
            if (uRead == 0) {
                EXPECT_EQ(cStream.tellg(), std::streamoff(3)) << pFrame->getTypeName();
            }
            cStream.seekg(3);
        }
    }
}

TEST(FrameStorage, endOfTheStreamClearsTheErrorStateExceptForIOnlyFrames) {
    std::istringstream cStream("ab");
    EXPECT_EQ(emptyIQ().readFrom(cStream), 0u);
    EXPECT_TRUE(cStream.good());
    EXPECT_EQ(cStream.tellg(), std::streamoff(0));
    EXPECT_EQ(emptySpectrum().readFrom(cStream), 0u);
    EXPECT_TRUE(cStream.good());
    EXPECT_EQ(emptyBaseband().readFrom(cStream), 0u);
    EXPECT_TRUE(cStream.good());
    EXPECT_EQ(emptyIOnly().readFrom(cStream), 0u);
    EXPECT_TRUE(cStream.fail());
}

/// Cut at each byte: nothing is read, nothing changes, and the stream is back at the frame.
template <typename T>
void expectCutIsRefused(T (*make)(), const std::string& bytes) {
    for (size_t uLength = 0; uLength < bytes.size(); ++uLength) {
        std::istringstream cStream(bytes.substr(0, uLength));
        T cFrame = make();
        EXPECT_EQ(cFrame.readFrom(cStream), 0u) << uLength;
        EXPECT_EQ(cFrame.timestamp(), 8u) << uLength;
        EXPECT_EQ(cFrame.getDataBytes(), 0u) << uLength;
        cStream.clear();
        EXPECT_EQ(cFrame.getTypeName() == "I" ? 0 : std::streamoff(cStream.tellg()), std::streamoff(0))
            << uLength;
    }
}

TEST(FrameStorage, frameThatTheStreamsEndCutsOffIsNotRead) {
    expectCutIsRefused(emptyIQ, kIQBytes);
    expectCutIsRefused(emptyIOnly, kIOnlyBytes);
    expectCutIsRefused(emptySpectrum, kSpectrumBytes);
    expectCutIsRefused(emptyBaseband, kBasebandBytes);
}

TEST(FrameStorage, countsBeyondTheStreamsEndTakeNoMemory) {
    const std::string kMany = "\xFF\xFF\xFF\xFF"s;
    IQFrame cIQ = emptyIQ();
    std::istringstream cFirst("\xE6\xA2\xF7\x12"s + kTimestamp + kSequence + kMany + kOne);
    EXPECT_EQ(cIQ.readFrom(cFirst), 0u);
    IOnlyFrame cIOnly = emptyIOnly();
    std::istringstream cSecond("\x7A\x2F\x71\x10"s + kMany + kOne);
    EXPECT_EQ(cIOnly.readFrom(cSecond), 0u);
    BasebandFrame cBaseband = emptyBaseband();
    std::istringstream cThird("\x4D\xBA\x5E\xBA"s + kMany + kMany + kOne);
    EXPECT_EQ(cBaseband.readFrom(cThird), 0u);
    std::istringstream cFourth("\x4D\xBA\x5E\xBA\x00\x00\x00\x00"s + kMany);
    EXPECT_EQ(cBaseband.readFrom(cFourth), 0u);
    std::istringstream cFifth("\x4D\xBA\x5E\xBA\x01\x00\x00\x00"s + kMany + kOne + kOne);
    EXPECT_EQ(cBaseband.readFrom(cFifth), 0u);
    EXPECT_EQ(cBaseband.channelCount(), 0u);
}

TEST(FrameStorage, largeFrameSurvivesTheTripWhole) {
    constexpr uint32_t kCount = 1000003;
    ReferencePtr<FloatArray> cArray(new FloatArray(kCount));
    for (uint32_t i = 0; i < kCount; ++i)
        cArray->getData()[i] = static_cast<float>(i);
    const IOnlyFrame cWritten(1, 0, 2, kNanoseconds, 0, 0, 1e6f, 0, {}, cArray, "");
    std::stringstream cStream;
    EXPECT_EQ(cWritten.writeTo(cStream), uint64_t{kCount} * 4 + 8);
    IOnlyFrame cRead = emptyIOnly();
    EXPECT_EQ(cRead.readFrom(cStream), kCount);
    ASSERT_EQ(cRead.getArray()->getActive(), kCount);
    for (uint32_t i = 0; i < kCount; ++i)
        ASSERT_EQ(cRead.getArray()->getData()[i], static_cast<float>(i));
}

}  // namespace
