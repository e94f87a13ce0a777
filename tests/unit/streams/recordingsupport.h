#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include "flows/basebandframe.h"
#include "flows/iqframe.h"
#include "flows/spectrumframe.h"

namespace vnktest {

/// A folder of its own that goes with the object.
class TempFolder {
 public:
    TempFolder() : mcNative(testing::TempDir() + "vnk-recordings-XXXXXX") {
        if (!::mkdtemp(mcNative.data()))
            throw std::runtime_error("no folder could be made in " + testing::TempDir());
    }
    ~TempFolder() {
        std::error_code cIgnored;
        std::filesystem::remove_all(mcNative, cIgnored);
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    const std::string& native() const { return mcNative; }
    /// As callers of the library name it: the folder is what stands before the backslash.
    std::string path(const std::string& name) const { return mcNative + "\\" + name; }
    std::string file(const std::string& name) const { return mcNative + "/" + name; }
    bool has(const std::string& name) const { return std::filesystem::exists(file(name)); }
    /// Of all that lies in the folder, sorted.
    std::vector<std::string> names() const {
        std::vector<std::string> lNames;
        for (const auto& cEntry : std::filesystem::directory_iterator(mcNative))
            lNames.push_back(cEntry.path().filename().string());
        std::sort(lNames.begin(), lNames.end());
        return lNames;
    }

 private:
    std::string mcNative;
};

inline std::string readWhole(const std::string& native) {
    std::ifstream cFile(native, std::ios::binary);
    return {std::istreambuf_iterator<char>(cFile), std::istreambuf_iterator<char>()};
}

inline void writeWhole(const std::string& native, const std::string& bytes) {
    std::ofstream(native, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

/// Compares long texts without printing them.
inline testing::AssertionResult sameBytes(const std::string& got, const std::string& expected) {
    if (got == expected)
        return testing::AssertionSuccess();
    const size_t uShorter = std::min(got.size(), expected.size());
    const auto it =
        std::mismatch(got.begin(), got.begin() + static_cast<std::ptrdiff_t>(uShorter), expected.begin());
    return testing::AssertionFailure() << got.size() << " bytes in place of " << expected.size()
                                       << ", first difference at " << it.first - got.begin();
}

inline utils::VariantRecord parseRecord(const std::string& text) {
    utils::VariantRecord cRecord;
    cRecord.parse(text);
    return cRecord;
}

/// Bytes put together by hand, little-endian, without the help of what is tested.
class Bytes {
 public:
    Bytes& u32(uint32_t uValue) { return number(uValue, 4); }
    Bytes& u64(uint64_t uValue) { return number(uValue, 8); }
    Bytes& floats(const std::vector<float>& lValues) {
        for (const float fValue : lValues) {
            uint32_t uBits;
            std::memcpy(&uBits, &fValue, sizeof uBits);
            u32(uBits);
        }
        return *this;
    }
    const std::string& text() const { return mcText; }

 private:
    Bytes& number(uint64_t uValue, unsigned uBytes) {
        for (unsigned i = 0; i < uBytes; ++i)
            mcText.push_back(static_cast<char>(uValue >> (8 * i) & 0xFF));
        return *this;
    }
    std::string mcText;
};

/// What a frame says about itself; each kind takes what it has.
struct FrameFields {
    uint32_t muSequence = 0;
    uint64_t muTimestamp = 0;
    uint64_t muDuration = 0;
    uint32_t muResolution = kNanoseconds;
    float mfCentreHz = 1.0e8f;
    float mfBandwidthHz = 1.0e6f;
    float mfSampleRateHz = 2.0e6f;
    float mfRefdBm = -30.0f;
    float mfRBWHz = 1000.0f;
    std::string mcWindowName = "Kaiser";
    std::string mcUnits;
};

inline FrameFields fieldsAt(uint32_t uSequence, uint64_t uTimestamp = 0) {
    FrameFields c;
    c.muSequence = uSequence;
    c.muTimestamp = uTimestamp;
    return c;
}

/// Values that tell their place: the first, then one quarter more each.
inline std::vector<float> ramp(size_t uCount, float fFirst = 0.0f) {
    std::vector<float> lValues(uCount);
    for (size_t i = 0; i < uCount; ++i)
        lValues[i] = fFirst + 0.25f * static_cast<float>(i);
    return lValues;
}

inline ReferencePtr<FloatArray> floatArray(const std::vector<float>& lValues) {
    auto cArray = makeReference<FloatArray>(static_cast<uint32_t>(lValues.size()));
    std::copy(lValues.begin(), lValues.end(), cArray->getData());
    return cArray;
}

/// Of I and Q in turn.
inline ReferencePtr<ComplexArray> complexArray(const std::vector<float>& lPairs) {
    auto cArray = makeReference<ComplexArray>(static_cast<uint32_t>(lPairs.size() / 2));
    for (uint32_t i = 0; i < cArray->getActive(); ++i)
        cArray->getData()[i] = Complex<float>{lPairs[2 * i], lPairs[2 * i + 1]};
    return cArray;
}

/// A null array makes a frame without one.
inline ReferencePtr<IQFrame> makeIQ(const FrameFields& c, ReferencePtr<ComplexArray> cSamples) {
    return makeReference<IQFrame>(c.muSequence, uint64_t{0}, c.muTimestamp, c.muResolution, c.mfCentreHz,
                                  c.mfBandwidthHz, c.mfSampleRateHz, c.mfRefdBm, std::move(cSamples),
                                  c.mcUnits);
}

inline ReferencePtr<IQFrame> makeIQ(const FrameFields& c, const std::vector<float>& lPairs) {
    return makeIQ(c, complexArray(lPairs));
}

inline ReferencePtr<SpectrumFrame> makeSpectrum(const FrameFields& c, ReferencePtr<FloatArray> cPoints) {
    return makeReference<SpectrumFrame>(c.muSequence, c.muTimestamp, c.muDuration, c.muResolution,
                                        c.mfCentreHz - c.mfBandwidthHz * 0.5f,
                                        c.mfCentreHz + c.mfBandwidthHz * 0.5f, c.mfRBWHz, c.mfRefdBm,
                                        c.mcWindowName, std::move(cPoints), c.mcUnits);
}

inline ReferencePtr<SpectrumFrame> makeSpectrum(const FrameFields& c, const std::vector<float>& lPoints) {
    return makeSpectrum(c, floatArray(lPoints));
}

/// All channels must be of one length. The usable bandwidth is half the sample rate.
inline ReferencePtr<BasebandFrame> makeBaseband(const FrameFields& c,
                                                const std::vector<std::vector<float>>& lChannels) {
    const uint32_t uSamples = lChannels.empty() ? 0 : static_cast<uint32_t>(lChannels[0].size());
    const auto cTuning = makeIQ(c, ReferencePtr<ComplexArray>());
    auto cFrame = makeReference<BasebandFrame>(*cTuning, c.muSequence, c.mfSampleRateHz,
                                               c.mfSampleRateHz * 0.5f, uSamples);
    cFrame->setSequence(c.muSequence);
    cFrame->setTimeResolution(c.muResolution);
    cFrame->setTimestamp(c.muTimestamp);
    for (const std::vector<float>& lSamples : lChannels) {
        const ReferencePtr<FloatArray> cChannel = cFrame->getChannel(cFrame->channelCount());
        std::copy(lSamples.begin(), lSamples.end(), cChannel->getData());
    }
    return cFrame;
}

}  // namespace vnktest
