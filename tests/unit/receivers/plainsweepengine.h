#pragma once

#include <gmock/gmock.h>

#include <functional>
#include <string>

#include "flows/spectrumframe.h"
#include "foundations/clock.h"
#include "receivers/sweepengine.h"
#include "support/fakescpi.h"
#include "support/logs.h"

namespace vnktest {

inline constexpr StreamRanges kSweepRanges{
    {9000.0f, 8e9f}, {9000.0f, 8e9f}, {1.0f, 1e7f}, {1e5f, 4e7f}, {-80.0f, 20.0f}};
inline constexpr SweepEngineWords kSweepWords = {"bad setup", "invalid data", "no data", "wrong size",
                                                 "valid"};

/// Blocks of four samples at 1000 Hz, 1010 Hz and so on. Each gives two bins, the last one a single bin; the
/// first bin is the block's first sample, the second its reference level.
class PlainSweep final : public SweepConfiguration {
 public:
    static constexpr uint64_t kFirstHz = 1000;
    static constexpr uint64_t kStepHz = 10;
    static constexpr uint32_t kSamples = 4;
    static constexpr float kUnusable = -1000.0f;  // of a block that cannot be transformed

    PlainSweep(const SweepRequest& cRequest, uint32_t uSteps, uint32_t uPackets) {
        mcRequest = cRequest;
        muSampleRateHz = 1000;
        mcPlan.muSamplesPerPacket = kSamples / uPackets;
        mcPlan.muPacketsPerBlock = uPackets;
        mcPlan.muFFTSize = kSamples;
        mcPlan.mfActualRBW = 100.0f;
        mcPlan.mfFStart = 1e6f;
        mcPlan.mfFStop = 2e6f;
        mcPlan.muStepCount = uSteps;
        mcPlan.muTotalExpectedBlocks = uSteps;
        mcPlan.muTotalBins = 2 * uSteps - 1;
        mcPlan.muCentreFirst = kFirstHz;
        mcPlan.muCentreStep = kStepHz;
        mcPlan.muCentreLast = kFirstHz + (uSteps - 1) * kStepHz;
    }
    std::optional<uint32_t> placeOf(uint64_t uFrequencyHz) const override {
        if (uFrequencyHz < kFirstHz)
            return {};
        const uint64_t uPlace = (uFrequencyHz - kFirstHz) / kStepHz;
        VNK_ASSERT(uPlace < mcPlan.muTotalExpectedBlocks);
        return static_cast<uint32_t>(uPlace);
    }
    uint32_t binsAt(uint32_t uPlace) const override {
        return uPlace + 1 == mcPlan.muTotalExpectedBlocks ? 1 : 2;
    }
    bool reconstruct(const SweepBlock& cBlock, uint32_t uPlace, float fUserCaldB, float* pOutput) override {
        if (cBlock.mcSamples->getData()[0] == kUnusable)
            return false;
        pOutput[0] = cBlock.mcSamples->getData()[0] + fUserCaldB;
        if (binsAt(uPlace) > 1)
            pOutput[1] = cBlock.mfReferenceLevel;
        return true;
    }
};

/// The smallest family: lists are "LIST 0" and "LIST 1".
class PlainSweepEngine final : public SweepCaptureEngine {
 public:
    PlainSweepEngine(ReferencePtr<EngineContext> cContext, ReferencePtr<SpectrumFrameSink> cStream,
                     const SweepEngineWords& cWords = kSweepWords)
        : SweepCaptureEngine("PlainSweepEngine", std::move(cContext), std::move(cStream), kSweepRanges, cWords) {}
    ~PlainSweepEngine() override { releaseSinks(); }
    using SweepCaptureEngine::gatherer;
    using SweepCaptureEngine::isDataValid;
    using SweepCaptureEngine::noteIdentifier;
    using SweepCaptureEngine::takeSamples;

    uint32_t muSteps = 3;
    uint32_t muPackets = 1;
    bool mbDirect = false;   // the only block is one without tuning
    std::atomic<uint32_t> muDrains{0};
    /// Called while a sweep is planned.
    std::function<void(const SweepRequest&)> mcOnConfigure;
    std::vector<SweepRequest> mlRequests;

