#pragma once

#include <cstdint>
#include <vector>

#include "foundations/referencecountedobject.h"

/// A digital filter as two polynomials in 1/z, lowest power first: y = numerator / denominator x. Never
/// changes once made, and so may be shared between threads.
class FilterDesign : public utils::ReferenceCountedObject {
 public:
    /// An empty denominator means 1.
    FilterDesign(std::vector<double> lDenominator, std::vector<double> lNumerator)
        : mlDenominator(std::move(lDenominator)), mlNumerator(std::move(lNumerator)) {}

    /// Coefficients of the denominator behind the leading one: as many as there are poles.
    uint32_t getACoeffCount() const;
    uint32_t getBCoeffCount() const { return static_cast<uint32_t>(mlNumerator.size()); }
    /// Writes a1, a2, ... and b0, b1, ..., all divided by the leading coefficient of the denominator; the a
    /// are those that a filter subtracts: y = b0 x + b1 x1 + ... - a1 y1 - a2 y2 - ... The counts say how
    /// much room there is and are replaced by what it takes. False, with nothing written to the arrays,
    /// without the room.
    bool getCoefficients(double* pA, uint32_t& uACount, double* pB, uint32_t& uBCount) const;

 private:
    std::vector<double> mlDenominator;
    std::vector<double> mlNumerator;
};
