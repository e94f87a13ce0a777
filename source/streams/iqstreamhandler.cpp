#include "streams/iqstreamhandler.h"

IQStreamHandler::IQStreamHandler(utils::VariantRecord cParameters) {
    setSinkParameters(cParameters, mlErrors, false);
}

IQStreamHandler::~IQStreamHandler() {
    endOfStream();
}

const IQStreamHandler::Kind& IQStreamHandler::kind() const {
    // Never destroyed: streams may end while the process does.
    static const Kind& cKind = *new Kind{"Attempt to attach non-IQ frame sink to IQ only source",
                               "attachToSource => FrameSource::attachFrameSink",
                               "IQStreamHandler::detachFromSource",
                               {"FCentreHz", "IFBWHz", "SampleRateHz", "units"}};
    return cKind;
}

ReferencePtr<Frame> IQStreamHandler::emptyFrame() const {
    return makeReference<IQFrame>(0u, uint64_t{0}, uint64_t{0}, kNanoseconds, 0.0f, 0.0f, 0.0f, 0.0f,
                                  ReferencePtr<ComplexArray>(), std::string(kUnitsSqrtMilliwatt));
}

void IQStreamHandler::completeFileParameters(const utils::VariantRecord& cSampling,
                                             utils::VariantRecord& cRecord) {
    if (const auto fBandwidth = cSampling.getNumber("BandwidthHz"))
        cRecord.set("IFBWHz", *fBandwidth);
}

bool IQStreamHandler::integrateParameters(utils::VariantRecord& cRecord, ErrorList& lErrors) {
    takeLooping(cRecord);
    return IQFrameSink::integrateParameters(cRecord, lErrors);
}

void IQStreamHandler::frameTaken(const Frame& cFrame) {
    constexpr auto kRelaxed = std::memory_order_relaxed;
    const uint32_t uExpected = muNextSequence.exchange(nextSequenceAfter(cFrame.sequence()), kRelaxed);
    if (uExpected != kNoSequence && uExpected != cFrame.sequence())
        mbGap.store(true, kRelaxed);
    if (cFrame.isSubOptimal() && dynamic_cast<const IQFrame*>(&cFrame))
        mbSubOptimalSeen.store(true, kRelaxed);
}
