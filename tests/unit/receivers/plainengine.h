#pragma once

#include <gmock/gmock.h>

#include <optional>
#include <string>

#include "receivers/iqengine.h"
#include "support/fakescpi.h"
#include "support/logs.h"

namespace vnktest {

inline constexpr StreamRanges kRanges{
    {9000.0f, 8e9f}, {9000.0f, 8e9f}, {1.0f, 1e7f}, {1e5f, 4e7f}, {-80.0f, 20.0f}};
inline constexpr IQEngineWords kWords = {"bad setup", "stops at count", "forced", "completed"};

/// The smallest family: what a plan is, the test says.
class PlainEngine : public IQCaptureEngine {
 public:
    PlainEngine(ReferencePtr<EngineContext> cContext, ReferencePtr<IQFrameSink> cStream,
                const IQEngineWords& cWords = kWords)
        : IQCaptureEngine("PlainEngine", std::move(cContext), std::move(cStream), kRanges, cWords) {}
    ~PlainEngine() override { releaseSinks(); }
    using IQCaptureEngine::appendStatus;
    using IQCaptureEngine::capture;
    using IQCaptureEngine::noteData;
    using IQCaptureEngine::noteIdentifier;

    /// A packet of so many samples and such a peak level.
    void packet(uint64_t uSamples, float fLevel) {
        noteData();
        IQFrame cFrame(0, 0, 0, kNanoseconds, 0.0f, 0.0f, 1.0f, 0.0f, nullptr, "");
        capture()->noteLevel(cFrame, fLevel);
        capture()->muSamplesDelivered += uSamples;
    }

    bool mbCanPlan = true;
    bool mbFinite = false;
    uint64_t muSamples = 0;
    std::optional<float> mcMaxContiguousSec;
    std::string mcRefusal;
    uint32_t muDrains = 0;
    std::optional<IQRequest> mcRequest;

 protected:
    ReferencePtr<IQCapture> plan(const IQRequest& cRequest) override {
        mcRequest = cRequest;
        if (!mbCanPlan)
            return nullptr;
        const auto cCapture = makeReference<IQCapture>();
        cCapture->mcRequest = cRequest;
        cCapture->mcCommands = "SET UP";
        cCapture->mcRefusal = mcRefusal;
        cCapture->mbFinite = mbFinite;
        cCapture->muCaptureSamples = muSamples;
        cCapture->mfSampleRateHz = 31250000.0f;
        cCapture->mcMaxContiguousSec = mcMaxContiguousSec;
        cCapture->mbContiguous = mcMaxContiguousSec && cRequest.mfCaptureSec <= *mcMaxContiguousSec;
        cCapture->mfLevelLow = -20.0f;
        cCapture->mfLevelHigh = -10.0f;
        return cCapture;
    }
    void drainInput() override { ++muDrains; }
};

class IQEngineFixture : public testing::Test {
 protected:
    IQEngineFixture() {
        mcChannel->setProtocol(mcSCPI);
        set("FCentreHz", 1e8f);
        set("IFBWHz", 1e6f);
        mcEngine = makeReference<PlainEngine>(mcContext, mcStream);
        mcSCPI->mcOnSend = [this](const std::string& text) {
            if (mbUnitAnswers && text.find("STARt ") != std::string::npos)
                mcEngine->noteIdentifier(mcEngine->capture()->muIdentifier);
            if (mbUnitAnswers && text.find("START ") != std::string::npos)
                mcEngine->noteIdentifier(mcEngine->capture()->muIdentifier);
        };
        takeLog(true);
    }
    ~IQEngineFixture() override { mcSCPI->mcOnSend = nullptr; }
    template <typename T>
    void set(const char* pKey, T value) {
        utils::VariantRecord cRecord;
        cRecord.set(pKey, value);
        ErrorList lErrors;
        ASSERT_TRUE(mcStream->setSinkParameters(cRecord, lErrors, false));
    }
    std::optional<float> number(const char* pKey) { return mcStream->getParameters().getNumber(pKey); }
    void startAndForget() {
        ASSERT_TRUE(mcEngine->start());
        mcSCPI->take();
        takeLog(true);
    }

    bool mbUnitAnswers = true;
    ReferencePtr<FakeSCPI> mcSCPI = makeReference<FakeSCPI>();
    ReferencePtr<CommandChannel> mcChannel =
        makeReference<CommandChannel>(makeReference<LinkWatch>(), CommandWords{"no access"});
    ReferencePtr<EngineContext> mcContext = makeReference<EngineContext>(mcChannel, "unit one");
    ReferencePtr<IQFrameSink> mcStream = makeReference<IQFrameSink>();
    ReferencePtr<PlainEngine> mcEngine;
};

}  // namespace vnktest
