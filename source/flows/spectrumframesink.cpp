#include "flows/spectrumframesink.h"

#include "dsp/windowfunctions.h"
#include "flows/spectrumframe.h"
#include "foundations/text.h"

namespace {

constexpr int32_t kBadRange = -53;
constexpr int32_t kBadMinimum = -59;
constexpr int32_t kBadMaximum = -60;
constexpr int32_t kBadRBW = -61;
constexpr int32_t kBadWindow = -85;

void refuseFrequency(ErrorList& lErrors, int32_t iStatus, const char* pKey, float fValue) {
    addRefusal(lErrors, iStatus,
               utils::formatText("%s of %.4e is invalid", pKey, static_cast<double>(fValue)));
}

}  // namespace

utils::VariantRecord SpectrumFrameSink::getParameterInfo() {
    utils::VariantRecord cSchema;
    cSchema.set("FMinHz", "<Minimum sweep extent requested Hz>");
    cSchema.set("FMaxHz", "<Maximum sweep extent requested Hz>");
    cSchema.set("RBWHz", "<Resolution bandwidth requested Hz>");
    cSchema.set("RefdBm", "<Expected maximum power in dBm>");
    cSchema.set("UserCaldB", "<Offset to apply to calibrated data in dB>");
    cSchema.set("captureFrames", "Optional capture duration in frames (0 indicates continuous capture)");
    cSchema.set("WindowFn", "<Optional windowing function>");
    return cSchema;
}

SpectrumFrameSink::Settings SpectrumFrameSink::settings() {
    utils::ScopedLock cLock(mcParametersLock);
    return mcSettings;
}

utils::VariantRecord SpectrumFrameSink::getParameters() {
    utils::VariantRecord cRecord = FrameSink::getParameters();
    const Settings cSettings = settings();
    cRecord.set("FMinHz", cSettings.mfMinHz);
    cRecord.set("FMaxHz", cSettings.mfMaxHz);
    cRecord.set("RBWHz", cSettings.mfRBWHz);
    cRecord.set("RefdBm", cSettings.mfRefdBm);
    cRecord.set("UserCaldB", cSettings.mfUserCaldB);
    cRecord.set("WindowFn", cSettings.mcWindowName);
    cRecord.set("captureFrames", cSettings.muCaptureFrames);
    if (cSettings.mbFlatten)
        cRecord.set("flatten", true);
    return cRecord;
}

void SpectrumFrameSink::takeFrequencies(utils::VariantRecord& cRecord, Settings& cSettings,
                                        ErrorList& lErrors) {
    if (const auto fMin = cRecord.takeNumber("FMinHz")) {
        cSettings.mfMinHz = *fMin;
        if (!(*fMin >= 0.0f))
            refuseFrequency(lErrors, kBadMinimum, "FMinHz", *fMin);
    }
    if (const auto fMax = cRecord.takeNumber("FMaxHz")) {
        cSettings.mfMaxHz = *fMax;
        if (!(*fMax >= 0.0f))
            refuseFrequency(lErrors, kBadMaximum, "FMaxHz", *fMax);
    }
    if (!(cSettings.mfMaxHz >= cSettings.mfMinHz))
        addRefusal(lErrors, kBadRange,
                   utils::formatText("FMin:%.4eHz - FMax: %.4eHz is invalid range",
                                     static_cast<double>(cSettings.mfMinHz),
                                     static_cast<double>(cSettings.mfMaxHz)));
    if (const auto fRBW = cRecord.takeNumber("RBWHz")) {
        cSettings.mfRBWHz = *fRBW;
        // The upper edge is what is tested here, not the resolution bandwidth.
        if (!(cSettings.mfMaxHz >= 0.0f))
            refuseFrequency(lErrors, kBadRBW, "RBWHz", *fRBW);
    }
}

bool SpectrumFrameSink::integrateParameters(utils::VariantRecord& cRecord, ErrorList& lErrors) {
    if (!negotiate(cRecord, lErrors))
        return false;
    Settings cSettings = settings();
    takeFrequencies(cRecord, cSettings, lErrors);
    cSettings.mfRefdBm = cRecord.takeNumber("RefdBm").value_or(cSettings.mfRefdBm);
    cSettings.mfUserCaldB = cRecord.takeNumber("UserCaldB").value_or(cSettings.mfUserCaldB);
    if (const auto windowName = cRecord.takeText("WindowFn")) {
        cSettings.mcWindowName = *windowName;
        if (!WindowFunctions::findWindow(*windowName))
            addRefusal(lErrors, kBadWindow,
                       utils::formatText("%s of <%s> is not a known type", "WindowFn", windowName->c_str()));
    }
    cSettings.muCaptureFrames = takeCount(cRecord, "captureFrames").value_or(cSettings.muCaptureFrames);
    cSettings.mbFlatten = cRecord.takeBool("flatten").value_or(cSettings.mbFlatten);
    if (!FrameSink::integrateParameters(cRecord, lErrors))
        return false;
    utils::ScopedLock cLock(mcParametersLock);
    mcSettings = std::move(cSettings);
    return true;
}

bool SpectrumFrameSink::acceptsFrame(ReferencePtr<Frame> cFrame) {
    return cFrame == nullptr || dynamic_cast<SpectrumFrame*>(cFrame.get()) != nullptr;
}
