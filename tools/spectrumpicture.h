#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/canvas.h"
#include "tools/peaks.h"
#include "tools/spectrumhistory.h"

namespace cli {

/// What a picture shows.
struct PictureContent {
    std::string title;     ///< large
    std::string source;    ///< at the right of it
    std::string settings;  ///< small, under both
    double lowHz = 0, highHz = 0;
    const Spectrum* strongest = nullptr;
    const Spectrum* mean = nullptr;
    const Waterfall* waterfall = nullptr;
    double floorDbm = -1000;
    double binHz = 0;
    std::vector<Peak> peaks = {};
    const Spectrum* weakest = nullptr;  ///< null: not shown
};

/// A spectrum with its waterfall under it, over one frequency axis.
struct PictureLayout {
    int width = 1280, height = 900;
    Box spectrum{78, 76, 1200, 506};
    Box waterfall{78, 556, 1200, 846};
    Box scale{1210, 556, 1222, 846};  ///< of the waterfall's colours

    /// Where a frequency stands.
    double x(const PictureContent& content, double hertz) const {
        return spectrum.left + (hertz - content.lowHz) / (content.highHz - content.lowHz) * spectrum.width();
    }
};

/// Levels from bottom to top of the spectrum's field.
struct LevelRange {
    double low = 0, high = 0;
};
LevelRange pictureLevels(const PictureContent& content);

/// The colours of the strongest levels, the mean, the marks and the weakest levels, 0xRRGGBB.
inline constexpr uint32_t kStrongestColour = 0x2a6fb0, kMeanColour = 0x14273d, kMarkerColour = 0xc2261c,
                          kWeakestColour = 0x2f8f5b;

/// A PNG file.
std::vector<uint8_t> drawPicture(const PictureContent& content, const PictureLayout& layout = {});

}  // namespace cli
