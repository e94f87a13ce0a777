#pragma once

#include <array>
#include <cmath>
#include <complex>
#include <functional>
#include <mutex>
#include <numbers>
#include <string>
#include <vector>

#include "flows/basebandframesink.h"
#include "processors/amdemodulator.h"
#include "processors/fmdemodulator.h"
#include "support/errorlog.h"
#include "unit/flows/flowsupport.h"

namespace demodulation {

using namespace vnktest;

using Samples = std::vector<std::complex<float>>;

/// A demodulator whose work can be called without its thread.
template <typename Demodulator>
class Direct : public Demodulator {
 public:
    using Demodulator::processFrame;
};

/// Keeps all frames that reach it.
class Listener : public BasebandFrameSink {
 public:
    void receiveFrame(ReferencePtr<Frame> cFrame, bool) override {
        const std::lock_guard cGuard(mcMutex);
        if (cFrame == nullptr)
            ++muEnds;
        else
            mlFrames.push_back(dynamicReferenceCast<BasebandFrame>(cFrame));
    }
    std::vector<ReferencePtr<BasebandFrame>> frames() {
        const std::lock_guard cGuard(mcMutex);
        return mlFrames;
    }
    size_t count() { return frames().size(); }
    size_t ends() {
        const std::lock_guard cGuard(mcMutex);
        return muEnds;
    }
    std::vector<float> audio() {
        std::vector<float> lAudio;
        for (const auto& cFrame : frames()) {
            const float* pFirst = cFrame->getChannel(0)->getData();
            lAudio.insert(lAudio.end(), pFirst, pFirst + cFrame->samplesPerChannel());
        }
        return lAudio;
    }

 private:
    std::mutex mcMutex;
    std::vector<ReferencePtr<BasebandFrame>> mlFrames;
    size_t muEnds = 0;
};

inline ReferencePtr<IQFrame> frameOf(const Samples& lSamples, float fRate, uint32_t uSequence) {
    auto cArray = makeReference<ComplexArray>(static_cast<uint32_t>(lSamples.size()));
    for (size_t i = 0; i < lSamples.size(); ++i)
        cArray->getData()[i] = {lSamples[i].real(), lSamples[i].imag()};
    return makeReference<IQFrame>(uSequence, uint64_t{7}, uint64_t{1'600'000'000'000'000'000} + uSequence,
                                  uint32_t{kNanoseconds}, 98.1e6f, 200e3f, fRate, -30.0f, cArray,
                                  std::string(kUnitsSqrtMilliwatt));
}

/// A demodulator with somebody who listens to it, run by hand.
template <typename Demodulator>
class Bench {
 public:
    Bench() {
        ErrorList lErrors;
        EXPECT_TRUE(mcDemodulator->attachFrameSink(mcListener, lErrors));
    }
    Direct<Demodulator>* operator->() { return mcDemodulator.get(); }
    Listener& listener() { return *mcListener; }
    void process(const Samples& lSamples, float fRate) { process(lSamples, fRate, muSequence++); }
    void process(const Samples& lSamples, float fRate, uint32_t uSequence) {
        mcDemodulator->processFrame(frameOf(lSamples, fRate, uSequence));
    }
    /// All samples in frames of so many each, and what is left over in the last.
    void processAll(const Samples& lSamples, float fRate, size_t uPerFrame) {
        for (size_t uAt = 0; uAt < lSamples.size(); uAt += uPerFrame) {
            const auto itFirst = lSamples.begin() + static_cast<std::ptrdiff_t>(uAt);
            const size_t uCount = std::min(uPerFrame, lSamples.size() - uAt);
            process(Samples(itFirst, itFirst + static_cast<std::ptrdiff_t>(uCount)), fRate);
        }
    }
    bool set(const char* pRecord) {
        utils::VariantRecord cRecord(pRecord);
        mlErrors.clear();
        return mcDemodulator->setSinkParameters(cRecord, mlErrors, false);
    }
    std::string parameter(const char* pKey) {
        utils::VariantRecord cRecord = mcDemodulator->getParameters();
        cRecord.keep({pKey});
        return cRecord.toCompactText();
    }

    ErrorList mlErrors;
    uint32_t muSequence = 0;

