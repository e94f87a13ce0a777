#include "processors/basebandprocessor.h"

#include "flows/basebandframesink.h"
#include "foundations/text.h"
#include "processors/basebandresampler.h"

namespace {

constexpr float kLowestRateHz = 4000.0f;
constexpr float kHighestRateHz = 1.0e6f;
constexpr float kUsualRateHz = 44100.0f;
constexpr int32_t kBadSampleRate = -81;

}  // namespace

BasebandProcessor::BasebandProcessor(std::string name, std::string lockName)
    : Processor(std::move(name), OutputKind::kBaseband), mcProcessChange(std::move(lockName)) {}

BasebandProcessor::~BasebandProcessor() = default;

utils::VariantRecord BasebandProcessor::getParameterInfo() {
    utils::VariantRecord cSchema = Processor::getParameterInfo();
    addTextSchema(cSchema, "frames", "<count of frames processed>", true);
    addNumericSchema(cSchema, "OutputSampleRate",
                     "<desired output sample rate. Program to cause resampling.>", kLowestRateHz,
                     kHighestRateHz, kUsualRateHz, "Hz", false);
    return cSchema;
}

utils::VariantRecord BasebandProcessor::getParameters() {
    utils::VariantRecord cRecord = Processor::getParameters();
    cRecord.set("frames", muFramesProcessed.load());
    utils::ScopedLock cLock(mcProcessChange);
    if (mcResampler)
        cRecord.set("OutputSampleRate", mfOutputRateHz);
    return cRecord;
}

bool BasebandProcessor::setSinkParameters(utils::VariantRecord& cRecord, ErrorList& lErrors, bool bQuiet) {
    if (const auto fRate = cRecord.takeNumber("OutputSampleRate")) {
        if (*fRate >= kLowestRateHz && *fRate <= kHighestRateHz) {
            auto cResampler = makeReference<BasebandResampler>(*fRate);
            utils::ScopedLock cLock(mcProcessChange);
            mfOutputRateHz = *fRate;
            std::swap(mcResampler, cResampler);
        } else {
            addRefusal(
                lErrors, kBadSampleRate,
                utils::formatText("Output sample rate %.4e is out of range", static_cast<double>(*fRate)));
        }
    }
    return Processor::setSinkParameters(cRecord, lErrors, bQuiet);
}

bool BasebandProcessor::acceptsFrame(ReferencePtr<Frame> cFrame) {
    return cFrame == nullptr || dynamic_cast<IQFrame*>(cFrame.get()) != nullptr;
}

bool BasebandProcessor::attachFrameSink(ReferencePtr<FrameSink> cNewSink, ErrorList& lErrors) {
    if (cNewSink != nullptr && !dynamic_cast<BasebandFrameSink*>(cNewSink.get())) {
        lErrors.push_back("Attempted to attach a non-baseband sink to a baseband-only processor");
        return false;
    }
    return FrameSource::attachFrameSink(std::move(cNewSink), lErrors);
}

void BasebandProcessor::deliver(ReferencePtr<BasebandFrame> cFrame) {
    deliverFrame(std::move(cFrame), false);
    ++muFramesProcessed;
}

void BasebandProcessor::processFrame(ReferencePtr<Frame> cFrame) {
    const auto* pFrame = dynamic_cast<const IQFrame*>(cFrame.get());
    if (!pFrame)
        return;
    uint32_t uCount = 0;
    pFrame->getSamples(uCount);
    auto cAudio = makeReference<BasebandFrame>(*pFrame, uCount);
    utils::ScopedLock cLock(mcProcessChange);
    demodulate(*pFrame, cAudio->getChannel(0)->getData());
    // A change of the rate while blocks are delivered puts another in its place.
    const ReferencePtr<BasebandResampler> cResampler = mcResampler;
    cLock.unlock();
    cFrame.release();
    if (!cResampler) {
        deliver(std::move(cAudio));
        return;
    }
    cResampler->addFrame(std::move(cAudio));
    while (ReferencePtr<BasebandFrame> cBlock = cResampler->getFrame())
        deliver(std::move(cBlock));
}