 protected:
    ReferencePtr<SweepConfiguration> configure(const SweepRequest& cRequest, std::string& message) override {
        mlRequests.push_back(cRequest);
        if (mcOnConfigure)
            mcOnConfigure(cRequest);
        message = "not this one";
        if (muSteps == 0)
            return nullptr;
        const auto cSweep = makeReference<PlainSweep>(cRequest, muSteps, muPackets);
        if (mbDirect)
            cSweep->mcPlan.muStepCount = 0;
        return cSweep;
    }
    void sendList(const SweepConfiguration&, bool bEndless) override {
        channel().sendBatch(bEndless ? "LIST 0" : "LIST 1");
    }
    void drainInput() override { ++muDrains; }
};

class SweepEngineFixture : public testing::Test {
 protected:
    SweepEngineFixture() {
        mcChannel->setProtocol(mcSCPI);
        mcSCPI->reply(":SWEEP:LIST:STATUS?", "STOPPED");
        make();
        mcSCPI->mcOnSend = [this](const std::string& text) {
            if (mbUnitAnswers && text.rfind("SWEEP:LIST:START ", 0) == 0)
                mcEngine->noteIdentifier(static_cast<uint32_t>(std::stoul(text.substr(17))));
        };
    }
    ~SweepEngineFixture() override { mcSCPI->mcOnSend = nullptr; }

    /// A fresh stream, and its engine.
    void make(const SweepEngineWords& cWords = kSweepWords) {
        mcStream = makeReference<SpectrumFrameSink>();
        set("FMaxHz", 2e6f);
        set("FMinHz", 1e6f);
        set("RBWHz", 100.0f);
        set("WindowFn", std::string("nuttall"));
        mcEngine = makeReference<PlainSweepEngine>(mcContext, mcStream, cWords);
        mcEngine->takeInStream();
        takeLog(true);
    }
    template <typename T>
    void set(const char* pKey, T value) {
        utils::VariantRecord cRecord;
        cRecord.set(pKey, value);
        ErrorList lErrors;
        ASSERT_TRUE(mcStream->setSinkParameters(cRecord, lErrors, false));
    }
    void startAndForget(bool bContinuous = true) {
        ASSERT_TRUE(mcEngine->start(bContinuous));
        mcSCPI->take();
        takeLog(true);
    }
    /// A packet of this place's frequency.
    void packet(uint32_t uPlace, float fValue, uint64_t uTimeNs = 0) {
        mcEngine->gatherer().setFrequency(PlainSweep::kFirstHz + uPlace * PlainSweep::kStepHz);
        samples(PlainSweep::kSamples / mcEngine->muPackets, fValue, uTimeNs);
    }
    void samples(uint32_t uCount, float fValue, uint64_t uTimeNs = 0) {
        const auto cSamples = makeReference<FloatArray>(uCount);
        std::fill_n(cSamples->getData(), uCount, fValue);
        mcEngine->takeSamples({cSamples, uTimeNs, 0, false, mcEngine->gatherer().epoch()});
    }
    /// All blocks of a sweep, with values from the one given on.
    void sweep(float fValue) {
        for (uint32_t i = 0; i < mcEngine->muSteps; ++i)
            packet(i, fValue + static_cast<float>(i));
    }
    ReferencePtr<SpectrumFrame> next() {
        return dynamicReferenceCast<SpectrumFrame>(mcStream->nextFrame(0, false));
    }
    /// The bins of the next frame; empty without one.
    std::vector<float> nextBins() {
        const ReferencePtr<SpectrumFrame> cFrame = next();
        if (!cFrame)
            return {};
        uint32_t uCount = 0;
        const float* pBins = cFrame->getSpectrum(uCount);
        return {pBins, pBins + uCount};
    }
    /// What has been sent for a new start: the list, if any, and its start.
    std::vector<std::string> startCommands(bool bContinuous) {
        mcSCPI->take();
        EXPECT_TRUE(mcEngine->start(bContinuous));
        return mcSCPI->take();
    }

    bool mbUnitAnswers = true;
    ReferencePtr<FakeSCPI> mcSCPI = makeReference<FakeSCPI>();
    ReferencePtr<CommandChannel> mcChannel =
        makeReference<CommandChannel>(makeReference<LinkWatch>(), CommandWords{"no access"});
    ReferencePtr<EngineContext> mcContext = makeReference<EngineContext>(mcChannel, "unit one");
    ReferencePtr<SpectrumFrameSink> mcStream;
    ReferencePtr<PlainSweepEngine> mcEngine;
};

}  // namespace vnktest
