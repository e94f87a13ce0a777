#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

#include "api/text.h"
#include "recordings/pair.h"

namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfinity = std::numeric_limits<float>::infinity();

/// The status of a creation; a stream that was made is closed again.
int32_t create(float fMin, float fMax, float fRBW, const char* pWindow, float fRefdBm) {
    uint32_t uHandle = 77;
    const int32_t iStatus = vnkCreateSpectrumStream(&uHandle, fMin, fMax, fRBW, pWindow, fRefdBm);
    if (iStatus != 0)
        EXPECT_EQ(uHandle, 77u) << "a stream that was refused has no handle";
    else
        EXPECT_EQ(vnkClose(&uHandle), 0);
    return iStatus;
}

std::string log() {
    return Text::take(vnkGetVerboseInternalErrorState(1000));
}

void forgetStatuses() {
    while (vnkGetNextStatus() != 0) {
    }
}

class SpectrumStream {
 public:
    SpectrumStream() { EXPECT_EQ(vnkCreateSpectrumStream(&muHandle, 1e6f, 2e6f, 1e3f, "hann", -30.0f), 0); }
    ~SpectrumStream() { vnkClose(&muHandle); }
    SpectrumStream(const SpectrumStream&) = delete;
    SpectrumStream& operator=(const SpectrumStream&) = delete;
    operator uint32_t() const { return muHandle; }
    std::string parameters() const {
        Text cText;
        EXPECT_EQ(vnkGetParameters(muHandle, cText.address()), 0);
        return cText.str();
    }
    int32_t set(const std::string& parameters) const {
        Text cText(parameters);
        const int32_t iStatus = vnkSetParameters(muHandle, cText.address());
        EXPECT_TRUE(cText.isNull());
        return iStatus;
    }

 private:
    uint32_t muHandle = VNK_INVALID_HANDLE;
};

}  // namespace

TEST(CreateSpectrumStream, TellsTheFirstOfSeveralFaults) {
    EXPECT_EQ(vnkCreateSpectrumStream(nullptr, 2.0f, 1.0f, -1.0f, "none", 100.0f), -4);
    EXPECT_EQ(create(2.0f, 1.0f, -1.0f, "none", 100.0f), -46);
    EXPECT_EQ(create(1.0f, 1.0f, -1.0f, "none", 100.0f), -47);
    EXPECT_EQ(create(1.0f, 1.0f, 0.0f, "none", 100.0f), -48);
    EXPECT_EQ(create(1.0f, 1.0f, 0.0f, "none", 0.0f), -49);
    EXPECT_EQ(create(1.0f, 1.0f, 0.0f, "hann", 0.0f), 0);
}

TEST(CreateSpectrumStream, TakesTheEdgesOfItsRanges) {
    EXPECT_EQ(create(1e6f, 1e6f, 0.0f, nullptr, 20.0f), 0);
    EXPECT_EQ(create(0.0f, 0.0f, 0.0f, nullptr, -100.0f), 0);
    EXPECT_EQ(create(1e6f, 2e6f, 1e3f, nullptr, 20.1f), -48);
    EXPECT_EQ(create(1e6f, 2e6f, 1e3f, nullptr, std::nextafter(20.0f, 21.0f)), -48);
    EXPECT_EQ(create(1e6f, 2e6f, 1e3f, nullptr, std::nextafter(-100.0f, -101.0f)), -48);
    EXPECT_EQ(create(1e6f, 2e6f, -0.0f, nullptr, 0.0f), 0);
    EXPECT_EQ(create(1e6f, 2e6f, -std::numeric_limits<float>::denorm_min(), nullptr, 0.0f), -47);
    EXPECT_EQ(create(1e6f, std::nextafter(1e6f, 0.0f), 1e3f, nullptr, 0.0f), -46);
    EXPECT_EQ(create(kInfinity, 1e6f, 1e3f, nullptr, 0.0f), -46);
    EXPECT_EQ(create(1e6f, 2e6f, -kInfinity, nullptr, 0.0f), -47);
    EXPECT_EQ(create(1e6f, 2e6f, 1e3f, nullptr, kInfinity), -48);
}

TEST(CreateSpectrumStream, KnowsTheWindows) {
    for (const char* pName : {"rectangular", "gaussian", "hann", "hamming", "cosine", "lanczos", "bartlett",
                              "bartletthann", "nuttall", "blackmanharris", "blackmannuttall", "flattop"})
        EXPECT_EQ(create(1e6f, 2e6f, 1e3f, pName, 0.0f), 0) << pName;
    for (const char* pName : {"", "none", "hann ", "\"hann\""})
        EXPECT_EQ(create(1e6f, 2e6f, 1e3f, pName, 0.0f), -49) << pName;
    forgetStatuses();
}

