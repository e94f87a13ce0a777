#pragma once

#include <cstdint>
#include <cstring>
#include <new>
#include <type_traits>

#include "foundations/complex.h"
#include "foundations/referencecountedobject.h"

/// A fixed array whose storage is aligned to N bytes and whose length is a whole number of vectors.
/// Elements are not initialised. Throws std::bad_alloc.
template <typename T, uint32_t N>
class AlignedArray : public utils::ReferenceCountedObject {
    static_assert(std::is_trivially_copyable_v<T> && N % sizeof(T) == 0);

 public:
    explicit AlignedArray(uint32_t uCount) : muActive(uCount) {
        constexpr uint32_t kStep = N / sizeof(T);
        const uint64_t uRounded = (uint64_t{uCount} + kStep - 1) / kStep * kStep;
        if (uRounded > 0xFFFFFFFFu)
            throw std::bad_alloc();
        muAllocated = static_cast<uint32_t>(uRounded);
        allocate();
    }
    AlignedArray(const AlignedArray& cOther)
        : utils::ReferenceCountedObject(cOther), muAllocated(cOther.muAllocated), muActive(cOther.muActive) {
        allocate();
        if (muAllocated)
            std::memcpy(mpData, cOther.mpData, size_t{muAllocated} * sizeof(T));
    }
    AlignedArray& operator=(const AlignedArray&) = delete;
    ~AlignedArray() override { ::operator delete(mpData, std::align_val_t{N}); }

    uint32_t getActive() const { return muActive; }
    uint32_t getAllocated() const { return muAllocated; }
    /// Lowers (or restores) the active count; not above the allocated count. The storage stays.
    void setActive(uint32_t uCount) { muActive = uCount < muAllocated ? uCount : muAllocated; }
    T* getData() { return mpData; }
    const T* getData() const { return mpData; }

 private:
    void allocate() {
        if (muAllocated)
            mpData = static_cast<T*>(::operator new(size_t{muAllocated} * sizeof(T), std::align_val_t{N}));
    }

    T* mpData = nullptr;
    uint32_t muAllocated = 0;
    uint32_t muActive = 0;
};

using FloatArray = AlignedArray<float, 32>;
using ComplexArray = AlignedArray<Complex<float>, 32>;
