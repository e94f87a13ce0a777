#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace cli {

/// What a sweep covers, in hertz.
struct SweepSpan {
    double minimumHz = 0, maximumHz = 0;
    double rbwHz = 0;

    double widthHz() const { return maximumHz - minimumHz; }
};

/// "88M:108M:10k": lower edge, upper edge, resolution bandwidth; without the last, the default one. Nothing
/// when it is not understood. The edges may stand in the wrong order, and then do so in the result.
std::optional<SweepSpan> parseSpan(std::string_view text);

/// For a picture of a span: about a two-thousandth of it, as 1, 2 or 5 times a power of ten, 100 Hz to 1 MHz.
double defaultRbw(double widthHz);

/// A window of the library, by name.
struct SweepWindow {
    std::string name;
    double lobeBins = 4;  ///< from the middle of a tone's lobe to the end of what belongs to it
};
const std::vector<SweepWindow>& sweepWindows();
inline constexpr const char* kDefaultWindow = "nuttall";

enum class SpectrumFormat { csv, jsonl, f32 };

/// How spectra are made of IQ.
struct IqSpectra {
    bool recorded = false;            ///< not of a unit
    double overlap = 0.5;             ///< of the pieces that are transformed
    bool follow = false;              ///< one spectrum of each frame, as long as it allows
    std::optional<uint32_t> average;  ///< traces are wanted, their average of so many spectra
};

/// What was asked of a sweep.
struct SweepRequest {
    std::string address;  ///< of the unit, or the name of the recording
    std::optional<IqSpectra> iq;
    SweepSpan span;
    double referenceDbm = -30;
    double calibrationDb = 0;
    std::string window = kDefaultWindow;
    bool flatten = false;
    uint32_t spectra = 0;           ///< 0: by time
    std::optional<double> seconds;  ///< without it: until interrupted, unless counted
    std::string path, picturePath;  ///< empty: none; "-": standard output
    SpectrumFormat format = SpectrumFormat::csv;

    double lobeBins() const;
};

/// What the name of a file tells about its format; csv if it tells nothing.
SpectrumFormat formatOfName(const std::string& path);

}  // namespace cli