TEST(CreateSpectrumStream, LogsTheReasonsOfARefusalInOneLine) {
    forgetStatuses();
    log();
    EXPECT_EQ(create(-3e6f, -1e6f, 1e3f, "tall", 0.0f), -49);
    const std::string text = log();
    EXPECT_NE(text.find("FMinHz of -3.0000e+06 is invalid, FMaxHz of -1.0000e+06 is invalid, "
                        "RBWHz of 1.0000e+03 is invalid, WindowFn of <tall> is not a known type"
                        "(libvnk code -7000)"),
              std::string::npos)
        << text;
    for (const int32_t iStatus : {-59, -60, -61, -85, 0})
        EXPECT_EQ(vnkGetNextStatus(), iStatus);
}

TEST(CreateSpectrumStream, WhatIsNoNumberPassesTheComparisonsAndIsNeverTakenAsAnEdge) {
    // No comparison holds for it, so that none of the first three checks refuses it. As an edge it names no
    // range of frequencies.
    forgetStatuses();
    EXPECT_EQ(create(1e6f, 2e6f, kNaN, nullptr, kNaN), 0);
    EXPECT_EQ(create(kNaN, 2e6f, 1e3f, nullptr, 0.0f), -49);
    EXPECT_EQ(create(1e6f, kNaN, 1e3f, nullptr, 0.0f), -49);
    forgetStatuses();
}

TEST(SpectrumStreams, TellTheirParametersAndWhatTheyMean) {
    const SpectrumStream cStream;
    recordings::Record cExpected;
    cExpected.number("FMinHz", 1e6f).number("FMaxHz", 2e6f).number("RBWHz", 1e3f).number("RefdBm", -30.0f);
    cExpected.number("UserCaldB", 0.0f).text("WindowFn", "hann").whole("captureFrames", 0);
    cExpected.number("bufferSec", 0.0f).whole("bufferFrames", 10).number("bufferDiscard", 0.0f);
    cExpected.literal("flowControl", "false");
    EXPECT_EQ(cStream.parameters(), cExpected.pretty());
    Text cSchema;
    ASSERT_EQ(vnkGetParameterInfo(cStream, cSchema.address()), 0);
    EXPECT_NE(cSchema.str().find("\"FMinHz\":\"<Minimum sweep extent requested Hz>\""), std::string::npos);
    EXPECT_NE(cSchema.str().find("\"filename\":"), std::string::npos) << cSchema.str();
    EXPECT_NE(cSchema.str().find("Full path to associated file - if in use"), std::string::npos);
    EXPECT_EQ(cSchema.str().find("LoopingFlag"), std::string::npos) << "only while a file plays";
}

TEST(SpectrumStreams, TakeAChangeAndRefuseABadOneAsAWhole) {
    const SpectrumStream cStream;
    EXPECT_EQ(cStream.set("{\"FMinHz\":1500000.0,\"WindowFn\":\"flattop\",\"captureFrames\":7}"), 0);
    const std::string changed = cStream.parameters();
    EXPECT_NE(changed.find("\"FMinHz\":1500000.000000"), std::string::npos);
    EXPECT_NE(changed.find("\"WindowFn\":\"flattop\""), std::string::npos);
    EXPECT_NE(changed.find("\"captureFrames\":7"), std::string::npos);
    forgetStatuses();
    EXPECT_EQ(cStream.set("{\"FMinHz\":1600000.0,\"FMaxHz\":1400000.0}"), -34);
    EXPECT_EQ(vnkGetNextStatus(), -53);
    EXPECT_EQ(cStream.set("{\"FMinHz\":1600000.0,\"noSuchKey\":1}"), -34);
    EXPECT_EQ(vnkGetNextStatus(), -33);
    EXPECT_NE(Text::take(vnkGetDetailedStatus()).find("noSuchKey"), std::string::npos);
    EXPECT_EQ(cStream.parameters().find("1600000"), std::string::npos) << "all keys or none";
    forgetStatuses();
}

TEST(SpectrumStreams, AreStreamsToEveryExportForStreams) {
    const SpectrumStream cStream;
    EXPECT_EQ(vnkIsAttached(cStream), 5);
    EXPECT_EQ(vnkDetachStream(cStream), -44);
    EXPECT_EQ(vnkFlushStream(cStream), 0);
    EXPECT_EQ(vnkAllowDiscarding(cStream, 1), 0);
    EXPECT_EQ(vnkAttachStreamToDevice(cStream, cStream), -8);
}

