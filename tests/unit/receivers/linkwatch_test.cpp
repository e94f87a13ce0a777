#include "receivers/linkwatch.h"

#include <gtest/gtest.h>

#include "foundations/clock.h"
#include "receivers/receiverdevice.h"

namespace {

void silentFor(LinkWatch& cWatch, uint64_t uMs) {
    cWatch.setLastActivityMs(utils::steadyMilliseconds() - uMs);
}

/// A receiver of which only the link can be tested.
class Probed final : public ReceiverDevice {
 public:
    Probed() : ReceiverDevice("TCP/IP", "nowhere", "Probed") {}
    ~Probed() override { releaseSinks(); }
    utils::VariantRecord getParameterInfo() override { return {}; }
    utils::VariantRecord getParameters() override { return {}; }
    void setParameters(utils::VariantRecord&, ErrorList&) override {}
    bool sendRawCommand(const std::string&) override { return false; }
    bool queryRaw(const std::string&, std::string&) override { return false; }
    bool testLink() override {
        ++miTests;
        return mbAnswers;
    }
    FloatRange centreRange() const override { return {1, 2}; }
    FloatRange sweepRange() const override { return {3, 4}; }
    FloatRange rbwRange() const override { return {5, 6}; }
    FloatRange ifbwRange() const override { return {7, 8}; }
    FloatRange referenceLevelRange() const override { return {9, 10}; }
    LinkWatch& watch() { return *mcLinkWatch; }
    int miTests = 0;
    bool mbAnswers = false;
};

class LinkCheck : public testing::Test {
 protected:
    LinkCheck() : mcDevice(makeReference<Probed>()) {}
    ~LinkCheck() override { Device::forget(mcDevice.get()); }
    ReferencePtr<Probed> mcDevice;
};

}  // namespace

TEST(LinkWatch, ATestIsDueAfterFiveSecondsOfSilence) {
    LinkWatch cWatch;
    cWatch.stamp();
    EXPECT_FALSE(cWatch.isTestDue());
    silentFor(cWatch, 4500);
    EXPECT_FALSE(cWatch.isTestDue());
    silentFor(cWatch, 5001);
    EXPECT_TRUE(cWatch.isTestDue());
}

TEST(LinkWatch, ALinkIsStaleAfterTenSecondsOfSilence) {
    LinkWatch cWatch;
    cWatch.stamp();
    EXPECT_FALSE(cWatch.isStale());
    silentFor(cWatch, 9500);
    EXPECT_FALSE(cWatch.isStale());
    silentFor(cWatch, 10001);
    EXPECT_TRUE(cWatch.isStale());
    cWatch.stamp();
    EXPECT_FALSE(cWatch.isStale());
}

TEST(LinkWatch, AStampFromTheFutureIsNotSilence) {
    LinkWatch cWatch;
    cWatch.setLastActivityMs(utils::steadyMilliseconds() + 60000);
    EXPECT_FALSE(cWatch.isStale());
    EXPECT_FALSE(cWatch.isTestDue());
}

TEST(LinkWatch, AfterFiveTestsNoneIsDueUntilTheUnitIsHeard) {
    LinkWatch cWatch;
    silentFor(cWatch, 6000);
    for (int i = 0; i < 5; ++i) {
        EXPECT_TRUE(cWatch.isTestDue());
        cWatch.countProbe();
    }
    EXPECT_FALSE(cWatch.isTestDue());
    cWatch.stamp();
    EXPECT_EQ(cWatch.probeCount(), 0u);
    silentFor(cWatch, 6000);
    EXPECT_TRUE(cWatch.isTestDue());
}

TEST_F(LinkCheck, ALinkThatWasHeardOfLateIsLeftInPeace) {
    mcDevice->resetLinkWatch();
    mcDevice->checkLink();
    EXPECT_EQ(mcDevice->miTests, 0);
}

TEST_F(LinkCheck, AnAnswerStampsTheWatch) {
    silentFor(mcDevice->watch(), 6000);
    mcDevice->mbAnswers = true;
    mcDevice->checkLink();
    EXPECT_EQ(mcDevice->miTests, 1);
    EXPECT_EQ(mcDevice->watch().probeCount(), 0u);
    mcDevice->checkLink();
    EXPECT_EQ(mcDevice->miTests, 1);
}

TEST_F(LinkCheck, ASilentUnitIsTestedFiveTimesAndGoesStale) {
    silentFor(mcDevice->watch(), 10001);
    for (int i = 0; i < 20; ++i)
        mcDevice->checkLink();
    EXPECT_EQ(mcDevice->miTests, 5);
    EXPECT_TRUE(mcDevice->isLinkStale());
    mcDevice->resetLinkWatch();
    EXPECT_FALSE(mcDevice->isLinkStale());
}

TEST_F(LinkCheck, TheRangesOfAStreamComeFromTheReceiver) {
    const StreamRanges cRanges = mcDevice->streamRanges();
    EXPECT_EQ(cRanges.mcCentreHz.mfMinimum, 1.0f);
    EXPECT_EQ(cRanges.mcSweepHz.mfMaximum, 4.0f);
    EXPECT_EQ(cRanges.mcRBWHz.mfMinimum, 5.0f);
    EXPECT_EQ(cRanges.mcIFBWHz.mfMaximum, 8.0f);
    EXPECT_EQ(cRanges.mcReferenceLevel.mfMinimum, 9.0f);
}
