// Pictures are read back with Cairo's own reader and looked at pixel by pixel.
#include "tools/spectrumpicture.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>

using namespace cli;

namespace {

class Image {
 public:
    explicit Image(const std::vector<uint8_t>& png) : mcReader{png.data(), png.size()} {
        mcSurface.reset(cairo_image_surface_create_from_png_stream(read, &mcReader));
    }
    bool good() const { return cairo_surface_status(mcSurface.get()) == CAIRO_STATUS_SUCCESS; }
    int width() const { return cairo_image_surface_get_width(mcSurface.get()); }
    int height() const { return cairo_image_surface_get_height(mcSurface.get()); }
    uint32_t at(int x, int y) const {
        uint32_t uPixel = 0;
        std::memcpy(&uPixel,
                    cairo_image_surface_get_data(mcSurface.get()) +
                        y * cairo_image_surface_get_stride(mcSurface.get()) + 4 * x,
                    4);
        return uPixel & 0xFFFFFF;
    }

 private:
    struct Reader {
        const uint8_t* at;
        size_t left;
    };
    static cairo_status_t read(void* reader, unsigned char* data, unsigned int length) {
        auto& source = *static_cast<Reader*>(reader);
        if (length > source.left)
            return CAIRO_STATUS_READ_ERROR;
        std::memcpy(data, source.at, length);
        source.at += length;
        source.left -= length;
        return CAIRO_STATUS_SUCCESS;
    }

    Reader mcReader;
    std::unique_ptr<cairo_surface_t, void (*)(cairo_surface_t*)> mcSurface{nullptr, cairo_surface_destroy};
};

int distance(uint32_t a, uint32_t b) {
    int iSum = 0;
    for (const int iShift : {0, 8, 16})
        iSum += std::abs(static_cast<int>(a >> iShift & 255) - static_cast<int>(b >> iShift & 255));
    return iSum;
}

/// More light means more level.
int brightness(uint32_t rgb) {
    return static_cast<int>((rgb >> 16) + (rgb >> 8 & 255) + (rgb & 255));
}

constexpr double kLowHz = 88e6, kHighHz = 108e6;
constexpr size_t kPoints = 4001;

/// A noise floor of -110 dBm with one tone, the same in each of some spectra.
struct Scene {
    SpectrumHistory history;
    Spectrum strongest, mean;
    PictureContent content;

    Scene(double toneHz, int spectra, size_t points = kPoints) {
        std::mt19937 random(3);
        std::exponential_distribution<float> power(1);
        const auto uTone = static_cast<size_t>(
            std::lround((toneHz - kLowHz) / (kHighHz - kLowHz) * static_cast<double>(points - 1)));
        for (int s = 0; s < spectra; ++s) {
            std::vector<float> levels(points);
            for (float& fLevel : levels)
                fLevel = -110 + 10 * std::log10(power(random));
            levels[uTone] = -35;
            history.feed(levels.data(), levels.size(), static_cast<uint64_t>(s) * 50000000);
        }
        strongest = history.strongest(kLowHz, kHighHz);
        mean = history.mean(kLowHz, kHighHz);
        content = {"88 MHz to 108 MHz",
                   "a unit",
                   "settings",
                   kLowHz,
                   kHighHz,
                   &strongest,
                   &mean,
                   &history.waterfall(),
                   noiseFloor(mean),
                   strongest.binHz,
                   findPeaks(strongest, {})};
    }
};

/// Columns of the spectrum's field in which the strongest levels are drawn at a height in pixels.
std::vector<int> columnsOfTrace(const Image& image, const PictureLayout& layout, int y) {
    std::vector<int> columns;
    for (int x = static_cast<int>(layout.spectrum.left) + 2; x < static_cast<int>(layout.spectrum.right) - 2;
         ++x)
        if (distance(image.at(x, y), kStrongestColour) < 120)
            columns.push_back(x);
    return columns;
}

double levelToY(const PictureContent& content, const PictureLayout& layout, double dbm) {
    const LevelRange range = pictureLevels(content);
    return layout.spectrum.bottom - (dbm - range.low) / (range.high - range.low) * layout.spectrum.height();
}

}  // namespace

