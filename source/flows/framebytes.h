#pragma once

#include <algorithm>
#include <bit>
#include <cstdint>
#include <istream>
#include <ostream>
#include <type_traits>
#include <vector>

#include "foundations/alignedarray.h"

/// The stored form of frames: little-endian fields without padding, then samples as they lie in memory.
namespace FrameBytes {

static_assert(std::endian::native == std::endian::little, "stored frames are little-endian");

template <typename T>
void write(std::ostream& cStream, const T& cValue) {
    static_assert(std::is_integral_v<T>);
    cStream.write(reinterpret_cast<const char*>(&cValue), sizeof cValue);
}

template <typename T>
void writeSamples(std::ostream& cStream, const T* pSamples, uint32_t uCount) {
    if (uCount != 0)
        cStream.write(reinterpret_cast<const char*>(pSamples),
                      static_cast<std::streamsize>(size_t{uCount} * sizeof(T)));
}

template <typename T>
bool read(std::istream& cStream, T& cValue) {
    static_assert(std::is_integral_v<T>);
    return static_cast<bool>(cStream.read(reinterpret_cast<char*>(&cValue), sizeof cValue));
}

/// Reading of one frame: the marker, the fields, the samples. Unless it is kept in the end, the stream goes
/// back to where it was, be it at another kind of frame or at one that the stream's end cuts off.
class Reading {
 public:
    /// bClear: the stream's error state is cleared first on the way back (behind the end of a file there is
    /// no way back without).
    Reading(std::istream& cStream, bool bClear)
        : mcStream(cStream), mcPosition(cStream.tellg()), mbClear(bClear) {}
    Reading(const Reading&) = delete;
    Reading& operator=(const Reading&) = delete;
    ~Reading() {
        if (mbKept)
            return;
        if (mbClear)
            mcStream.clear();
        if (mcPosition != std::istream::pos_type(-1))
            mcStream.seekg(mcPosition);
    }

    bool marker(uint32_t uMarker) {
        uint32_t uFound = 0;
        return read(mcStream, uFound) && uFound == uMarker;
    }
    template <typename... T>
    bool fields(T&... cFields) {
        return (read(mcStream, cFields) && ...);
    }
    void keep() { mbKept = true; }

 private:
    std::istream& mcStream;
    std::istream::pos_type mcPosition;
    bool mbClear;
    bool mbKept = false;
};

template <typename T>
bool readInto(std::istream& cStream, T* pSamples, size_t uCount) {
    const auto iBytes = static_cast<std::streamsize>(uCount * sizeof(T));
    return uCount == 0 || static_cast<bool>(cStream.read(reinterpret_cast<char*>(pSamples), iBytes));
}

/// Null if the stream holds fewer than uCount elements. The count is a word from a file: memory is taken for
/// it as data comes in, never more than a few times of what is really there.
template <typename T>
ReferencePtr<AlignedArray<T, 32>> readSamples(std::istream& cStream, uint32_t uCount) {
    constexpr size_t kTrusted = (size_t{1} << 20) / sizeof(T);
    std::vector<T> cStaged;
    while (uCount - cStaged.size() > kTrusted) {
        const size_t uHave = cStaged.size();
        const size_t uStep = std::min(std::max(uHave, kTrusted), uCount - uHave);
        cStaged.resize(uHave + uStep);
        if (!readInto(cStream, cStaged.data() + uHave, uStep))
            return nullptr;
    }
    ReferencePtr<AlignedArray<T, 32>> cArray(new AlignedArray<T, 32>(uCount));
    std::copy(cStaged.begin(), cStaged.end(), cArray->getData());
    if (!readInto(cStream, cArray->getData() + cStaged.size(), uCount - cStaged.size()))
        return nullptr;
    return cArray;
}

}  // namespace FrameBytes
