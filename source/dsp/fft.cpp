#include "dsp/fft.h"

#include "dsp/clones.h"
#include "dsp/fftplan.h"

namespace {

VNK_CLONES static void multiply(float* __restrict pValues, size_t uCount, float fFactor) {
    for (size_t i = 0; i < uCount; ++i)
        pValues[i] *= fFactor;
}

void scale(Complex<float>* pValues, uint32_t uCount, float fFactor) {
    multiply(&pValues->re, size_t{uCount} * 2, fFactor);
}

bool isAligned(const void* pData) {
    return reinterpret_cast<uintptr_t>(pData) % 32 == 0;
}

class _FFT : public FFT {
 public:
    explicit _FFT(uint32_t uSize) { setSize(uSize); }

    uint32_t getSize() const override { return muSize; }

    void forward(Complex<float>* pOutput, const Complex<float>* pInput, uint32_t uSize) override {
        setSize(uSize);
        if (uSize == 0)
            return;
        run(mcForward.get(), pOutput, pInput);
        scale(pOutput, uSize, 1.0f / static_cast<float>(uSize));
    }

    void inverse(Complex<float>* pOutput, const Complex<float>* pInput, uint32_t uSize) override {
        setSize(uSize);
        if (uSize != 0)
            run(mcInverse.get(), pOutput, pInput);
    }

    virtual void setSize(uint32_t uSize) {
        if (uSize == muSize)
            return;
        muSize = 0;  // what stands if a plan runs out of memory
        mcForward.reset();
        mcInverse.reset();
        mcForward = FFTPlan::make(uSize, FFTPlan::Direction::kForward);
        mcInverse = FFTPlan::make(uSize, FFTPlan::Direction::kInverse);
        muSize = uSize;
    }

 private:
    static void run(const FFTPlan* pPlan, Complex<float>* pOutput, const Complex<float>* pInput) {
        VNK_ASSERT(pPlan != nullptr);
        VNK_ASSERT(isAligned(pOutput) && isAligned(pInput) && pOutput != pInput);
        pPlan->execute(pOutput, pInput);
    }

    uint32_t muSize = 0;
    std::unique_ptr<FFTPlan> mcForward;
    std::unique_ptr<FFTPlan> mcInverse;
};

}  // namespace

ReferencePtr<FFT> FFT::create(uint32_t uSize) {
    return ReferencePtr<FFT>(new _FFT(uSize));
}
