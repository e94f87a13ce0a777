#include "simulator/voices.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <stdexcept>

namespace vnksim {
namespace {

constexpr double kTwoPi = 6.283185307179586;

/// Frequency in the view's samples of a frequency on the air.
double place(const View& view, double frequencyHz) {
    const double offset = frequencyHz - view.originHz;
    return view.placeHz + (view.mirrored ? -offset : offset);
}

/// Amplitude of the phasor for a level: a real view takes the real part of twice the phasor.
double amplitude(const View& view, double levelDbm) {
    return (view.real ? 2.0 : 1.0) * std::pow(10.0, (levelDbm - view.fullScaleDbm) / 20);
}

/// What becomes of an amplitude on the way to the digitizer.
double gainFactor(const View& view, double frequencyHz) {
    return view.gaindB ? std::pow(10.0, view.gaindB(frequencyHz) / 20) : 1;
}

/// Amplitude response of the view at a frequency, its edges alone.
double edgeResponse(const View& view, double frequencyHz) {
    const double inside = std::min(frequencyHz - view.lowHz, view.highHz - frequencyHz) / view.transitionHz;
    if (inside >= 0.5) {
        return 1;
    }
    return inside <= -0.5 ? 0 : 0.5 + 0.5 * std::sin(kTwoPi / 2 * inside);
}

double response(const View& view, double frequencyHz) {
    const double edge = edgeResponse(view, frequencyHz);
    return edge > 0 ? edge * gainFactor(view, frequencyHz) : 0;
}

class ToneVoice : public Voice {
 public:
    ToneVoice(const View& view, double frequencyHz, double gain, double phaseTurns)
        : mbReal(view.real),
          mfGain(static_cast<float>(gain)),
          mcOscillator(
              static_cast<long double>(place(view, frequencyHz)) / static_cast<long double>(view.rateHz),
              static_cast<long double>(view.mirrored ? -phaseTurns : phaseTurns)) {}

    void add(uint64_t first, size_t count, float* out) override {
        for (size_t done = 0; done < count; done += kernels::kOscillatorTable) {
            const size_t part = std::min(count - done, kernels::kOscillatorTable);
            const auto a = mfGain * mcOscillator.at(first + done);
            if (mbReal) {
                kernels::addRotatedReal(out + done, mcOscillator.table(), a, part);
            } else {
                kernels::addRotated(reinterpret_cast<std::complex<float>*>(out) + done, mcOscillator.table(),
                                    a, part);
            }
        }
    }

 private:
    bool mbReal;
    float mfGain;
    Oscillator mcOscillator;
};

class BurstVoice : public Voice {
 public:
    BurstVoice(const View& view, const Burst& burst, double gain)
        : mcBurst(burst),
          mbReal(view.real),
          mfRate(view.rateHz),
          mfGain(static_cast<float>(gain)),
          mcOscillator(static_cast<long double>(place(view, burst.frequencyHz)) /
                           static_cast<long double>(view.rateHz),
                       0) {
        // An edge steeper than the samples can follow would fold back.
        mcBurst.rampSec = std::max(burst.rampSec, 2 / view.rateHz);
    }

    void add(uint64_t first, size_t count, float* out) override {
        float gains[kernels::kOscillatorTable];
        for (size_t done = 0; done < count; done += kernels::kOscillatorTable) {
            const size_t part = std::min(count - done, kernels::kOscillatorTable);
            if (!fillGains(first + done, part, gains)) {
                continue;
            }
            const auto a = mfGain * mcOscillator.at(first + done);
            if (mbReal) {
                kernels::addRotatedGatedReal(out + done, mcOscillator.table(), gains, a, part);
            } else {
                kernels::addRotatedGated(reinterpret_cast<std::complex<float>*>(out) + done,
                                         mcOscillator.table(), gains, a, part);
            }
        }
    }

 private:
    /// Half amplitude stands at the two edges of the on time. False when all gains are 0.
    bool fillGains(uint64_t first, size_t count, float* gains) const {
        const long double start = static_cast<long double>(first) / static_cast<long double>(mfRate);
        double t = static_cast<double>(start) - mcBurst.startSec;
        const double half = mcBurst.rampSec / 2;
        if (mcBurst.periodSec > 0 && t > 0) {
            t = std::fmod(t + half, mcBurst.periodSec) - half;
        }
        bool any = false;
        for (size_t i = 0; i < count; ++i) {
            const double inside = std::min(t, mcBurst.onSec - t) / mcBurst.rampSec;
            gains[i] = inside >= 0.5    ? 1.0f
                       : inside <= -0.5 ? 0.0f
                                        : static_cast<float>(0.5 + 0.5 * std::sin(kTwoPi / 2 * inside));
            any = any || gains[i] != 0;
            t += 1 / mfRate;
            if (mcBurst.periodSec > 0 && t >= mcBurst.periodSec - half) {
                t -= mcBurst.periodSec;
            }
        }
        return any;
    }

    Burst mcBurst;
    bool mbReal;
    double mfRate;
    float mfGain;
    Oscillator mcOscillator;
};

class WaveformVoice : public Voice {
 public:
    WaveformVoice(const View& view, std::unique_ptr<SampleSource> source, double placeHz, double gain)
        : mbReal(view.real),
          mfGain(static_cast<float>(gain)),
          mcSource(std::move(source)),
          mcOscillator(static_cast<long double>(placeHz) / static_cast<long double>(view.rateHz), 0) {}

