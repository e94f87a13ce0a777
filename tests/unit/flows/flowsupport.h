#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <list>
#include <string>
#include <vector>

#include "flows/framesource.h"
#include "flows/iqframe.h"
#include "foundations/runtimeerrors.h"
#include "foundations/usererrors.h"

namespace vnktest {

/// An IQ frame of constant samples at 1000 samples per second, so that its duration is its count in ms.
inline ReferencePtr<IQFrame> iqFrame(uint32_t uSequence, uint32_t uCount = 10,
                                     Complex<float> cValue = {0.6f, 0.8f}, float fRate = 1000.0f) {
    auto cSamples = makeReference<ComplexArray>(uCount);
    for (uint32_t i = 0; i < uCount; ++i)
        cSamples->getData()[i] = cValue;
    return makeReference<IQFrame>(uSequence, uint64_t{0}, uint64_t{0}, uint32_t{kNanoseconds}, 1.0e6f, 1.0e5f,
                                  fRate, -30.0f, cSamples, std::string(kUnitsSqrtMilliwatt));
}

inline ReferencePtr<IQFrame> keptFrame(uint32_t uSequence) {
    auto cFrame = iqFrame(uSequence);
    cFrame->setDiscardable(false);
    return cFrame;
}

/// A source that is a counted object, as all of the library are.
class CountedSource : public utils::ReferenceCountedObject, public FrameSource {
 public:
    CountedSource() : FrameSource("CountedSource") {}
    ~CountedSource() override { releaseSinks(); }
    utils::ReferenceCountedObject* countedSelf() override { return this; }
    bool canImplement(ReferencePtr<FrameSink>, utils::VariantRecord& cRecord, ErrorList& lErrors) override {
        mcOffered = cRecord;
        if (!mbWilling)
            lErrors.push_back("not this one");
        return mbWilling;
    }
    bool parametersChanged(ReferencePtr<FrameSink> cSink) override {
        mpChanged = cSink.get();
        ++muChanges;
        return true;
    }
    void kick() override { ++muKicks; }
    bool isExhausted() override { return mbExhausted; }

    utils::VariantRecord mcOffered;
    std::atomic<bool> mbWilling{true};
    std::atomic<bool> mbExhausted{false};
    std::atomic<uint32_t> muKicks{0};
    std::atomic<uint32_t> muChanges{0};
    std::atomic<FrameSink*> mpChanged{nullptr};
};

inline utils::VariantRecord record(const char* pText) {
    return utils::VariantRecord(pText);
}

/// The messages of the log with one code, oldest first. Drains the log.
inline std::vector<std::string> logged(int32_t iCode) {
    std::vector<std::string> lTexts;
    for (const auto& cError : utils::RuntimeErrors::instance().takeErrors())
        if (cError.code() == iCode)
            lTexts.insert(lTexts.begin(), cError.message());
    return lTexts;
}

/// The statuses of the calling thread, oldest first. Drains its queue.
inline std::vector<int32_t> statuses() {
    std::vector<int32_t> lStatuses;
    while (const int32_t iStatus = utils::UserErrors::instance().nextStatus())
        lStatuses.push_back(iStatus);
    return lStatuses;
}

/// Starts each test with an empty log and no statuses.
class FlowTest : public ::testing::Test {
 protected:
    void SetUp() override {
        utils::RuntimeErrors::instance().clear();
        statuses();
        utils::UserErrors::instance().takeDetail();
    }
    /// The detail without its age.
    static std::string detail() {
        const std::string text = utils::UserErrors::instance().takeDetail();
        const size_t uColon = text.find(": ");
        return uColon == std::string::npos ? text : text.substr(uColon + 2);
    }
    ErrorList mlErrors;
};

/// The sequences of all frames in a sink's queue.
inline std::vector<uint32_t> drain(FrameSink& cSink) {
    std::vector<uint32_t> lSequences;
    for (ReferencePtr<Frame> cFrame; (cFrame = cSink.nextFrame(0, false)).get();)
        lSequences.push_back(cFrame->sequence());
    return lSequences;
}

}  // namespace vnktest
