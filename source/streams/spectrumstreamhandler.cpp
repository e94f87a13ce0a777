#include "streams/spectrumstreamhandler.h"

#include "foundations/text.h"

SpectrumStreamHandler::SpectrumStreamHandler(utils::VariantRecord cParameters) {
    setSinkParameters(cParameters, mlErrors, false);
}

SpectrumStreamHandler::~SpectrumStreamHandler() {
    endOfStream();
}

const SpectrumStreamHandler::Kind& SpectrumStreamHandler::kind() const {
    // Never destroyed: streams may end while the process does.
    static const Kind& cKind = *new Kind{
        "Attempt to attach non-Spectrum sink to a Spectrum source",
        nullptr,
        nullptr,
        {"FCentreHz", "BandwidthHz", "RBWHz", "units", "RefdBm", "WindowFn", "FMinHz", "FMaxHz"}};
    return cKind;
}

ReferencePtr<Frame> SpectrumStreamHandler::emptyFrame() const {
    return makeReference<SpectrumFrame>(0u, uint64_t{0}, uint64_t{0}, uint32_t{kNanoseconds}, 0.0f, 0.0f, 0.0f,
                                        0.0f, std::string(), ReferencePtr<FloatArray>(), std::string());
}

void SpectrumStreamHandler::refuseSource(ErrorList& lErrors) {
    lErrors.push_back(utils::formatText("SpectrumStreamHandler::attachToSource internal error at %s:%d", __FILE__,
                                        __LINE__));
}

bool SpectrumStreamHandler::integrateParameters(utils::VariantRecord& cRecord, ErrorList& lErrors) {
    takeLooping(cRecord);
    SpectrumFrameSink::integrateParameters(cRecord, lErrors);
    return true;
}