    void add(uint64_t first, size_t count, float* out) override {
        mlSamples.resize(count);
        mcSource->read(static_cast<int64_t>(first), count, mlSamples.data());
        for (size_t done = 0; done < count; done += kernels::kOscillatorTable) {
            const size_t part = std::min(count - done, kernels::kOscillatorTable);
            const auto a = mfGain * mcOscillator.at(first + done);
            if (mbReal) {
                kernels::addMixedReal(out + done, mlSamples.data() + done, mcOscillator.table(), a, part);
            } else {
                kernels::addMixed(reinterpret_cast<std::complex<float>*>(out) + done, mlSamples.data() + done,
                                  mcOscillator.table(), a, part);
            }
        }
    }

 private:
    bool mbReal;
    float mfGain;
    std::unique_ptr<SampleSource> mcSource;
    Oscillator mcOscillator;
    ComplexVector mlSamples;
};

/// The part of a waveform that lies in the view: shifted so that this part is centred, low-passed, brought to
/// the view's rate and put in its place.
std::unique_ptr<Voice> waveformVoice(const View& view, std::shared_ptr<const Waveform> waveform,
                                     double frequencyHz, double levelDbm) {
    const double rate = waveform->rateHz;
    double low = std::max(-rate / 2, view.lowHz - frequencyHz);
    double high = std::min(rate / 2, view.highHz - frequencyHz);
    if (high <= low) {
        return nullptr;
    }
    const bool whole = low == -rate / 2 && high == rate / 2;
    const double transition = whole ? 0.1 * rate : std::min(0.1 * rate, view.transitionHz);
    if (view.mirrored) {
        std::swap(low, high);
        low = -low;
        high = -high;
    }
    const double middle = (low + high) / 2;
    auto source =
        std::make_unique<LoopedSource>(std::move(waveform), view.mirrored,
                                       static_cast<long double>(middle) / static_cast<long double>(rate));
    auto resampled = makeResampler(std::move(source), rate, view.rateHz, (high - low) / 2, transition);
    return std::make_unique<WaveformVoice>(view, std::move(resampled), place(view, frequencyHz) + middle,
                                           amplitude(view, levelDbm) * gainFactor(view, frequencyHz));
}

void addTone(std::vector<std::unique_ptr<Voice>>& voices, const View& view, double frequencyHz, double gain,
             double phaseTurns) {
    const double shown = gain * response(view, frequencyHz);
    if (shown > 0) {
        voices.push_back(std::make_unique<ToneVoice>(view, frequencyHz, shown, phaseTurns));
    }
}

struct VoiceMaker {
    const View& view;
    std::vector<std::unique_ptr<Voice>> voices{};

    void operator()(const Tone& tone) {
        addTone(voices, view, tone.frequencyHz, amplitude(view, tone.levelDbm), tone.phaseTurns);
    }
    void operator()(const AmStation& station) {
        const double carrier = amplitude(view, station.levelDbm);
        addTone(voices, view, station.frequencyHz, carrier, 0);
        for (const AudioTone& audio : station.audio) {
            addTone(voices, view, station.frequencyHz + audio.frequencyHz, carrier * audio.amount / 2, 0);
            addTone(voices, view, station.frequencyHz - audio.frequencyHz, carrier * audio.amount / 2, 0);
        }
    }
    void operator()(const Burst& burst) {
        const double gain = amplitude(view, burst.levelDbm) * response(view, burst.frequencyHz);
        if (gain > 0) {
            voices.push_back(std::make_unique<BurstVoice>(view, burst, gain));
        }
    }
    void operator()(const FmStation& station) {
        addWaveform(fmWaveform(station), station.frequencyHz, station.levelDbm);
    }
    void operator()(const Recording& recording) {
        if (recording.waveform && !recording.waveform->samples.empty()) {
            addWaveform(recording.waveform, recording.frequencyHz, recording.levelDbm);
        }
    }
    void addWaveform(const std::shared_ptr<const Waveform>& waveform, double frequencyHz, double levelDbm) {
        if (auto voice = waveformVoice(view, waveform, frequencyHz, levelDbm)) {
            voices.push_back(std::move(voice));
        }
    }
};

}  // namespace

std::shared_ptr<const Waveform> fmWaveform(const FmStation& station) {
    double deviation = 0, highest = 0;
    int64_t period = 0;  // greatest common divisor of the audio frequencies
    for (const AudioTone& audio : station.audio) {
        const int64_t whole = std::llround(audio.frequencyHz);
        if (whole <= 0 || static_cast<double>(whole) != audio.frequencyHz) {
            throw std::invalid_argument("audio frequencies of an FM station are whole hertz above 0");
        }
        period = std::gcd(period, whole);
        deviation += std::abs(audio.amount);
        highest = std::max(highest, audio.frequencyHz);
    }
    period = std::max<int64_t>(period, 1);
    // Carson's width, doubled: what lies beyond is far below what 14 bits can show.
    const double wanted = std::max(2 * 2 * (deviation + 2 * highest), 1000.0);
    const int64_t count = static_cast<int64_t>(std::ceil(wanted / static_cast<double>(period)));
    auto waveform = std::make_shared<Waveform>();
    waveform->rateHz = static_cast<double>(count * period);
    waveform->samples.resize(static_cast<size_t>(count));
    for (int64_t n = 0; n < count; ++n) {
        double phase = 0;
        for (const AudioTone& audio : station.audio) {
            const double cycles = audio.frequencyHz / waveform->rateHz * static_cast<double>(n);
            phase += audio.amount / audio.frequencyHz * std::sin(kTwoPi * std::fmod(cycles, 1.0));
        }
        waveform->samples[static_cast<size_t>(n)] = {static_cast<float>(std::cos(phase)),
                                                     static_cast<float>(std::sin(phase))};
    }
    return waveform;
}

std::vector<std::unique_ptr<Voice>> makeVoices(const Emitter& emitter, const View& view) {
    VoiceMaker maker{view};
    std::visit(maker, emitter);
    return std::move(maker.voices);
}

}  // namespace vnksim
