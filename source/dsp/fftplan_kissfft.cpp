#ifdef VNK_FFT_KISSFFT

#include <kiss_fft.h>

#include <climits>
#include <new>
#include <type_traits>

#include "dsp/fftplan.h"

static_assert(std::is_same_v<kiss_fft_scalar, float>);

namespace {

class KissPlan : public FFTPlan {
 public:
    explicit KissPlan(kiss_fft_cfg cConfiguration) : mcConfiguration(cConfiguration) {}
    KissPlan(const KissPlan&) = delete;
    KissPlan& operator=(const KissPlan&) = delete;
    ~KissPlan() override { kiss_fft_free(mcConfiguration); }

    void execute(Complex<float>* pOutput, const Complex<float>* pInput) const override {
        kiss_fft(mcConfiguration, reinterpret_cast<const kiss_fft_cpx*>(pInput),
                 reinterpret_cast<kiss_fft_cpx*>(pOutput));
    }

 private:
    kiss_fft_cfg mcConfiguration;
};

}  // namespace

std::unique_ptr<FFTPlan> FFTPlan::make(uint32_t uSize, Direction eDirection) {
    // The size in bytes of the package's tables is counted in a size_t, the transform's length in an int.
    if (uSize == 0 || uSize > static_cast<uint32_t>(INT_MAX))
        return nullptr;
    const kiss_fft_cfg cConfiguration =
        kiss_fft_alloc(static_cast<int>(uSize), eDirection == Direction::kInverse, nullptr, nullptr);
    if (cConfiguration == nullptr)
        throw std::bad_alloc();
    return std::make_unique<KissPlan>(cConfiguration);
}

#endif
