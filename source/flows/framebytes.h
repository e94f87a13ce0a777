#pragma once

#include <bit>
#include <cstdint>
#include <istream>
#include <ostream>
#include <type_traits>

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

/// What is left of the stream; -1 where that cannot be told.
inline std::streamoff bytesLeft(std::istream& cStream) {
    const std::streamoff iHere = cStream.tellg();
    cStream.seekg(0, std::ios_base::end);
    const std::streamoff iEnd = cStream.tellg();
    cStream.seekg(iHere);
    return cStream.good() && iHere >= 0 ? iEnd - iHere : -1;
}

/// Null if the stream holds fewer than uCount elements. The count is a word from a file: it is checked against
/// what is there before much memory is taken for it.
template <typename T>
ReferencePtr<AlignedArray<T, 32>> readSamples(std::istream& cStream, uint32_t uCount) {
    constexpr std::streamoff kTrusted = 1 << 20;
    const std::streamoff iBytes = std::streamoff{uCount} * static_cast<std::streamoff>(sizeof(T));
    if (iBytes > kTrusted && bytesLeft(cStream) < iBytes)
        return nullptr;
    ReferencePtr<AlignedArray<T, 32>> cArray(new AlignedArray<T, 32>(uCount));
    if (uCount != 0 && !cStream.read(reinterpret_cast<char*>(cArray->getData()), iBytes))
        return nullptr;
    return cArray;
}

}  // namespace FrameBytes
