#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <complex>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

// The pair of files that a recording is, written and read by hand: nothing of the library's is used here.

namespace recordings {

/// A folder of its own that goes with the object.
class Folder {
 public:
    Folder() : mcPath(testing::TempDir() + "vnk-pairs-XXXXXX") {
        if (!::mkdtemp(mcPath.data()))
            throw std::runtime_error("no folder could be made in " + testing::TempDir());
    }
    ~Folder() {
        std::error_code cIgnored;
        std::filesystem::remove_all(mcPath, cIgnored);
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    const std::string& path() const { return mcPath; }
    /// As a caller of the library names a file here: the folder stands before the backslash.
    std::string name(const std::string& file) const { return mcPath + "\\" + file; }
    std::string native(const std::string& file) const { return mcPath + "/" + file; }
    bool has(const std::string& file) const { return std::filesystem::exists(native(file)); }

 private:
    std::string mcPath;
};

inline std::string readFile(const std::string& native) {
    std::ifstream cFile(native, std::ios::binary);
    return {std::istreambuf_iterator<char>(cFile), std::istreambuf_iterator<char>()};
}

inline void writeFile(const std::string& native, const std::string& bytes) {
    std::ofstream(native, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

// The data side.

struct IQ {
    uint64_t muTime = 0;
    uint32_t muSequence = 0;
    std::vector<std::complex<float>> mlSamples;
};

struct Spectrum {
    uint64_t muTime = 0;
    uint64_t muDuration = 0;
    uint32_t muSequence = 0;
    std::vector<float> mlPoints;
};

struct Baseband {
    std::vector<std::vector<float>> mlChannels;
};

inline constexpr uint32_t kIQMarker = 0x12F7A2E6;
inline constexpr uint32_t kSpectrumMarker = 0x59EC7422;
inline constexpr uint32_t kBasebandMarker = 0xBA5EBA4D;

template <typename T>
void append(std::string& bytes, T uValue) {
    for (size_t i = 0; i < sizeof(T); ++i)
        bytes.push_back(static_cast<char>(static_cast<uint64_t>(uValue) >> (8 * i)));
}

template <typename T>
void appendArray(std::string& bytes, const std::vector<T>& lValues) {
    static_assert(std::endian::native == std::endian::little);
    if (!lValues.empty())
        bytes.append(reinterpret_cast<const char*>(lValues.data()), lValues.size() * sizeof(T));
}

inline std::string bytesOf(const IQ& cFrame) {
    std::string bytes;
    append(bytes, kIQMarker);
    append(bytes, cFrame.muTime);
    append(bytes, cFrame.muSequence);
    append(bytes, static_cast<uint32_t>(cFrame.mlSamples.size()));
    appendArray(bytes, cFrame.mlSamples);
    return bytes;
}

inline std::string bytesOf(const Spectrum& cFrame) {
    std::string bytes;
    append(bytes, kSpectrumMarker);
    append(bytes, cFrame.muTime);
    append(bytes, cFrame.muDuration);
    append(bytes, cFrame.muSequence);
    append(bytes, static_cast<uint32_t>(cFrame.mlPoints.size()));
    appendArray(bytes, cFrame.mlPoints);
    return bytes;
}

inline std::string bytesOf(const Baseband& cFrame) {
    std::string bytes;
    append(bytes, kBasebandMarker);
    append(bytes, static_cast<uint32_t>(cFrame.mlChannels.empty() ? 0 : cFrame.mlChannels[0].size()));
    append(bytes, static_cast<uint32_t>(cFrame.mlChannels.size()));
    for (const std::vector<float>& lChannel : cFrame.mlChannels)
        appendArray(bytes, lChannel);
    return bytes;
}

template <typename Frame>
std::string bytesOf(const std::vector<Frame>& lFrames) {
    std::string bytes;
    for (const Frame& cFrame : lFrames)
        bytes += bytesOf(cFrame);
    return bytes;
}

template <typename T>
T numberAt(const std::string& bytes, size_t uOffset) {
    T cValue;
    std::memcpy(&cValue, bytes.data() + uOffset, sizeof cValue);
    return cValue;
}

/// The whole frames of a data file of IQ; `pRest` receives the bytes behind them.
inline std::vector<IQ> parseIQ(const std::string& bytes, std::string* pRest = nullptr) {
    constexpr size_t kHeader = 20;
    std::vector<IQ> lFrames;
    size_t uAt = 0;
    while (bytes.size() - uAt >= kHeader && numberAt<uint32_t>(bytes, uAt) == kIQMarker) {
        const size_t uCount = numberAt<uint32_t>(bytes, uAt + 16);
        if ((bytes.size() - uAt - kHeader) / 8 < uCount)
            break;
        IQ cFrame{numberAt<uint64_t>(bytes, uAt + 4), numberAt<uint32_t>(bytes, uAt + 12), {}};
        cFrame.mlSamples.resize(uCount);
        if (uCount > 0)
            std::memcpy(static_cast<void*>(cFrame.mlSamples.data()), bytes.data() + uAt + kHeader,
                        uCount * 8);
        uAt += kHeader + uCount * 8;
        lFrames.push_back(std::move(cFrame));
    }
    if (pRest)
        *pRest = bytes.substr(uAt);
    return lFrames;
}

// The text side.

/// A record in its written form: keys in byte order, a tab for each level, CR LF.
class Record {
 public:
    Record& text(const std::string& key, const std::string& value) { return literal(key, '"' + value + '"'); }
    Record& whole(const std::string& key, uint64_t uValue) { return literal(key, std::to_string(uValue)); }
    /// With the six digits that floats are written with.
    Record& number(const std::string& key, float fValue) {
        return literal(key, std::to_string(static_cast<double>(fValue)));
    }
    Record& literal(const std::string& key, const std::string& value) {
        mcEntries[key] = Entry{value, {}};
        return *this;
    }
    Record& nested(const std::string& key, const Record& cRecord) {
        mcEntries[key] = Entry{{}, {cRecord}};
        return *this;
    }
    Record& without(const std::string& key) {
        mcEntries.erase(key);
        return *this;
    }
    std::string pretty(const std::string& indent = {}) const {
        std::string all = "{";
        for (const auto& [key, cEntry] : mcEntries) {
            all += all.size() > 1 ? ",\r\n" : "\r\n";
            all += indent + "\t\"" + key + "\":";
            all += cEntry.mlNested.empty() ? cEntry.mcLiteral : cEntry.mlNested[0].pretty(indent + "\t");
        }
        return all + "\r\n" + indent + "}";
    }
    std::string compact() const {
        std::string all = "{";
        for (const auto& [key, cEntry] : mcEntries) {
            all += (all.size() > 1 ? ",\"" : "\"") + key + "\":";
            all += cEntry.mlNested.empty() ? cEntry.mcLiteral : cEntry.mlNested[0].compact();
        }
        return all + "}";
    }

 private:
    struct Entry {
        std::string mcLiteral;
        std::vector<Record> mlNested;
    };
    std::map<std::string, Entry> mcEntries;
};

struct Tuning {
    float mfCentreHz = 98.1e6f;
    float mfBandwidthHz = 200e3f;
    float mfSampleRateHz = 256e3f;
    float mfRefdBm = 0.0f;  // what a played frame has
    float mfRBWHz = 1000.0f;
    std::string mcUnits;
    std::string mcWindow = "hann";
};

inline Record sampling(const Tuning& c, const std::string& defaultUnits) {
    Record cRecord;
    cRecord.number("FCentreHz", c.mfCentreHz)
        .number("BandwidthHz", c.mfBandwidthHz)
        .number("RefdBm", c.mfRefdBm);
    cRecord.text("units", c.mcUnits.empty() ? defaultUnits : c.mcUnits);
    return cRecord;
}

/// When the samples of a frame end. A nanosecond counts as the single-precision constant.
inline uint64_t endOf(uint64_t uTime, size_t uSamples, float fRate) {
    const double fSeconds = static_cast<double>(uSamples) / static_cast<double>(fRate);
    return uTime + static_cast<uint64_t>(std::llround(fSeconds / static_cast<double>(1e-9f)));
}

inline Record describe(const std::vector<IQ>& lFrames, const Tuning& c = {}) {
    uint64_t uSamples = 0;
    for (const IQ& cFrame : lFrames)
        uSamples += cFrame.mlSamples.size();
    Record cSummary;
    cSummary.text("Encoding", "Complex<_float32> LE").text("TimeResolution", "ns").whole("Samples", uSamples);
    cSummary.whole("StartTimestamp", lFrames.front().muTime);
    cSummary.whole("EndTimestamp",
                   endOf(lFrames.back().muTime, lFrames.back().mlSamples.size(), c.mfSampleRateHz));
    Record cSampling = sampling(c, "sqrt-mw");
    cSampling.number("SampleRateHz", c.mfSampleRateHz);
    return Record().text("DataType", "IQ").nested("IQ", cSummary).nested("Sampling", cSampling);
}

inline Record describe(const std::vector<Spectrum>& lFrames, const Tuning& c = {}) {
    Record cSummary;
    cSummary.text("Encoding", "_float32 LE").text("TimeResolution", "ns").whole("Frames", lFrames.size());
    cSummary.whole("PointsPerFrame", lFrames.back().mlPoints.size());
    cSummary.whole("StartTimestamp", lFrames.front().muTime);
    cSummary.whole("EndTimestamp", lFrames.back().muTime + lFrames.back().muDuration);
    Record cSampling = sampling(c, "dBm");
    cSampling.number("RBWHz", c.mfRBWHz).text("WindowFn", c.mcWindow);
    return Record().text("DataType", "Spectrum").nested("Spectrum", cSummary).nested("Sampling", cSampling);
}

/// Of `lFrames` of one channel each that began at `uStart`.
inline Record describe(const std::vector<Baseband>& lFrames, const Tuning& c = {}, uint64_t uStart = 1000) {
    uint64_t uSamples = 0;
    for (const Baseband& cFrame : lFrames)
        uSamples += cFrame.mlChannels.empty() ? 0 : cFrame.mlChannels[0].size();
    Record cSummary;
    cSummary.text("Encoding", "_float32").text("TimeResolution", "ns").whole("Samples", uSamples);
    cSummary.whole("StartTimestamp", uStart).whole("EndTimestamp", endOf(uStart, uSamples, c.mfSampleRateHz));
    Record cSampling = sampling(c, "dB");
    cSampling.number("SampleRateHz", c.mfSampleRateHz)
        .number("UsableBWHz", c.mfBandwidthHz)
        .whole("Channels", 1);
    return Record().text("DataType", "Baseband").nested("Baseband", cSummary).nested("Sampling", cSampling);
}

inline void writePair(const Folder& cFolder, const std::string& stem, const Record& cDescription,
                      const std::string& data) {
    writeFile(cFolder.native(stem + ".json"), cDescription.pretty());
    writeFile(cFolder.native(stem + ".data"), data);
}

template <typename Frame>
void writePair(const Folder& cFolder, const std::string& stem, const std::vector<Frame>& lFrames,
               const Tuning& cTuning = {}) {
    writePair(cFolder, stem, describe(lFrames, cTuning), bytesOf(lFrames));
}

// Frames to write.

/// Frames `uStepNs` apart whose samples tell where they stand.
inline std::vector<IQ> makeIQ(size_t uFrames, size_t uSamples, uint64_t uStepNs = 0, uint32_t uFirst = 0,
                              uint64_t uStart = 1'600'000'000'000'000'000) {
    std::vector<IQ> lFrames(uFrames);
    for (size_t i = 0; i < uFrames; ++i) {
        lFrames[i].muTime = uStart + i * uStepNs;
        lFrames[i].muSequence = uFirst + static_cast<uint32_t>(i);
        for (size_t k = 0; k < uSamples; ++k)
            lFrames[i].mlSamples.emplace_back(static_cast<float>(lFrames[i].muSequence) * 0.5f,
                                              -static_cast<float>(k) * 0.25f);
    }
    return lFrames;
}

inline std::vector<Spectrum> makeSpectra(size_t uFrames, size_t uPoints, uint64_t uStepNs = 0) {
    std::vector<Spectrum> lFrames(uFrames);
    for (size_t i = 0; i < uFrames; ++i) {
        lFrames[i] = {1'500'000'000'000'000'000 + i * uStepNs, 1000 + i, static_cast<uint32_t>(i), {}};
        for (size_t k = 0; k < uPoints; ++k)
            lFrames[i].mlPoints.push_back(-static_cast<float>(i) - 0.125f * static_cast<float>(k));
    }
    return lFrames;
}

}  // namespace recordings
