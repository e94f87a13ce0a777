#pragma once

#include <optional>

#include "tools/session.h"
#include "tools/spectrumoutput.h"
#include "tools/sweepreport.h"

namespace cli {

/// Hears of a running sweep.
class SweepListener {
 public:
    virtual ~SweepListener() = default;
    /// Nothing has come so far.
    virtual void waiting(double seconds) = 0;
    /// The first spectrum is here: what the unit made of the request is known.
    virtual void started(const SweepResult& soFar) = 0;
    /// A few times a second.
    virtual void progress(const SweepResult& soFar) = 0;
};

/// Where spectra come from.
class SpectrumSource {
 public:
    virtual ~SpectrumSource() = default;
    virtual void start() = 0;
    /// As vnkGetNextSpectrum does.
    virtual int32_t next(SpectrumRecord& record, uint32_t timeoutMs) = 0;
    /// What a record shows; valid as long as the record is.
    virtual SpectrumView view(const vnkSpectrumRecord& record) = 0;
    virtual void stop() = 0;
    /// What the end of the stream means after so many spectra.
    virtual Ending endOfStream(uint64_t spectra) const = 0;
    /// What it means that nothing more is to be hoped for.
    virtual Ending lost() = 0;
    /// Nothing has come for so long: what ends it, or nothing to wait on. Throws Failure when the unit has
    /// refused.
    virtual std::optional<Ending> silence(double seconds, bool begun) = 0;
    /// Whether spectra may have other edges or points than those before.
    virtual bool mayChangeShape() const { return false; }
};

/// Takes spectra until the request is met, Ctrl-C, or the end. A lost link and a unit that sends nothing are
/// endings, not exceptions; what came until then is in the result. Spectra go to `output`, if there is one.
SweepResult takeSpectra(SpectrumSource& source, const SweepRequest& request, SampleOutput* output,
                        SweepListener& listener);

/// Sweeps a unit.
SweepResult sweep(Session& session, Device& device, const SweepRequest& request, SampleOutput* output,
                  SweepListener& listener);

}  // namespace cli