 private:
    ReferencePtr<Direct<Demodulator>> mcDemodulator = makeReference<Direct<Demodulator>>();
    ReferencePtr<Listener> mcListener = makeReference<Listener>();
};

/// Samples of a function of the time in seconds.
inline Samples sampled(double fRate, size_t uCount,
                       const std::function<std::complex<double>(double)>& signal) {
    Samples lSamples(uCount);
    for (size_t i = 0; i < uCount; ++i)
        lSamples[i] = std::complex<float>(signal(static_cast<double>(i) / fRate));
    return lSamples;
}

inline Samples amplitudeModulated(double fRate, size_t uCount, double fToneHz, double fDepth) {
    return sampled(fRate, uCount, [=](double t) {
        return std::polar(0.01 * (1 + fDepth * std::sin(2 * std::numbers::pi * fToneHz * t)), 0.3);
    });
}

inline Samples frequencyModulated(double fRate, size_t uCount, double fToneHz, double fDeviationHz) {
    return sampled(fRate, uCount, [=](double t) {
        return std::polar(0.01, -fDeviationHz / fToneHz * std::cos(2 * std::numbers::pi * fToneHz * t));
    });
}

/// A waveform that is not like itself anywhere: noise of a fixed seed on a carrier.
inline Samples roughSignal(size_t uCount, uint32_t uSeed = 1) {
    Samples lSamples(uCount);
    uint32_t uState = uSeed * 2654435761u + 1;
    const auto next = [&uState] {
        uState = uState * 1664525u + 1013904223u;
        return static_cast<float>(uState >> 8) / 16777216.0f - 0.5f;
    };
    for (auto& cSample : lSamples) {
        const float fRe = 1.0f + 0.7f * next();
        cSample = {fRe, 0.2f + 0.7f * next()};
    }
    return lSamples;
}

inline double greatestDifference(const std::vector<float>& lGot, const std::vector<double>& lWanted) {
    double fGreatest = lGot.size() == lWanted.size() ? 0 : 1e30;
    for (size_t i = 0; i < std::min(lGot.size(), lWanted.size()); ++i)
        fGreatest = std::max(fGreatest, std::abs(static_cast<double>(lGot[i]) - lWanted[i]));
    return fGreatest;
}

/// A sinusoid, its harmonics and what else there is, by least squares over places in a series.
struct Sine {
    double mfAmplitude;   // of the tone
    double mfDistortion;  // harmonics 2 to 7 over the tone, amplitudes
    double mfNoise;       // rms of the rest over the rms of the tone
    double mfWorst;       // the greatest of the rest over the amplitude of the tone
    std::vector<double> mlRest;

