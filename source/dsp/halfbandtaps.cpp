#include "dsp/halfbandtaps.h"

#include <cmath>
#include <numbers>

// The method: a sinc under a Kaiser window,
//
//     h(n) = c sin(2 pi f n) / (2 pi f n) I0(b sqrt(1 - (n/128)^2)) / I0(b),    n = -128 ... 128
//
// where f is the cut-off (the -6 dB point) and c the centre tap, both piecewise linear in the bandwidth
// between the rows of 20, 30 and 40 MHz. The DC gain follows as nearly c / 2f. b sets the width of the
// transition: for each row it is the largest hundredth that keeps the response 40 dB below both unity and
// the DC gain from the row's 40 dB point on (0.0837, 0.125, 0.1661 of the rate at 20, 30, 40 MHz and on
// the straight lines between).

namespace {

struct Anchor {
    double mfBandwidthMHz;
    double mfCutOff;
    double mfCentreTap;
};

constexpr std::array<Anchor, 3> kAnchors = {{
    {20.0, 0.0783, 0.157042},
    {30.0, 0.1183, 0.23677},
    {40.0, 0.1583, 0.316644},
}};

constexpr std::array<double, IQConversionFilters::kRows> kKaiser = {4.66, 5.00, 5.36, 5.74, 6.12, 6.53,
                                                                    6.88, 7.25, 7.63, 8.02, 8.42};

/// Modified Bessel function of the first kind and order 0, by its power series.
double besselI0(double x) {
    const double fQuarter = x * x / 4.0;
    double fTerm = 1.0;
    double fSum = 1.0;
    for (int k = 1; fTerm > fSum * 1e-17; ++k) {
        fTerm *= fQuarter / (static_cast<double>(k) * k);
        fSum += fTerm;
    }
    return fSum;
}

IQConversionFilters::Row designRow(uint32_t uRow) {
    constexpr int kCentre = IQConversionFilters::kTaps / 2;
    const double fBandwidthMHz = 20.0 + 2.0 * uRow;
    const Anchor& cLow = kAnchors[uRow < 5 ? 0 : 1];
    const Anchor& cHigh = kAnchors[uRow < 5 ? 1 : 2];
    const double fPart = (fBandwidthMHz - cLow.mfBandwidthMHz) / (cHigh.mfBandwidthMHz - cLow.mfBandwidthMHz);
    const double fCutOff = std::lerp(cLow.mfCutOff, cHigh.mfCutOff, fPart);
    const double fCentreTap = std::lerp(cLow.mfCentreTap, cHigh.mfCentreTap, fPart);
    const double fShape = kKaiser[uRow];

    IQConversionFilters::Row cRow{static_cast<float>(fBandwidthMHz * 1e6), {}};
    cRow.mfTaps[kCentre] = static_cast<float>(fCentreTap);
    for (int n = 1; n <= kCentre; ++n) {
        const double x = 2.0 * std::numbers::pi * fCutOff * n;
        const double fPlace = static_cast<double>(n) / kCentre;
        const double fWindow = besselI0(fShape * std::sqrt(1.0 - fPlace * fPlace)) / besselI0(fShape);
        const auto fTap = static_cast<float>(fCentreTap * std::sin(x) / x * fWindow);
        cRow.mfTaps[static_cast<size_t>(kCentre + n)] = fTap;
        cRow.mfTaps[static_cast<size_t>(kCentre - n)] = fTap;
    }
    return cRow;
}

std::array<IQConversionFilters::Row, IQConversionFilters::kRows> designTable() {
    std::array<IQConversionFilters::Row, IQConversionFilters::kRows> cTable{};
    for (uint32_t uRow = 0; uRow < IQConversionFilters::kRows; ++uRow)
        cTable[uRow] = designRow(uRow);
    return cTable;
}

}  // namespace

namespace IQConversionFilters {

const std::array<Row, kRows>& table() {
    static const std::array<Row, kRows> cTable = designTable();
    return cTable;
}

const Row& rowFor(float fUsableWidthHz) {
    for (const Row& cRow : table())
        if (cRow.mfBandwidthHz >= fUsableWidthHz)
            return cRow;
    return table().back();
}

}  // namespace IQConversionFilters
