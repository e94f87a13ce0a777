#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "tools/spectrum.h"

namespace cli {

/// What a waterfall shows: levels over frequency and time, of bounded size however long it grows. Each cell
/// is the strongest level that fell into it.
class Waterfall {
 public:
    explicit Waterfall(size_t columns = 1024, size_t rows = 512) : muColumns(columns), muMostRows(rows) {}

    /// Times are in nanoseconds.
    void feed(const float* levels, size_t count, uint64_t time);
    size_t columns() const { return muShown; }
    size_t rows() const { return mlRows.size(); }
    /// The first row is the oldest.
    float level(size_t row, size_t column) const { return mlRows[row].levels[column]; }
    uint64_t firstTime() const { return mlRows.empty() ? 0 : mlRows.front().time; }
    uint64_t lastTime() const { return muLastTime; }

 private:
    struct Row {
        uint64_t time;
        std::vector<float> levels;
    };
    void halve();

    size_t muColumns, muMostRows, muShown = 0;
    size_t muPerRow = 1, muInRow = 0;  ///< spectra: of each row, and in the newest
    uint64_t muLastTime = 0;
    std::vector<Row> mlRows;
};

/// Strongest and mean level of each point over all spectra of one shape.
class SpectrumHistory {
 public:
    /// Spectra of another shape than the first are not counted in.
    bool feed(const float* levels, size_t count, uint64_t time);
    size_t spectra() const { return muSpectra; }
    size_t points() const { return mlStrongest.size(); }
    const Waterfall& waterfall() const { return mcWaterfall; }

    /// The strongest levels; the edges are the frequencies of the first and the last point.
    Spectrum strongest(double lowHz, double highHz) const;
    /// The levels of the mean power.
    Spectrum mean(double lowHz, double highHz) const;

 private:
    Spectrum shaped(double lowHz, double highHz) const;

    size_t muSpectra = 0;
    std::vector<float> mlStrongest, mlMeanPower;
    Waterfall mcWaterfall;
};

/// The mean level of the noise in a bin, from the median of a mean spectrum: the median of few averages of
/// noise is below their mean.
double noiseFloor(const Spectrum& mean);

}  // namespace cli