    /// lPlaces: time of each value, in periods of the tone.
    Sine(const std::vector<double>& lValues, const std::vector<double>& lPlaces);
};

/// Solves a symmetric, positive definite system, of which the upper half is given.
inline std::vector<double> solved(std::vector<std::vector<double>> a, std::vector<double> b) {
    const size_t n = b.size();
    for (size_t i = 0; i < n; ++i)
        for (size_t k = 0; k < i; ++k)
            a[i][k] = a[k][i];
    for (size_t i = 0; i < n; ++i)
        for (size_t k = i + 1; k < n; ++k) {
            const double f = a[k][i] / a[i][i];
            for (size_t j = i; j < n; ++j)
                a[k][j] -= f * a[i][j];
            b[k] -= f * b[i];
        }
    for (size_t i = n; i-- > 0;) {
        for (size_t j = i + 1; j < n; ++j)
            b[i] -= a[i][j] * b[j];
        b[i] /= a[i][i];
    }
    return b;
}

inline Sine::Sine(const std::vector<double>& lValues, const std::vector<double>& lPlaces)
    : mfAmplitude(0), mfDistortion(0), mfNoise(0), mfWorst(0), mlRest(lValues.size()) {
    constexpr size_t kHarmonics = 7, kTerms = 1 + 2 * kHarmonics;
    const auto terms = [](double fPlace) {
        std::array<double, kTerms> fTerms{1.0};
        const std::complex<double> cStep = std::polar(1.0, 2 * std::numbers::pi * fPlace);
        std::complex<double> cHarmonic = cStep;
        for (size_t k = 1; k <= kHarmonics; ++k, cHarmonic *= cStep) {
            fTerms[2 * k - 1] = cHarmonic.real();
            fTerms[2 * k] = cHarmonic.imag();
        }
        return fTerms;
    };
    std::vector<std::vector<double>> a(kTerms, std::vector<double>(kTerms));
    std::vector<double> b(kTerms);
    for (size_t i = 0; i < lValues.size(); ++i) {
        const auto t = terms(lPlaces[i]);
        for (size_t j = 0; j < kTerms; ++j) {
            b[j] += t[j] * lValues[i];
            for (size_t k = j; k < kTerms; ++k)
                a[j][k] += t[j] * t[k];
        }
    }
    const std::vector<double> x = solved(a, b);
    mfAmplitude = std::hypot(x[1], x[2]);
    for (size_t k = 2; k <= kHarmonics; ++k)
        mfDistortion = std::hypot(mfDistortion, std::hypot(x[2 * k - 1], x[2 * k]) / mfAmplitude);
    double fSquares = 0;
    for (size_t i = 0; i < lValues.size(); ++i) {
        const auto t = terms(lPlaces[i]);
        mlRest[i] = lValues[i];
        for (size_t j = 0; j < kTerms; ++j)
            mlRest[i] -= x[j] * t[j];
        fSquares += mlRest[i] * mlRest[i];
        mfWorst = std::max(mfWorst, std::abs(mlRest[i]) / mfAmplitude);
    }
    mfNoise = std::sqrt(fSquares / static_cast<double>(lValues.size())) / (mfAmplitude / std::sqrt(2.0));
}

/// Frequency of a clean tone in cycles per value: the turn of its phase between the two halves of the series.
inline double toneFrequency(const std::vector<double>& lValues, double fGuess) {
    const auto windowed = [&](size_t uFrom, size_t uCount) {
        std::complex<double> cSum = 0;
        for (size_t i = 0; i < uCount; ++i) {
            const double x =
                2 * std::numbers::pi * (static_cast<double>(i) + 0.5) / static_cast<double>(uCount);
            const double fWindow =
                0.35875 - 0.48829 * std::cos(x) + 0.14128 * std::cos(2 * x) - 0.01168 * std::cos(3 * x);
            cSum += fWindow * lValues[uFrom + i] *
                    std::polar(1.0, -2 * std::numbers::pi * fGuess * static_cast<double>(uFrom + i));
        }
        return cSum;
    };
    const size_t uHalf = lValues.size() / 2;
    return fGuess + std::arg(windowed(uHalf, uHalf) * std::conj(windowed(0, uHalf))) /
                        (2 * std::numbers::pi * static_cast<double>(uHalf));
}

inline std::vector<double> tail(const std::vector<float>& lValues, size_t uFrom) {
    return {lValues.begin() + static_cast<std::ptrdiff_t>(std::min(uFrom, lValues.size())), lValues.end()};
}

/// What the resampler gives, taken literally: the places in the stream of audio that its output is taken
/// from, each between two neighbours with a weight for the later one. The arithmetic of places is single
/// precision.
struct Resampled {
    struct Place {
        size_t muLater;  // the earlier one stands just before it
        float mfWeight;
    };
    std::vector<Place> mlPlaces;
    double mfSlipped = 0;  // input samples that were taken twice at the joints of frames, all together

    Resampled(float fInputRate, float fOutputRate, const std::vector<size_t>& lFrames) {
        const float fStep = fInputRate / fOutputRate;
        float fPosition = 0.0f;
        size_t uBase = 0;
        for (const size_t uCount : lFrames) {
            if (fPosition < 0.0f) {
                mfSlipped += static_cast<double>(fPosition) + static_cast<double>(fStep);
                mlPlaces.push_back({uBase, -fPosition});
                fPosition = 0.0f;
            }
            while (fPosition < static_cast<float>(uCount - 1)) {
                const float fWhole = std::floor(fPosition);
                mlPlaces.push_back({uBase + static_cast<size_t>(fWhole) + 1, fPosition - fWhole});
                fPosition += fStep;
            }
            fPosition -= static_cast<float>(uCount);
            uBase += uCount;
        }
    }
    /// Where an output value stands, in input samples.
    double place(size_t i) const {
        return static_cast<double>(mlPlaces[i].muLater) - 1 + static_cast<double>(mlPlaces[i].mfWeight);
    }
    std::vector<double> of(const std::vector<double>& lInput) const {
        std::vector<double> lOutput(mlPlaces.size());
        for (size_t i = 0; i < mlPlaces.size(); ++i) {
            const auto fWeight = static_cast<double>(mlPlaces[i].mfWeight);
            lOutput[i] =
                (1 - fWeight) * lInput[mlPlaces[i].muLater - 1] + fWeight * lInput[mlPlaces[i].muLater];
        }
        return lOutput;
    }
};

/// A tone of modulation on its way through a demodulator.
struct ToneCase {
    float mfRate;
    double mfToneHz;
    float mfOutputRate = 0.0f;
    size_t muPerFrame = 4096;