TEST(SpectrumPicture, IsAPngOfItsSize) {
    const Scene scene(98e6, 3);
    const auto png = drawPicture(scene.content);
    ASSERT_GT(png.size(), 1000u);
    const std::vector<uint8_t> signature{0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    EXPECT_TRUE(std::equal(signature.begin(), signature.end(), png.begin()));
    const Image image(png);
    ASSERT_TRUE(image.good());
    EXPECT_EQ(image.width(), PictureLayout().width);
    EXPECT_EQ(image.height(), PictureLayout().height);
}

TEST(SpectrumPicture, APeakStandsAtItsFrequencyAndLevel) {
    const PictureLayout layout;
    for (const double dTone : {89e6, 95.123e6, 98e6, 107.5e6}) {
        const Scene scene(dTone, 3);
        ASSERT_EQ(scene.content.peaks.size(), 1u);
        const Image image(drawPicture(scene.content));
        ASSERT_TRUE(image.good());
        const double dX = layout.x(scene.content, dTone);
        const int iHalfWay = static_cast<int>(levelToY(scene.content, layout, -60));
        const std::vector<int> columns = columnsOfTrace(image, layout, iHalfWay);
        ASSERT_FALSE(columns.empty()) << dTone;
        for (const int iColumn : columns)
            EXPECT_NEAR(iColumn + 0.5, dX, 2) << dTone;
        const int iTop = static_cast<int>(levelToY(scene.content, layout, -35));
        const int iColumn = columns[columns.size() / 2];
        EXPECT_LT(distance(image.at(iColumn, iTop + 8), kStrongestColour), 160) << "just below the top";
        // The marker stands on it.
        EXPECT_LT(distance(image.at(static_cast<int>(dX), iTop - 7), kMarkerColour), 60) << dTone;
    }
}

TEST(SpectrumPicture, TheWaterfallIsBrightWhereTheToneIs) {
    const PictureLayout layout;
    const Scene scene(101e6, 20);
    const Image image(drawPicture(scene.content));
    const int iX = static_cast<int>(layout.x(scene.content, 101e6));
    for (int y = static_cast<int>(layout.waterfall.top) + 3;
         y < static_cast<int>(layout.waterfall.bottom) - 3; y += 7) {
        int iBrightest = 0, iAt = 0;
        for (int x = static_cast<int>(layout.waterfall.left) + 2;
             x < static_cast<int>(layout.waterfall.right) - 2; ++x)
            if (brightness(image.at(x, y)) > iBrightest) {
                iBrightest = brightness(image.at(x, y));
                iAt = x;
            }
        EXPECT_NEAR(iAt, iX, 2) << y;
        EXPECT_GT(iBrightest, 3 * brightness(image.at(iX - 60, y))) << y;
    }
}

TEST(SpectrumPicture, TimeRunsDownTheWaterfall) {
    SpectrumHistory history;
    for (int s = 0; s < 10; ++s) {
        std::vector<float> levels(kPoints, -110.0f);
        if (s >= 5)
            levels[kPoints / 2] = -40;
        history.feed(levels.data(), levels.size(), static_cast<uint64_t>(s) * 100000000);
    }
    Scene scene(98e6, 1);
    scene.content.waterfall = &history.waterfall();
    const PictureLayout layout;
    const Image image(drawPicture(scene.content));
    const int iX = static_cast<int>(layout.x(scene.content, 98e6));
    const double dHeight = layout.waterfall.height();
    const auto columnBrightness = [&](double share) {
        int iBrightest = 0;
        for (int x = iX - 2; x <= iX + 2; ++x)
            iBrightest =
                std::max(iBrightest,
                         brightness(image.at(x, static_cast<int>(layout.waterfall.top + share * dHeight))));
        return iBrightest;
    };
    EXPECT_LT(columnBrightness(0.25), 200);
    EXPECT_GT(columnBrightness(0.75), 400);
}

TEST(SpectrumPicture, FewAndManyPointsAndOneSpectrumCanBeDrawn) {
    for (const size_t uPoints : {2u, 3u, 40u, 100000u})
        for (const int iSpectra : {1, 2}) {
            const Scene scene(98e6, iSpectra, uPoints);
            EXPECT_TRUE(Image(drawPicture(scene.content)).good()) << uPoints;
        }
}

TEST(SpectrumPicture, ManyPeaksInOnePlaceStayInTheField) {
    Scene scene(98e6, 2);
    for (size_t i = 0; i < 30; ++i)
        scene.content.peaks.push_back({kLowHz + 1000.0 * static_cast<double>(i), -40, -40});
    const PictureLayout layout;
    const Image image(drawPicture(scene.content));
    ASSERT_TRUE(image.good());
    for (int y = 0; y < image.height(); ++y)
        for (int x = static_cast<int>(layout.spectrum.right) + 8; x < image.width(); ++x)
            ASSERT_GT(distance(image.at(x, y), kMarkerColour), 60) << x << "," << y;
}

TEST(SpectrumPicture, SilenceCanBeDrawn) {
    SpectrumHistory history;
    const std::vector<float> levels(100, -std::numeric_limits<float>::infinity());
    history.feed(levels.data(), levels.size(), 0);
    const Spectrum strongest = history.strongest(1e6, 2e6), mean = history.mean(1e6, 2e6);
    const PictureContent content{
        "silence",       "", "", 1e6, 2e6, &strongest, &mean, &history.waterfall(), noiseFloor(mean),
        strongest.binHz, {}};
    EXPECT_TRUE(Image(drawPicture(content)).good());
}
