#pragma once

#include <cmath>
#include <functional>
#include <map>
#include <numbers>

#include "live/session.h"

// Spectrum streams against a simulated unit, and what their spectra have to be: computed here, in double
// precision, from the list that the unit was given and from the window's definition.

namespace live {

/// A spectrum record that gives itself back.
class SpectrumFrame {
 public:
    SpectrumFrame() = default;
    ~SpectrumFrame() { free(); }
    SpectrumFrame(const SpectrumFrame&) = delete;
    SpectrumFrame& operator=(const SpectrumFrame&) = delete;
    void free() {
        if (mpRecord)
            vnkFreeSpectrum(&mpRecord);
    }
    vnkSpectrumRecord** address() {
        free();
        return &mpRecord;
    }
    const vnkSpectrumRecord* operator->() const { return mpRecord; }
    std::vector<float> points() const { return {mpRecord->points, mpRecord->points + mpRecord->pointCount}; }
    double binHz() const { return (mpRecord->maximumHz - mpRecord->minimumHz) / (mpRecord->pointCount - 1.0); }
    double hertz(size_t i) const { return mpRecord->minimumHz + static_cast<double>(i) * binHz(); }

 private:
    vnkSpectrumRecord* mpRecord = nullptr;
};

/// A spectrum stream handle that closes itself.
class SpectrumStream {
 public:
    SpectrumStream(double minHz, double maxHz, double rbwHz, const char* pWindow = nullptr, double level = -30) {
        EXPECT_EQ(vnkCreateSpectrumStream(&muHandle, static_cast<float>(minHz), static_cast<float>(maxHz),
                                          static_cast<float>(rbwHz), pWindow, static_cast<float>(level)),
                  0);
    }
    ~SpectrumStream() { close(); }
    SpectrumStream(const SpectrumStream&) = delete;
    SpectrumStream& operator=(const SpectrumStream&) = delete;
    uint32_t handle() const { return muHandle; }
    int32_t close() { return muHandle == VNK_INVALID_HANDLE ? 0 : vnkClose(&muHandle); }
    int32_t attach(const Device& cDevice) { return vnkAttachStreamToDevice(muHandle, cDevice.handle()); }
    int32_t detach() { return vnkDetachStream(muHandle); }
    int32_t read(SpectrumFrame& cFrame, uint32_t uTimeoutMs = 1000) {
        return vnkGetNextSpectrum(muHandle, cFrame.address(), uTimeoutMs);
    }
    /// The next frame, within a generous limit.
    bool next(SpectrumFrame& cFrame) {
        return vnktest::waitUntil([&] { return read(cFrame, 500) == 0; });
    }
    int32_t set(const std::string& parameters) {
        Text cText(parameters);
        return vnkSetParameters(muHandle, cText.address());
    }
    std::string parameters() const {
        Text cText;
        vnkGetParameters(muHandle, cText.address());
        return cText.str();
    }

 private:
    uint32_t muHandle = VNK_INVALID_HANDLE;
};

/// A sum of cosines, by its coefficients.
inline std::vector<double> windowTerms(const std::string& name) {
    static const std::map<std::string, std::vector<double>> kTerms = {
        {"rectangular", {1.0}},
        {"hann", {0.5, -0.5}},
        {"hamming", {0.54, -0.46}},
        {"nuttall", {0.355768, -0.487396, 0.144232, -0.012604}},
        {"blackmanharris", {0.35875, -0.48829, 0.14128, -0.01168}},
        {"flattop", {1.0, -1.93, 1.29, -0.388, 0.032}},
    };
    return kTerms.at(name);
}

/// Equivalent noise bandwidth in bins.
inline double noiseBandwidth(const std::string& window) {
    const std::vector<double> lTerms = windowTerms(window);
    double sum = lTerms[0] * lTerms[0];
    for (size_t k = 1; k < lTerms.size(); ++k)
        sum += lTerms[k] * lTerms[k] / 2;
    return sum / (lTerms[0] * lTerms[0]);
}

/// Loss in dB of a tone that lies so many bins beside one.
inline double scallopingLoss(const std::string& window, double bins) {
    const std::vector<double> lTerms = windowTerms(window);
    constexpr size_t kPoints = 4096;
    std::complex<double> cSum = 0;
    double weight = 0;
    for (size_t i = 0; i < kPoints; ++i) {
        const double turns = static_cast<double>(i) / kPoints;
        double w = 0;
        for (size_t k = 0; k < lTerms.size(); ++k)
            w += lTerms[k] * std::cos(2 * std::numbers::pi * static_cast<double>(k) * turns);
        cSum += std::polar(w, 2 * std::numbers::pi * bins * turns);
        weight += w;
    }
    return -20 * std::log10(std::abs(cSum) / weight);
}

inline constexpr double kNyquistHz = 62.5e6;
inline constexpr double kIfHz = 35e6;

/// Where the points of a spectrum come from: the blocks of the list that the unit holds, and which bins of each
/// one must have been kept.
class Layout {
 public:
    struct Block {
        bool mbDirect;
        double mfCentreHz;
        long miFirst, miLast;   // kept bins
        long miOffset;          // of the first one in the spectrum
    };

