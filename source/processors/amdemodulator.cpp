#include "processors/amdemodulator.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "dsp/clones.h"
#include "dsp/filterdesigners.h"
#include "foundations/text.h"

namespace {

constexpr uint32_t kBlock = 1024;
constexpr int32_t kInvalidParameter = -13;

}  // namespace

// Squares of single precision fit into double precision, whatever they are of.
VNK_CLONES static void magnitudes(const Complex<float>* __restrict pSamples, double* __restrict pLevel,
                                  uint32_t uCount) {
    for (uint32_t i = 0; i < uCount; ++i) {
        const double fI = double{pSamples[i].re};
        const double fQ = double{pSamples[i].im};
        pLevel[i] = std::sqrt(fI * fI + fQ * fQ);
    }
}

// A function of its own: in a longer one the compiler leaves the states in memory.
static __attribute__((noinline)) void lowPass(ComplexBiquadCascade<3>& cFilter,
                                              const Complex<float>* pSamples, Complex<float>* pFiltered,
                                              uint32_t uCount) {
    cFilter.filter(pSamples, pFiltered, uCount);
}

AMDemodulator::AMDemodulator() : BasebandProcessor("AMDemodulator", "AMDemodulator::ProcessChange") {}

AMDemodulator::~AMDemodulator() = default;

utils::VariantRecord AMDemodulator::getParameterInfo() {
    utils::VariantRecord cSchema = BasebandProcessor::getParameterInfo();
    addEnumSchema(cSchema, "type", "<AM demodulator subtype>", {"DSB", "USB", "LSB"}, false);
    return cSchema;
}

utils::VariantRecord AMDemodulator::getParameters() {
    static constexpr const char* kTexts[] = {"DSB", "LSB", "USB"};
    utils::VariantRecord cRecord = BasebandProcessor::getParameters();
    utils::ScopedLock cLock(mcProcessChange);
    cRecord.set("type", kTexts[meSubtype]);
    return cRecord;
}

std::optional<AMDemodulator::Subtype> AMDemodulator::subtypeOf(const std::string& text) {
    if (text == "USB" || text == "usb")
        return kUSB;
    if (text == "LSB" || text == "lsb")
        return kLSB;
    if (text == "DSB" || text == "dsb")
        return kDSB;
    return {};
}

void AMDemodulator::setSubtype(Subtype eSubtype) {
    utils::ScopedLock cLock(mcProcessChange);
    meSubtype = eSubtype;
    muNextSequence.reset();
    restartCount();
}

bool AMDemodulator::setSinkParameters(utils::VariantRecord& cRecord, ErrorList& lErrors, bool bQuiet) {
    if (const auto text = cRecord.takeText("type")) {
        if (const auto eSubtype = subtypeOf(*text))
            setSubtype(*eSubtype);
        else
            addRefusal(lErrors, kInvalidParameter,
                       utils::formatText("AM demodulator type <%s> not known", text->c_str()));
    }
    return BasebandProcessor::setSinkParameters(cRecord, lErrors, bQuiet);
}

void AMDemodulator::rebuild(float fRate) {
    muNextSequence.reset();  // should a design throw
    mcLowPass.setDesign(designDigitalButterworth(fRate * 0.4f, fRate, 2));
    mcAudioFilter.setDesign(designDigitalButterworth(0.5f, 2.0f, 4));
    mcAudioFilter.resetState();
    mfAlpha = std::min(std::abs(1.0 / (static_cast<double>(fRate) * 0.1)), 1.0);
    mfMean = 0.0;
    mfPeak = 0.0;
    mcSingleSideband.reset();
}

void AMDemodulator::detect(const Complex<float>* pSamples, float* pAudio, uint32_t uCount) {
    if (meSubtype == kDSB) {
        std::array<double, kBlock> fLevels;
        magnitudes(pSamples, fLevels.data(), uCount);
        normalise(fLevels.data(), pAudio, uCount);
        return;
    }
    mcSingleSideband.demodulate(pSamples, pAudio, uCount,
                                meSubtype == kUSB ? SingleSideband::kUpper : SingleSideband::kLower);
    normalise(pAudio, pAudio, uCount);
}

template <typename Level>
void AMDemodulator::normalise(const Level* pLevel, float* pAudio, uint32_t uCount) {
    const double fKeep = 1.0 - mfAlpha;
    double fMean = mfMean;
    double fPeak = mfPeak;
    IIR::Loop cAudioFilter(mcAudioFilter);
    for (uint32_t i = 0; i < uCount; ++i) {
        const double fLevel = double{pLevel[i]};
        fMean = fKeep * fMean + mfAlpha * fLevel;
        const double fX = fLevel - fMean;
        fPeak = std::max(std::abs(fX), fKeep * fPeak);  // in this order what is no number stays, and shows
        // Silence from the start has no peak.
        pAudio[i] = static_cast<float>(cAudioFilter.run(fPeak == 0.0 ? 0.0 : fX / fPeak));
    }
    mfMean = fMean;
    mfPeak = fPeak;
}

void AMDemodulator::demodulate(const IQFrame& cFrame, float* pAudio) {
    std::array<Complex<float>, kBlock> cFiltered;
    uint32_t uSamples = 0;
    const Complex<float>* pSamples = cFrame.getSamples(uSamples);
    muSamplesTaken.fetch_add(uSamples, std::memory_order_relaxed);
    if (muNextSequence != cFrame.sequence())
        rebuild(cFrame.sampleRate());
    muNextSequence = nextSequenceAfter(cFrame.sequence());
    for (uint32_t uAt = 0; uAt < uSamples;) {
        const uint32_t uCount = std::min(kBlock, uSamples - uAt);
        lowPass(mcLowPass, pSamples + uAt, cFiltered.data(), uCount);
        detect(cFiltered.data(), pAudio + uAt, uCount);
        uAt += uCount;
    }
}
