#include "tools/spectrumpicture.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "tools/axis.h"
#include "tools/units.h"

namespace cli {

namespace {

constexpr Colour kWhite{1, 1, 1}, kInk{0.12, 0.14, 0.18}, kFaint{0.42, 0.45, 0.5}, kGrid{0.88, 0.89, 0.91};
constexpr double kLabelSize = 12, kTickSize = 12;

constexpr Colour colourOf(uint32_t rgb, double alpha = 1) {
    return {static_cast<double>(rgb >> 16) / 255, static_cast<double>(rgb >> 8 & 255) / 255,
            static_cast<double>(rgb & 255) / 255, alpha};
}

/// From dark to bright, so that it reads in grey too.
uint32_t heat(double share) {
    static constexpr std::array<std::array<double, 3>, 6> kStops{
        {{10, 10, 38}, {44, 36, 116}, {28, 102, 150}, {58, 168, 130}, {236, 208, 84}, {255, 250, 228}}};
    const double dAt = std::clamp(share, 0.0, 1.0) * (kStops.size() - 1);
    const auto uStop = std::min(static_cast<size_t>(dAt), kStops.size() - 2);
    const double dPart = dAt - static_cast<double>(uStop);
    uint32_t uColour = 0;
    for (size_t i = 0; i < 3; ++i)
        uColour =
            uColour << 8 |
            static_cast<uint32_t>(std::lround(kStops[uStop][i] * (1 - dPart) + kStops[uStop + 1][i] * dPart));
    return uColour;
}

class Picture {
 public:
    Picture(const PictureContent& content, const PictureLayout& layout)
        : mcContent(content),
          mcLayout(layout),
          mcRange(pictureLevels(content)),
          mcCanvas(layout.width, layout.height, kWhite) {}

    std::vector<uint8_t> draw() {
        drawHeading();
        drawGrid();
        drawTraces();
        drawPeaks();
        drawLegend();
        drawWaterfall();
        drawScale();
        drawFrequencies(mcLayout.spectrum, false);
        drawFrequencies(mcLayout.waterfall, true);
        return mcCanvas.png();
    }

 private:
    double y(double dbm) const {
        const Box& field = mcLayout.spectrum;
        return field.bottom - (std::clamp(dbm, mcRange.low - 10, mcRange.high) - mcRange.low) /
                                  (mcRange.high - mcRange.low) * field.height();
    }

    void drawHeading() {
        const Box& field = mcLayout.spectrum;
        mcCanvas.text({field.left, 26}, mcContent.title, Anchor::left, 20, kInk, true);
        mcCanvas.text({field.right, 26}, mcContent.source, Anchor::right, 13, kFaint);
        mcCanvas.text({field.left, 52}, mcContent.settings, Anchor::left, 13, kFaint);
    }

    void drawGrid() {
        const Box& field = mcLayout.spectrum;
        for (const Axis::Tick& tick : makePlainAxis(mcRange.low, mcRange.high, 14, "dBm").ticks) {
            const double dY = y(tick.value);
            mcCanvas.line({field.left, dY}, {field.right, dY}, kGrid);
            mcCanvas.text({field.left - 8, dY}, tick.label, Anchor::right, kTickSize, kInk);
        }
        for (const Axis::Tick& tick : frequencies().ticks) {
            const double dX = mcLayout.x(mcContent, tick.value);
            mcCanvas.line({dX, field.top}, {dX, field.bottom}, kGrid);
        }
        mcCanvas.textUpwards({22, (field.top + field.bottom) / 2}, "level, dBm", 13, kInk);
    }

    Axis frequencies() const { return makeAxis(mcContent.lowHz, mcContent.highHz, 14, "Hz"); }

    void drawFrequencies(const Box& field, bool named) {
        mcCanvas.frame(field, kInk);
        const Axis axis = frequencies();
        for (const Axis::Tick& tick : axis.ticks) {
            const double dX = mcLayout.x(mcContent, tick.value);
            mcCanvas.line({dX, field.bottom}, {dX, field.bottom + 5}, kInk);
            mcCanvas.text({dX, field.bottom + 15}, tick.label, Anchor::centre, kTickSize, kInk);
        }
        const std::string title = "frequency, " + axis.unit;
        mcCanvas.text({(field.left + field.right) / 2, field.bottom + (named ? 36 : 34)}, title,
                      Anchor::centre, 13, kInk);
    }

    /// The strongest of the points that fall on each column of pixels; where points are rarer, the points.
    std::vector<Point> trace(const Spectrum& spectrum) const {
        std::vector<Point> points;
        const double dPerPoint =
            mcLayout.spectrum.width() / static_cast<double>(std::max<size_t>(spectrum.dbm.size(), 2) - 1);
        double dColumn = -1;
        for (size_t i = 0; i < spectrum.dbm.size(); ++i) {
            const double dX = mcLayout.spectrum.left + static_cast<double>(i) * dPerPoint;
            const double dY = y(spectrum.dbm[i]);
            if (dPerPoint < 1 && std::floor(dX) == dColumn) {
                points.back().y = std::min(points.back().y, dY);
                continue;
            }
            dColumn = std::floor(dX);
            points.push_back({dPerPoint < 1 ? dColumn + 0.5 : dX, dY});
        }
        return points;
    }