    Layout(const vnksim::UnitState& cState, const SpectrumFrame& cFrame, const std::string& window)
        : mcWindow(window), mfToldBinHz(static_cast<double>(cFrame->rbwHz) / noiseBandwidth(window)) {
        miHalf = 1L << std::lround(std::log2(kNyquistHz / mfToldBinHz));
        mfBinHz = kNyquistHz / static_cast<double>(miHalf);
        mfToldBinHz = kNyquistHz / static_cast<double>(miHalf - 1);
        long iOffset = 0;
        for (const vnksim::SweepEntry& cEntry : cState.list)
            iOffset = addEntry(cEntry, cFrame, iOffset);
        mlBlocks.back().miLast += static_cast<long>(cFrame->pointCount) - iOffset;
    }

    double binHz() const { return mfBinHz; }
    double toldBinHz() const { return mfToldBinHz; }
    long half() const { return miHalf; }
    const std::vector<Block>& blocks() const { return mlBlocks; }

    /// Frequency on the air that falls into the middle of a block's bin.
    double hertz(const Block& cBlock, double bin) const {
        return bin * mfBinHz + (cBlock.mbDirect ? 0 : cBlock.mfCentreHz - kIfHz);
    }
    /// The bin, with its fraction, that a frequency falls into.
    double bin(const Block& cBlock, double hz) const {
        return (hz - hertz(cBlock, 0)) / mfBinHz;
    }
    /// The point at which a tone must stand highest, and how far beside it it lies, in bins.
    std::pair<size_t, double> expected(double hz) const {
        std::pair<size_t, double> cBest{0, 1e9};
        for (const Block& cBlock : mlBlocks) {
            const double place = bin(cBlock, hz);
            const long iBin = std::clamp(std::lround(place), cBlock.miFirst, cBlock.miLast);
            const double beside = place - static_cast<double>(iBin);
            if (std::abs(beside) < std::abs(cBest.second))
                cBest = {static_cast<size_t>(cBlock.miOffset + iBin - cBlock.miFirst), beside};
        }
        return cBest;
    }
    /// The level at that point.
    double level(double dBm, double beside) const {
        return dBm - 10 * std::log10(noiseBandwidth(mcWindow)) - scallopingLoss(mcWindow, beside);
    }

 private:
    long addEntry(const vnksim::SweepEntry& cEntry, const SpectrumFrame& cFrame, long iOffset) {
        if (cEntry.directDigitization) {
            const long iFirst = std::lround(cFrame->minimumHz / mfToldBinHz - 0.5);
            const double stop = std::min(cFrame->maximumHz + mfToldBinHz, 50e6);
            const long iLast = static_cast<long>(std::floor(stop / mfToldBinHz - 0.5));
            mlBlocks.push_back({true, 0, iFirst, iLast, iOffset});
            return iOffset + iLast - iFirst + 1;
        }
        const long iFirst = static_cast<long>(std::floor(17e6 / mfToldBinHz));
        const long iLast = static_cast<long>(std::ceil(53e6 / mfToldBinHz));
        for (uint64_t uCentre = cEntry.centreFirst; uCentre <= cEntry.centreLast; uCentre += cEntry.centreStep) {
            mlBlocks.push_back({false, static_cast<double>(uCentre), iFirst, iLast, iOffset});
            iOffset += iLast - iFirst + 1;
        }
        return iOffset;
    }

    std::string mcWindow;
    double mfToldBinHz;
    double mfBinHz = 0;
    long miHalf = 0;
    std::vector<Block> mlBlocks;
};

/// The points that stand above both their neighbours and a level.
inline std::vector<size_t> peaksAbove(const std::vector<float>& lPoints, double dBm) {
    std::vector<size_t> lPeaks;
    for (size_t i = 1; i + 1 < lPoints.size(); ++i)
        if (static_cast<double>(lPoints[i]) > dBm && lPoints[i] > lPoints[i - 1] && lPoints[i] >= lPoints[i + 1])
            lPeaks.push_back(i);
    return lPeaks;
}

/// A unit that sends its packets no faster than a small machine takes them.
inline vnksim::UnitOptions sweepOptions(const std::string& model = "ZV150-C") {
    vnksim::UnitOptions cOptions = options(model);
    cOptions.corrections.signalSize = 0;   // a short open
    cOptions.pace = vnksim::Pace::limited;
    cOptions.rateLimit = 10e6;
    return cOptions;
}

/// A unit that is opened.
class Radio {
 public:
    explicit Radio(vnksim::UnitOptions cOptions = sweepOptions(), const vnksim::Scene& cScene = {})
        : mcUnit((cOptions), cScene) {
        mcUnit.start();
        mpDevice = std::make_unique<Device>(mcUnit.options().address);
        EXPECT_EQ(mpDevice->status(), 0) << log();
        log();
    }
    vnksim::Unit& unit() { return mcUnit; }
    Device& device() { return *mpDevice; }
    vnksim::Journal& journal() { return mcUnit.journal(); }
    void fault(const std::string& text) { EXPECT_TRUE(mcUnit.faults().apply(text)) << text; }

 private:
    vnksim::Unit mcUnit;
    std::unique_ptr<Device> mpDevice;
};

}  // namespace live
