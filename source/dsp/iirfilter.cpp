#include "dsp/iirfilter.h"

#include <algorithm>

#include "foundations/clock.h"

void IIRBase::take(Mark eMark) {
    uint32_t uFree = 0;
    while (!muSpinFlag.compare_exchange_strong(uFree, eMark, std::memory_order_acquire,
                                               std::memory_order_relaxed)) {
        uFree = 0;
        utils::sleepMs(1);
    }
}

void IIRBase::release(Mark eMark) {
    uint32_t uHeld = eMark;
    muSpinFlag.compare_exchange_strong(uHeld, 0, std::memory_order_release, std::memory_order_relaxed);
}

IIR::~IIR() {
    take(kEnding);  // and never given back: whoever filters has ended
}

void IIR::setDesign(const ReferencePtr<FilterDesign>& cDesign) {
    Hold cHold(*this, kChanging);
    if (!cDesign) {
        muACount = 0;
        muBCount = 0;
        mcA.reset();
        mcB.reset();
        return;
    }
    const uint32_t uACount = cDesign->getACoeffCount();
    const uint32_t uBCount = std::max(cDesign->getBCoeffCount(), 1u);
    if (uACount != muACount || uBCount != muBCount) {
        auto cA = std::make_unique<double[]>(uACount);
        auto cB = std::make_unique<double[]>(uBCount);
        auto cInputs = std::make_unique<double[]>(uBCount);
        auto cOutputs = std::make_unique<double[]>(uACount);
        mcA = std::move(cA);
        mcB = std::move(cB);
        mcInputs = std::move(cInputs);
        mcOutputs = std::move(cOutputs);
        muACount = uACount;
        muBCount = uBCount;
    }
    mcB[0] = 1.0;  // an empty numerator means 1
    uint32_t uARoom = muACount;
    uint32_t uBRoom = muBCount;
    cDesign->getCoefficients(mcA.get(), uARoom, mcB.get(), uBRoom);
}

void IIR::resetState() {
    Hold cHold(*this, kChanging);
    mcInputs = std::make_unique<double[]>(muBCount);
    mcOutputs = std::make_unique<double[]>(muACount);
}
