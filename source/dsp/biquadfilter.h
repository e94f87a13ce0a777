#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "dsp/filterdesign.h"
#include "foundations/complex.h"

/// Coefficients of a second-order section; those of no filtering at first.
struct BiquadCoefficients {
    float mfB0 = 1.0f;
    float mfB1 = 0.0f;
    float mfB2 = 0.0f;
    float mfA1 = 0.0f;
    float mfA2 = 0.0f;

    /// False, leaving those of no filtering, unless the design has 3 numerator coefficients and 2 poles.
    bool read(const ReferencePtr<FilterDesign>& cDesign);
    /// As read, but asserts.
    void require(const ReferencePtr<FilterDesign>& cDesign);
};

/// What a section remembers of one rail, in direct form II.
struct BiquadState {
    float mfW = 0.0f;  // latest
    float mfW1 = 0.0f;
    float mfW2 = 0.0f;

    float step(const BiquadCoefficients& cBy, float fX) {
        mfW = fX - cBy.mfA1 * mfW1 - cBy.mfA2 * mfW2;
        const float fY = cBy.mfB0 * mfW + cBy.mfB1 * mfW1 + cBy.mfB2 * mfW2;
        mfW2 = mfW1;
        mfW1 = mfW;
        return fY;
    }
};

/// A second-order section in single precision with a state for each of its rails: one for real samples, two
/// for I and Q. Serves one thread.
template <size_t kRails>
class BiquadRails {
 public:
    /// Installs a design and clears the state. False if it is not of second order, or null: samples then pass
    /// unchanged.
    bool setDesign(const ReferencePtr<FilterDesign>& cDesign) {
        reset();
        return mcCoefficients.read(cDesign);
    }
    /// As setDesign, but asserts that the design is of second order.
    void requireDesign(const ReferencePtr<FilterDesign>& cDesign) {
        reset();
        mcCoefficients.require(cDesign);
    }
    void reset() { mcStates = {}; }
    const BiquadCoefficients& coefficients() const { return mcCoefficients; }

 protected:
    BiquadCoefficients mcCoefficients;
    std::array<BiquadState, kRails> mcStates;
};

class BiquadFilter : public BiquadRails<1> {
 public:
    float step(float fX) { return mcStates[0].step(mcCoefficients, fX); }
    /// May run in place.
    void filter(const float* pInput, float* pOutput, uint32_t uCount);
};

class ComplexBiquadFilter : public BiquadRails<2> {
 public:
    Complex<float> step(Complex<float> cX) {
        return {mcStates[0].step(mcCoefficients, cX.re), mcStates[1].step(mcCoefficients, cX.im)};
    }
    /// May run in place.
    void filter(const Complex<float>* pInput, Complex<float>* pOutput, uint32_t uCount);
};

/// Sections of which each takes the output of the one before, run in one pass: the chain of dependent sums of
/// one section fills the waits of the others, and the results are those of one section after the other.
template <size_t kSections>
class ComplexBiquadCascade {
 public:
    /// Installs one design in all sections and clears their state; the result as that of a section.
    bool setDesign(const ReferencePtr<FilterDesign>& cDesign) {
        bool bSet = true;
        for (ComplexBiquadFilter& cSection : mcSections)
            bSet = cSection.setDesign(cDesign) && bSet;
        return bSet;
    }
    /// May run in place.
    void filter(const Complex<float>* pInput, Complex<float>* pOutput, uint32_t uCount) {
        std::array<ComplexBiquadFilter, kSections> cSections =
            mcSections;  // local: no store to memory for each sample
        for (uint32_t i = 0; i < uCount; ++i) {
            Complex<float> cSample = pInput[i];
            for (ComplexBiquadFilter& cSection : cSections)
                cSample = cSection.step(cSample);
            pOutput[i] = cSample;
        }
        mcSections = cSections;
    }

 private:
    std::array<ComplexBiquadFilter, kSections> mcSections;
};
