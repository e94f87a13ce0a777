#pragma once

#include <complex>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "simulator/oscillator.h"
#include "simulator/resampler.h"
#include "simulator/scene.h"

namespace vnksim {

/// How a capture looks at the air.
struct View {
    bool real = false;      ///< one real sample a time, or complex ones
    bool mirrored = false;  ///< spectrum about the tuned centre runs backwards
    double rateHz = 1;
    double originHz = 0;           ///< frequency on the air that comes out at `placeHz`
    double placeHz = 0;            ///< 0 for complex samples, the IF for real ones
    double lowHz = 0, highHz = 0;  ///< what passes, on the air: half amplitude
    double transitionHz = 1;       ///< width of the edges
    double fullScaleDbm = 0;       ///< level of a tone of amplitude 1 (complex) or 2 (real)
    /// Gain in dB of what is on the air at a frequency; none: 0.
    std::function<double(double)> gaindB;
};

/// A table of normal deviates of mean 0 and mean square 1, the same for a seed on every machine.
class NoiseTable {
 public:
    explicit NoiseTable(uint64_t seed);
    static constexpr size_t kSize = 1 << 20;
    const float* data() const { return mlValues.data(); }
    uint64_t seed() const { return muSeed; }

 private:
    uint64_t muSeed;
    std::vector<float> mlValues;
};

/// One emitter in one view.
class Voice {
 public:
    virtual ~Voice() = default;
    /// Adds samples from number `first` on; `out` holds complex samples or, in a real view, floats.
    virtual void add(uint64_t first, size_t count, float* out) = 0;
};

/// The samples of a scene in a view, as float (full scale 1). A run of calls gives the same samples however
/// it is cut.
class Synthesizer {
 public:
    /// `leastSigma`: the rms of noise per component is kept at this or above (in full scales).
    Synthesizer(const Scene& scene, const View& view, std::shared_ptr<const NoiseTable> noise,
                double leastSigma);
    /// Fills `out` with `count` samples (two floats each unless real) from scene time first / rate on.
    void read(uint64_t first, size_t count, float* out);

 private:
    void addNoise(uint64_t first, size_t count, float* out);

    View mcView;
    std::shared_ptr<const NoiseTable> mcNoise;
    float mfSigma = 0;
    std::vector<std::unique_ptr<Voice>> mlVoices;
};

}  // namespace vnksim