    void drawTraces() {
        const Box& field = mcLayout.spectrum;
        mcCanvas.clip(field);
        const std::vector<Point> strongest = trace(*mcContent.strongest);
        std::vector<Point> area = strongest;
        area.push_back({field.right, field.bottom});
        area.push_back({field.left, field.bottom});
        mcCanvas.polygon(area, colourOf(kStrongestColour, 0.16));
        if (mcContent.weakest)
            mcCanvas.polyline(trace(*mcContent.weakest), colourOf(kWeakestColour), 1);
        if (hasMean())
            mcCanvas.polyline(trace(*mcContent.mean), colourOf(kMeanColour, 0.75), 1);
        mcCanvas.polyline(strongest, colourOf(kStrongestColour), 1.3);
        mcCanvas.unclip();
    }

    bool hasMean() const { return mcContent.mean != nullptr && mcContent.mean->averages > 1; }

    void drawLegend() {
        struct Entry {
            std::string text;
            Colour colour;
        };
        std::vector<Entry> entries{{hasMean() ? "strongest" : "spectrum", colourOf(kStrongestColour)}};
        if (hasMean())
            entries.push_back({"mean", colourOf(kMeanColour, 0.75)});
        if (mcContent.weakest)
            entries.push_back({"weakest", colourOf(kWeakestColour)});
        double dX = mcLayout.spectrum.right;
        for (auto it = entries.rbegin(); it != entries.rend(); ++it) {
            mcCanvas.text({dX, 52}, it->text, Anchor::right, 13, kFaint);
            dX -= mcCanvas.textWidth(it->text, 13) + 8;
            mcCanvas.rectangle({dX - 22, 51, dX, 53}, it->colour);
            dX -= 40;
        }
    }

    void drawPeaks() {
        for (size_t i = 0; i < mcContent.peaks.size(); ++i)
            mark(mcContent.peaks[i]);
        for (size_t i = 0; i < mcContent.peaks.size(); ++i)
            label(mcContent.peaks[i], std::to_string(i + 1));
    }

    Point place(const Peak& peak) const { return {mcLayout.x(mcContent, peak.frequencyHz), y(peak.dbm)}; }

    void mark(const Peak& peak) {
        const Point at = place(peak);
        mcCanvas.polygon({{at.x, at.y - 2}, {at.x - 5, at.y - 11}, {at.x + 5, at.y - 11}},
                         colourOf(kMarkerColour));
        mlTaken.push_back({at.x - 6, at.y - 11, at.x + 6, at.y});
    }

    struct Label {
        std::string number, frequency, level;
        double indent = 0;  ///< of what stands behind the number
        Box box;
    };

    /// As near to its marker as no other label stands; better where it hides no peak; else the number alone.
    void label(const Peak& peak, const std::string& number) {
        Label label{number,
                    formatPeakFrequency(peak.frequencyHz, mcContent.binHz),
                    formatFixed(peak.dbm, 1) + " dBm",
                    mcCanvas.textWidth(number, kLabelSize, true) + 6,
                    {}};
        const double dWidth = label.indent + std::max(mcCanvas.textWidth(label.frequency, kLabelSize),
                                                      mcCanvas.textWidth(label.level, kLabelSize));
        const Point at = place(peak);
        for (const bool bHidesNone : {true, false})
            for (const double dUp : {0.0, 34.0, 68.0, 102.0, 136.0})
                for (const double dAcross : {0.0, 45.0, -45.0, 90.0, -90.0, 135.0, -135.0, 180.0, 225.0}) {
                    const double dLeft = at.x - dWidth / 2 + dAcross, dBottom = at.y - 13 - dUp;
                    label.box = {dLeft, dBottom - 30, dLeft + dWidth, dBottom};
                    if (isFree(label.box) && !(bHidesNone && hidesPeak(label.box)))
                        return put(label, at);
                }
        mcCanvas.text({at.x, at.y - 19}, number, Anchor::centre, kLabelSize, colourOf(kMarkerColour), true);
    }

    void put(const Label& label, Point at) {
        const Box& box = label.box;
        constexpr double kApart = 6;
        mlTaken.push_back({box.left - kApart, box.top, box.right + kApart, box.bottom});
        if (at.x < box.left || at.x > box.right || box.bottom < at.y - 30)
            mcCanvas.line({at.x, at.y - 11}, {std::clamp(at.x, box.left, box.right), box.bottom},
                          colourOf(kMarkerColour, 0.5));
        mcCanvas.rectangle(box, {1, 1, 1, 0.75});
        mcCanvas.text({box.left, box.top + 8}, label.number, Anchor::left, kLabelSize,
                      colourOf(kMarkerColour), true);
        mcCanvas.text({box.left + label.indent, box.top + 8}, label.frequency, Anchor::left, kLabelSize,
                      kInk);
        mcCanvas.text({box.left + label.indent, box.top + 22}, label.level, Anchor::left, kLabelSize, kFaint);
    }

