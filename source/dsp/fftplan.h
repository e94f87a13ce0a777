#pragma once

#include <cstdint>
#include <memory>

#include "foundations/complex.h"

/// One direction of one size of the transform package. The package is chosen when the library is built;
/// each has one source file that defines make().
class FFTPlan {
 public:
    virtual ~FFTPlan() = default;
    /// Not scaled. Both arrays hold the planned number of values, are 32-byte aligned and distinct; the
    /// input is left as it is.
    virtual void execute(Complex<float>* pOutput, const Complex<float>* pInput) const = 0;

    enum class Direction { kForward, kInverse };
    /// Null if the package cannot plan this size. May be called from any thread.
    static std::unique_ptr<FFTPlan> make(uint32_t uSize, Direction eDirection);
};
