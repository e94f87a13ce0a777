#include "streams/basebandstreamhandler.h"

#include "foundations/text.h"

namespace {

constexpr int32_t kBadSampleRate = -81;
constexpr float kLowestSampleRateHz = 4000.0f;
constexpr float kHighestSampleRateHz = 1000000.0f;

}  // namespace

BasebandStreamHandler::BasebandStreamHandler(utils::VariantRecord cParameters) {
    setSinkParameters(cParameters, mlErrors, false);
}

BasebandStreamHandler::~BasebandStreamHandler() {
    endOfStream();
}

const BasebandStreamHandler::Kind& BasebandStreamHandler::kind() const {
    // Never destroyed: streams may end while the process does.
    static const Kind& cKind = *new Kind{"Attempt to attach a non-baseband sink to a baseband source",
                               nullptr,
                               nullptr,
                               {"FCentreHz", "BandwidthHz", "RBWHz", "units"}};
    return cKind;
}

ReferencePtr<Frame> BasebandStreamHandler::emptyFrame() const {
    return makeReference<BasebandFrame>(uint64_t{0}, uint32_t{kNanoseconds}, 0.0f, 0.0f);
}

void BasebandStreamHandler::refuseSource(ErrorList& lErrors) {
    lErrors.push_back("Attempt to attach to non-existent frame source");
}

// The maximum and the default stand crosswise to the check and to the value; the texts are part of the interface.
void BasebandStreamHandler::addSchema(utils::VariantRecord& cSchema) {
    addNumericSchema(cSchema, "SampleRateHz", "Sample rate of baseband output stream", kLowestSampleRateHz,
                     44100.0f, kHighestSampleRateHz, "Hz", false);
}

utils::VariantRecord BasebandStreamHandler::getParameters() {
    utils::VariantRecord cRecord = TypedStreamHandler::getParameters();
    cRecord.set("SampleRateHz", mfSampleRateHz);
    return cRecord;
}

bool BasebandStreamHandler::integrateParameters(utils::VariantRecord& cRecord, ErrorList& lErrors) {
    takeLooping(cRecord);
    // Taken out first: what is left over then is unknown indeed.
    const auto fRate = cRecord.takeNumber("SampleRateHz");
    BasebandFrameSink::integrateParameters(cRecord, lErrors);
    if (fRate && !(*fRate >= kLowestSampleRateHz && *fRate <= kHighestSampleRateHz))
        addRefusal(lErrors, kBadSampleRate,
                   utils::formatText("%s of %.4e is invalid", "SampleRateHz", static_cast<double>(*fRate)));
    return true;
}
