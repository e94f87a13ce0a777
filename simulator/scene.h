#pragma once

#include <complex>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace vnksim {

/// An unmodulated carrier. Its phase at scene time 0 is `phaseTurns` (1 is a full circle).
struct Tone {
    double frequencyHz = 0;
    double levelDbm = -60;
    double phaseTurns = 0;
};

/// One audio tone of a station. `amount` is the peak deviation in Hz (FM) or the depth 0 to 1 (AM).
struct AudioTone {
    double frequencyHz = 1000;
    double amount = 0;
};

/// A frequency-modulated station; audio frequencies are whole hertz.
struct FmStation {
    double frequencyHz = 0;
    double levelDbm = -60;
    std::vector<AudioTone> audio;
};

/// An amplitude-modulated station; `levelDbm` is the level of its carrier.
struct AmStation {
    double frequencyHz = 0;
    double levelDbm = -60;
    std::vector<AudioTone> audio;
};

/// A keyed carrier: on for `onSec` at `startSec` and then again every `periodSec`.
struct Burst {
    double frequencyHz = 0;
    double levelDbm = -60;
    double startSec = 0;
    double onSec = 0.01;
    double periodSec = 0.1;
    double rampSec = 5e-6;
};

/// Complex samples at a rate, shared between the scenes that put them on the air.
struct Waveform {
    double rateHz = 0;
    std::vector<std::complex<float>> samples;
};

/// A recording whose centre stands at `frequencyHz`, repeated without end. A sample of magnitude 1
/// (full scale of the file's format) has the level `levelDbm`.
struct Recording {
    double frequencyHz = 0;
    double levelDbm = -60;
    std::shared_ptr<const Waveform> waveform;
};

using Emitter = std::variant<Tone, FmStation, AmStation, Burst, Recording>;

/// What the antenna sees. Scene time is 0 at the first sample of each capture, so that captures of one
/// scene are alike. Levels are at the antenna, frequencies absolute.
struct Scene {
    std::vector<Emitter> emitters;
    std::optional<double> noiseDbmPerHz;

    // One for each kind: the variant is built in one place, which keeps callers free of its code.
    Scene& add(const Tone& tone);
    Scene& add(const FmStation& station);
    Scene& add(const AmStation& station);
    Scene& add(const Burst& burst);
    Scene& add(const Recording& recording);
    Scene& tone(double frequencyHz, double levelDbm);
    Scene& noise(double dbmPerHz);
};

/// Reads a file of `format` "cs16" (little-endian), "cs8" or "cu8". Full scale is 32768, 128, or 127.5
/// about 127.5. Throws std::runtime_error when the file cannot be read or is empty.
std::shared_ptr<const Waveform> readRecording(const std::string& path, const std::string& format,
                                              double rateHz);

/// Reads a scene from a JSON file (simulator/README.md tells its form). Paths in it are relative to the
/// file. Throws std::runtime_error with a text that names the file and what is wrong.
Scene readScene(const std::string& path);

}  // namespace vnksim
