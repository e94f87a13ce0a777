#include "receivers/sweepplan.h"

#include <gmock/gmock.h>

#include "support/logs.h"

using testing::ElementsAre;
using vnktest::LogLine;
using vnktest::takeLog;

namespace {

utils::VariantRecord asked() {
    utils::VariantRecord cRecord;
    cRecord.set("FMinHz", 1e6f);
    cRecord.set("FMaxHz", 2e6f);
    cRecord.set("RBWHz", 1e3f);
    return cRecord;
}

template <typename T>
SweepRequest with(const char* pKey, T value) {
    utils::VariantRecord cRecord = asked();
    cRecord.set(pKey, value);
    return readSweepRequest(cRecord).value();
}

}  // namespace

TEST(SweepRequestReading, ARangeAndAResolutionAreNeeded) {
    for (const char* pMissing : {"FMinHz", "FMaxHz", "RBWHz"}) {
        utils::VariantRecord cRecord = asked();
        cRecord.erase(pMissing);
        takeLog(true);
        EXPECT_FALSE(readSweepRequest(cRecord)) << pMissing;
        EXPECT_THAT(takeLog(true), ElementsAre(LogLine{-6025, "FCentreHz not specified"}));
    }
    utils::VariantRecord cText = asked();
    cText.set("RBWHz", "1000");
    EXPECT_FALSE(readSweepRequest(cText));
}

TEST(SweepRequestReading, WhatIsAbsentHasItsDefault) {
    const SweepRequest cRequest = readSweepRequest(asked()).value();
    EXPECT_EQ(cRequest.mfMinHz, 1e6f);
    EXPECT_EQ(cRequest.mfMaxHz, 2e6f);
    EXPECT_EQ(cRequest.mfRBWHz, 1e3f);
    EXPECT_EQ(cRequest.mcWindowName, "nuttall");
    EXPECT_EQ(cRequest.mfRefdBm, -50.0f);
    EXPECT_EQ(cRequest.mfUserCaldB, 0.0f);
    EXPECT_FALSE(cRequest.mbFlatten);
    EXPECT_FALSE(cRequest.mbFlowControl);
    EXPECT_EQ(cRequest.muCaptureFrames, 0u);
}

TEST(SweepRequestReading, WhatIsThereIsTaken) {
    EXPECT_EQ(with("WindowFn", "hann").mcWindowName, "hann");
    EXPECT_EQ(with("RefdBm", -10.5f).mfRefdBm, -10.5f);
    EXPECT_EQ(with("UserCaldB", 3).mfUserCaldB, 3.0f);
    EXPECT_TRUE(with("flatten", true).mbFlatten);
    EXPECT_TRUE(with("flowControl", true).mbFlowControl);
    EXPECT_EQ(with("captureFrames", uint32_t{7}).muCaptureFrames, 7u);
    EXPECT_EQ(with("FMinHz", 1500000).mfMinHz, 1.5e6f);
}

TEST(SweepRequestReading, AnotherKindOrANegativeCountIsAsGoodAsAbsent) {
    EXPECT_EQ(with("WindowFn", 5).mcWindowName, "nuttall");
    EXPECT_FALSE(with("flatten", 1).mbFlatten);
    EXPECT_FALSE(with("flowControl", "true").mbFlowControl);
    EXPECT_EQ(with("captureFrames", -3).muCaptureFrames, 0u);
}
