#ifndef VNK_FFT_KISSFFT

#include <fftw3.h>

#include <climits>
#include <mutex>

#include "dsp/fftplan.h"
#include "foundations/alignedarray.h"

namespace {

/// The host may use the package as well: planning is made thread-safe, and what belongs to the whole process
/// (wisdom, time limit, cleanup) is left alone.
void prepareOnce() {
    static std::once_flag cOnce;
    std::call_once(cOnce, fftwf_make_planner_thread_safe);
}

fftwf_complex* cast(Complex<float>* pData) {
    return reinterpret_cast<fftwf_complex*>(pData);
}

class FFTWPlan : public FFTPlan {
 public:
    explicit FFTWPlan(fftwf_plan cPlan) : mcPlan(cPlan) {}
    FFTWPlan(const FFTWPlan&) = delete;
    FFTWPlan& operator=(const FFTWPlan&) = delete;
    ~FFTWPlan() override { fftwf_destroy_plan(mcPlan); }

    void execute(Complex<float>* pOutput, const Complex<float>* pInput) const override {
        fftwf_execute_dft(mcPlan, cast(const_cast<Complex<float>*>(pInput)), cast(pOutput));
    }

 private:
    fftwf_plan mcPlan;
};

}  // namespace

std::unique_ptr<FFTPlan> FFTPlan::make(uint32_t uSize, Direction eDirection) {
    if (uSize == 0 || uSize > static_cast<uint32_t>(INT_MAX))
        return nullptr;
    prepareOnce();
    // An estimate gives the same plan, and so the same bits, at every run; a measurement would not.
    ComplexArray cInput(uSize);
    ComplexArray cOutput(uSize);
    const fftwf_plan cPlan =
        fftwf_plan_dft_1d(static_cast<int>(uSize), cast(cInput.getData()), cast(cOutput.getData()),
                          eDirection == Direction::kForward ? FFTW_FORWARD : FFTW_BACKWARD, FFTW_ESTIMATE);
    return cPlan == nullptr ? nullptr : std::make_unique<FFTWPlan>(cPlan);
}

#endif
