#include "simulator/synthesizer.h"

#include <algorithm>
#include <cmath>

#include "simulator/voices.h"

namespace vnksim {
namespace {

constexpr size_t kBlock = 4096;
constexpr size_t kNoiseBlock = 1024;

uint64_t mix(uint64_t value) {
    value += 0x9E3779B97F4A7C15ull;
    value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9ull;
    value = (value ^ (value >> 27)) * 0x94D049BB133111EBull;
    return value ^ (value >> 31);
}

}  // namespace

NoiseTable::NoiseTable(uint64_t seed) : muSeed(seed), mlValues(kSize) {
    uint64_t state = seed;
    double sum = 0, squares = 0;
    for (size_t i = 0; i < kSize; i += 2) {
        const double u = (static_cast<double>(mix(state++) >> 11) + 0.5) * 0x1p-53;
        const double v = static_cast<double>(mix(state++) >> 11) * 0x1p-53;
        const double radius = std::sqrt(-2 * std::log(u));
        mlValues[i] = static_cast<float>(radius * std::cos(6.283185307179586 * v));
        mlValues[i + 1] = static_cast<float>(radius * std::sin(6.283185307179586 * v));
    }
    for (float value : mlValues) {
        sum += static_cast<double>(value);
        squares += static_cast<double>(value) * static_cast<double>(value);
    }
    const double mean = sum / static_cast<double>(kSize);
    const double norm = 1 / std::sqrt(squares / static_cast<double>(kSize) - mean * mean);
    for (float& value : mlValues) {
        value = static_cast<float>((static_cast<double>(value) - mean) * norm);
    }
}

Synthesizer::Synthesizer(const Scene& scene, const View& view, std::shared_ptr<const NoiseTable> noise,
                         double leastSigma)
    : mcView(view), mcNoise(std::move(noise)) {
    double sigma = 0;
    if (scene.noiseDbmPerHz) {
        // Power for each component: half of density x rate (complex), or twice density x half the rate,
        // as a tone of the same power has twice the amplitude in real samples.
        const double power = std::pow(10.0, (*scene.noiseDbmPerHz - view.fullScaleDbm) / 10) * view.rateHz;
        sigma = std::sqrt(view.real ? power : power / 2);
    }
    mfSigma = static_cast<float>(std::max(sigma, leastSigma));
    for (const Emitter& emitter : scene.emitters) {
        for (auto& voice : makeVoices(emitter, view)) {
            mlVoices.push_back(std::move(voice));
        }
    }
}

void Synthesizer::addNoise(uint64_t first, size_t count, float* out) {
    const size_t width = mcView.real ? 1 : 2;
    for (size_t done = 0; done < count;) {
        const uint64_t block = (first + done) / kNoiseBlock;
        const size_t inside = (first + done) % kNoiseBlock;
        const size_t part = std::min(count - done, kNoiseBlock - inside);
        // A new place in the table for each block, and a random sign.
        const uint64_t draw = mix(mcNoise->seed() ^ mix(block));
        const size_t place = (draw % (NoiseTable::kSize - 2 * kNoiseBlock)) & ~size_t{1};
        const float sigma = (draw >> 63) != 0 ? -mfSigma : mfSigma;
        kernels::scale(out + done * width, mcNoise->data() + place + inside * width, sigma, part * width);
        done += part;
    }
}

void Synthesizer::read(uint64_t first, size_t count, float* out) {
    const size_t width = mcView.real ? 1 : 2;
    for (size_t done = 0; done < count; done += kBlock) {
        const size_t part = std::min(count - done, kBlock);
        float* place = out + done * width;
        if (mfSigma > 0) {
            addNoise(first + done, part, place);
        } else {
            std::fill_n(place, part * width, 0.0f);
        }
        for (auto& voice : mlVoices) {
            voice->add(first + done, part, place);
        }
    }
}

}  // namespace vnksim