TEST(GetNext, TellsTheKindsApart) {
    const SpectrumStream cSpectra;
    uint32_t uIQ = 0, uUnknown = 0;
    ASSERT_EQ(vnkCreateIQStream(&uIQ, 1e6f, 1e5f, -30.0f), 0);
    ASSERT_EQ(vnkCreateIQStream(&uUnknown, 1e6f, 1e5f, -30.0f), 0);
    uint32_t uClosing = uUnknown;
    ASSERT_EQ(vnkClose(&uClosing), 0);
    vnkIQRecord* pIQ = nullptr;
    vnkSpectrumRecord* pSpectrum = nullptr;
    vnkBasebandRecord* pBaseband = nullptr;
    EXPECT_EQ(vnkGetNextSpectrum(cSpectra, &pSpectrum, 0), 3);
    EXPECT_EQ(vnkGetNextSpectrum(uIQ, &pSpectrum, 0), -25);
    EXPECT_EQ(vnkGetNextSpectrum(uUnknown, &pSpectrum, 0), -17);
    EXPECT_EQ(vnkGetNextIQ(cSpectra, &pIQ, 0), -19);
    EXPECT_EQ(vnkGetNextBaseband(uIQ, &pBaseband, 0), -78);
    EXPECT_EQ(vnkGetNextBaseband(cSpectra, &pBaseband, 0), -78);
    EXPECT_EQ(vnkGetNextBaseband(uUnknown, &pBaseband, 0), -17);
    EXPECT_EQ(pIQ, nullptr);
    EXPECT_EQ(pSpectrum, nullptr);
    EXPECT_EQ(pBaseband, nullptr);
    // An unknown handle and a wrong kind are told before the missing address.
    EXPECT_EQ(vnkGetNextSpectrum(uUnknown, nullptr, 0), -17);
    EXPECT_EQ(vnkGetNextSpectrum(uIQ, nullptr, 0), -25);
    EXPECT_EQ(vnkGetNextSpectrum(cSpectra, nullptr, 0), -4);
    vnkClose(&uIQ);
}

TEST(FreeSpectrum, TellsWhatThereIsNotToFree) {
    EXPECT_EQ(vnkFreeSpectrum(nullptr), -4);
    vnkSpectrumRecord* pRecord = nullptr;
    EXPECT_EQ(vnkFreeSpectrum(&pRecord), -20);
}

TEST(FreeSpectrum, ARecordOfTheCallersOwnMakingIsFreedWithItsArrays) {
    auto* pRecord = static_cast<vnkSpectrumRecord*>(std::calloc(1, sizeof(vnkSpectrumRecord)));
    pRecord->points = static_cast<float*>(std::calloc(8, sizeof(float)));
    pRecord->traces = static_cast<float**>(std::calloc(2, sizeof(float*)));
    pRecord->extras = strdup("{}");
    EXPECT_EQ(vnkFreeSpectrum(&pRecord), 0);
    EXPECT_EQ(pRecord, nullptr);
    EXPECT_EQ(vnkFreeSpectrum(&pRecord), -20);
}

TEST(FreeBaseband, TellsWhatThereIsNotToFreeAndFreesARecordOfTheCallersOwnMaking) {
    EXPECT_EQ(vnkFreeBaseband(nullptr), -4);
    auto* pRecord = static_cast<vnkBasebandRecord*>(std::calloc(1, sizeof(vnkBasebandRecord)));
    pRecord->channels = static_cast<float**>(std::calloc(2, sizeof(float*)));
    pRecord->extras = strdup("{}");
    EXPECT_EQ(vnkFreeBaseband(&pRecord), 0);
    EXPECT_EQ(pRecord, nullptr);
    EXPECT_EQ(vnkFreeBaseband(&pRecord), -20);
}

TEST(SpectrumStreams, WithoutTheInterfaceEveryExportGivesMinusTwo) {
    const InterfaceDown cDown;
    uint32_t uHandle = 77;
    vnkSpectrumRecord* pSpectrum = nullptr;
    vnkBasebandRecord* pBaseband = nullptr;
    EXPECT_EQ(vnkCreateSpectrumStream(nullptr, 2.0f, 1.0f, -1.0f, "none", 100.0f), -2);
    EXPECT_EQ(vnkCreateSpectrumStream(&uHandle, 1.0f, 2.0f, 1.0f, nullptr, 0.0f), -2);
    EXPECT_EQ(uHandle, 77u);
    EXPECT_EQ(vnkGetNextSpectrum(5, nullptr, 0), -2);
    EXPECT_EQ(vnkGetNextSpectrum(5, &pSpectrum, 0), -2);
    EXPECT_EQ(vnkGetNextBaseband(5, &pBaseband, 0), -2);
    EXPECT_EQ(vnkFreeSpectrum(nullptr), -2);
    EXPECT_EQ(vnkFreeSpectrum(&pSpectrum), -2);
    EXPECT_EQ(vnkFreeBaseband(nullptr), -2);
    EXPECT_EQ(vnkFreeBaseband(&pBaseband), -2);
}
