#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "dsp/filterdesign.h"

/// What recursive filters share: the coefficients, and the flag that lets one thread change them while
/// another filters.
class IIRBase {
 public:
    IIRBase() = default;
    IIRBase(const IIRBase&) = delete;
    IIRBase& operator=(const IIRBase&) = delete;
    virtual ~IIRBase() = default;
    /// Begins from rest.
    virtual void resetState() = 0;

 protected:
    enum Mark : uint32_t { kRunning = 1, kChanging = 2, kEnding = 16 };

    /// Holds the flag for a scope. Whoever finds it taken sleeps for 1 ms and tries again.
    class Hold {
     public:
        Hold(IIRBase& cFilter, Mark eMark) : mcFilter(cFilter), meMark(eMark) { mcFilter.take(eMark); }
        ~Hold() { mcFilter.release(meMark); }
        Hold(const Hold&) = delete;
        Hold& operator=(const Hold&) = delete;

     private:
        IIRBase& mcFilter;
        Mark meMark;
    };
    void take(Mark eMark);
    void release(Mark eMark);

    uint32_t muACount = 0;
    std::unique_ptr<double[]> mcA;  // a1, a2, ...: subtracted
    uint32_t muBCount = 0;
    std::unique_ptr<double[]> mcB;        // b0, b1, ...
    std::atomic<uint32_t> muSpinFlag{0};  // 0 when free, otherwise the mark of the holder
};

/// A recursive filter of any order over one rail, in double precision and plain direct form. The design may
/// be replaced from any thread while another one filters.
class IIR : public IIRBase {
 public:
    IIR() = default;
    ~IIR() override;

    /// Null takes the filter away: samples pass unchanged. The state begins anew only if the order changes.
    void setDesign(const ReferencePtr<FilterDesign>& cDesign);
    void resetState() override;
    /// One sample. For many, a Loop takes the flag once.
    double run(double fX) {
        Hold cHold(*this, kRunning);
        return step(fX);
    }

    /// Keeps the filter from being changed for the time of a loop over samples. Call no other operation of
    /// the filter in that loop.
    class Loop {
     public:
        explicit Loop(IIR& cFilter) : mcFilter(cFilter), mcHold(cFilter, kRunning) {}
        double run(double fX) { return mcFilter.step(fX); }

     private:
        IIR& mcFilter;
        Hold mcHold;
    };

 private:
    double step(double fX);

    std::unique_ptr<double[]> mcInputs;  // newest first
    std::unique_ptr<double[]> mcOutputs;
};

inline double IIR::step(double fX) {
    if (muBCount == 0)
        return fX;
    double fY = 0.0;
    for (uint32_t i = muBCount - 1; i > 0; --i) {
        mcInputs[i] = mcInputs[i - 1];
        fY += mcB[i] * mcInputs[i];
    }
    mcInputs[0] = fX;
    fY += mcB[0] * fX;
    // The latest output comes last: the next sample waits for nothing else.
    for (uint32_t i = muACount; i-- > 0;)
        fY -= mcA[i] * mcOutputs[i];
    for (uint32_t i = muACount; i-- > 1;)
        mcOutputs[i] = mcOutputs[i - 1];
    if (muACount != 0)
        mcOutputs[0] = fY;
    return fY;
}