    double rate() const { return static_cast<double>(mfRate); }
    /// The AM demodulator takes a second to settle.
    size_t settled() const { return static_cast<size_t>(rate() * 1.2); }
    size_t samples() const { return settled() + static_cast<size_t>(rate() * 0.8); }
};

/// Its audio at the input's rate: frequency, and what distorts it. `pName` is for the printout.
inline Sine checkTone(const std::vector<float>& lAudio, const ToneCase& c, const char* pName) {
    const std::vector<double> lSteady = tail(lAudio, c.settled());
    const double fFrequency = toneFrequency(lSteady, c.mfToneHz / c.rate()) * c.rate();
    std::vector<double> lPlaces(lSteady.size());
    for (size_t i = 0; i < lPlaces.size(); ++i)
        lPlaces[i] = static_cast<double>(i) * c.mfToneHz / c.rate();
    Sine cSine(lSteady, lPlaces);
    std::printf(
        "%s %7.0f S/s, %5.0f Hz: frequency off by %+.1e, distortion %6.1f dB, noise %6.1f dB, level %.4f\n",
        pName, c.rate(), c.mfToneHz, fFrequency / c.mfToneHz - 1, 20 * std::log10(cSine.mfDistortion),
        20 * std::log10(cSine.mfNoise), cSine.mfAmplitude);
    EXPECT_NEAR(fFrequency, c.mfToneHz, c.mfToneHz * 1e-4);
    return cSine;
}

/// Its resampled audio: each value where the resampler's rule puts it, which tells of the slips at the joints
/// of input frames, and nothing else, in particular nothing at the joints of blocks.
inline void checkResampledTone(const std::vector<float>& lAudio, const ToneCase& c, double fWorst,
                               const char* pName) {
    std::vector<size_t> lFrames(c.samples() / c.muPerFrame, c.muPerFrame);
    if (const size_t uRest = c.samples() % c.muPerFrame; uRest != 0)
        lFrames.push_back(uRest);
    const Resampled cRule(c.mfRate, c.mfOutputRate, lFrames);
    const double fStep = c.rate() / static_cast<double>(c.mfOutputRate);
    ASSERT_GT(lAudio.size() + 1024, cRule.mlPlaces.size()) << "all that fills a block";
    ASSERT_LE(lAudio.size(), cRule.mlPlaces.size());
    const auto uFrom = static_cast<size_t>(static_cast<double>(c.settled()) / fStep);
    const std::vector<double> lSteady = tail(lAudio, uFrom);
    ASSERT_GT(lSteady.size(), 1024u);
    std::vector<double> lPlaces(lSteady.size()), lEven(lSteady.size());
    for (size_t i = 0; i < lPlaces.size(); ++i) {
        lPlaces[i] = cRule.place(uFrom + i) * c.mfToneHz / c.rate();
        lEven[i] = static_cast<double>(i) * fStep * c.mfToneHz / c.rate();
    }
    const Sine cSine(lSteady, lPlaces), cUneven(lSteady, lEven);
    const double fFrequency = toneFrequency(lSteady, fStep * c.mfToneHz / c.rate()) / fStep * c.rate();
    const double fMean = (lPlaces.back() - lPlaces.front()) / lEven.back();
    std::printf(
        "%s %7.0f to %5.0f S/s, %4.0f Hz: mean frequency off by %+.1e (slips: %+.1e), rest %6.1f dB, "
        "greatest %.4f, without slips %6.1f dB\n",
        pName, c.rate(), static_cast<double>(c.mfOutputRate), c.mfToneHz, fFrequency / c.mfToneHz - 1,
        fMean - 1, 20 * std::log10(cSine.mfNoise), cSine.mfWorst, 20 * std::log10(cUneven.mfNoise));
    EXPECT_NEAR(fFrequency, c.mfToneHz, c.mfToneHz * 5e-4);
    EXPECT_NEAR(fMean, 1, 5e-4);
    EXPECT_LT(cSine.mfWorst, fWorst) << "nowhere a jump";
    const double fSlipped = (lEven.back() - (lPlaces.back() - lPlaces.front())) * 2 * std::numbers::pi;
    if (fSlipped > 0.1) {
        EXPECT_GT(cUneven.mfNoise, 2 * cSine.mfNoise) << "the slips are there";
    }
}

}  // namespace demodulation