    bool hidesPeak(const Box& box) const {
        return std::any_of(mcContent.peaks.begin(), mcContent.peaks.end(), [&](const Peak& peak) {
            const Point at = place(peak);
            return box.meets({at.x - 3, at.y, at.x + 3, mcLayout.spectrum.bottom});
        });
    }

    bool isFree(const Box& box) const {
        const Box& field = mcLayout.spectrum;
        const Box inside{field.left + 3, field.top + 3, field.right - 3, field.bottom - 3};
        return inside.holds(box) && std::none_of(mlTaken.begin(), mlTaken.end(),
                                                 [&](const Box& taken) { return taken.meets(box); });
    }

    /// Levels that the colours tell apart: from a little below the noise to the strongest.
    LevelRange heatRange() const {
        const double dLow = mcContent.floorDbm > -999 ? mcContent.floorDbm - 3 : mcRange.low;
        double dHigh = dLow + 20;
        for (const double dLevel : mcContent.strongest->dbm)
            dHigh = std::max(dHigh, dLevel);
        return {dLow, dHigh};
    }

    void drawWaterfall() {
        const Waterfall& waterfall = *mcContent.waterfall;
        const LevelRange range = heatRange();
        std::vector<uint32_t> pixels;
        pixels.reserve(waterfall.rows() * waterfall.columns());
        for (size_t r = 0; r < waterfall.rows(); ++r)
            for (size_t c = 0; c < waterfall.columns(); ++c) {
                const auto dLevel = static_cast<double>(waterfall.level(r, c));
                pixels.push_back(heat((dLevel - range.low) / (range.high - range.low)));
            }
        mcCanvas.image(mcLayout.waterfall, pixels, static_cast<int>(waterfall.columns()),
                       static_cast<int>(waterfall.rows()));
        drawTimes();
    }

    void drawTimes() {
        const Box& field = mcLayout.waterfall;
        const Waterfall& waterfall = *mcContent.waterfall;
        // A unit's clock may be set back meanwhile.
        const uint64_t uLast = std::max(waterfall.lastTime(), waterfall.firstTime());
        const double dSeconds = static_cast<double>(uLast - waterfall.firstTime()) / 1e9;
        const Axis axis = makeAxis(0, dSeconds, 8, "s");
        for (const Axis::Tick& tick : axis.ticks) {
            const double dY = field.top + tick.value / dSeconds * field.height();
            mcCanvas.line({field.left - 5, dY}, {field.left, dY}, kInk);
            mcCanvas.text({field.left - 8, dY}, tick.label, Anchor::right, kTickSize, kInk);
        }
        mcCanvas.textUpwards({22, (field.top + field.bottom) / 2},
                             axis.ticks.empty() ? "time" : "time, " + axis.unit, 13, kInk);
    }

    void drawScale() {
        const Box& box = mcLayout.scale;
        const LevelRange range = heatRange();
        constexpr int kSteps = 256;
        std::vector<uint32_t> pixels;
        for (int i = 0; i < kSteps; ++i)
            pixels.push_back(heat(1 - static_cast<double>(i) / (kSteps - 1)));
        mcCanvas.image(box, pixels, 1, kSteps);
        mcCanvas.frame(box, kInk);
        for (const Axis::Tick& tick : makePlainAxis(range.low, range.high, 10, "dBm").ticks) {
            const double dY = box.bottom - (tick.value - range.low) / (range.high - range.low) * box.height();
            mcCanvas.line({box.right, dY}, {box.right + 4, dY}, kInk);
            mcCanvas.text({box.right + 7, dY}, tick.label, Anchor::left, kTickSize, kInk);
        }
        mcCanvas.text({(box.left + box.right) / 2, box.bottom + 15}, "dBm", Anchor::centre, kTickSize, kInk);
    }

    const PictureContent& mcContent;
    const PictureLayout& mcLayout;
    LevelRange mcRange;
    Canvas mcCanvas;
    std::vector<Box> mlTaken;  ///< by markers and labels
};

}  // namespace

LevelRange pictureLevels(const PictureContent& content) {
    double dHighest = -1000;
    for (const double dLevel : content.strongest->dbm)
        dHighest = std::max(dHighest, dLevel);
    if (dHighest <= -999)
        return {-100, 0};
    // Room for labels above the strongest, and for noise below its mean.
    const double dFloor = content.floorDbm > -999 ? content.floorDbm : dHighest - 60;
    LevelRange range;
    range.high = std::ceil((dHighest + (dHighest - dFloor) * 0.12 + 2) / 10) * 10;
    range.low = std::floor((dFloor - 5) / 10) * 10;
    range.low = std::min(range.low, range.high - 40);
    return range;
}

std::vector<uint8_t> drawPicture(const PictureContent& content, const PictureLayout& layout) {
    std::vector<uint8_t> png = Picture(content, layout).draw();
    releaseDrawingCaches();
    return png;
}

}  // namespace cli
