#pragma once

#include <memory>

#include "tools/iqfeed.h"
#include "tools/spectrumtimes.h"
#include "tools/sweeper.h"

namespace cli {

/// Spectra made of IQ by the library's processors.
class IqSpectrumSource : public SpectrumSource {
 public:
    IqSpectrumSource(IqInput& input, const SweepRequest& request);

    void start() override { mcFeed.start(); }
    int32_t next(SpectrumRecord& record, uint32_t timeoutMs) override;
    SpectrumView view(const vnkSpectrumRecord& record) override;
    void stop() override;
    Ending endOfStream(uint64_t) const override { return mcFeed.ending(); }
    Ending lost() override { return mcFeed.ending(); }
    std::optional<Ending> silence(double, bool) override { return std::nullopt; }
    bool mayChangeShape() const override { return true; }

    const IqFeed& feed() const { return mcFeed; }

 private:
    const IqSpectra& mcSetting;
    IqFeed mcFeed;
    Processor mcTransform;
    SpectrumStream mcSpectra;
    std::unique_ptr<Processor> mpTraces;
    std::unique_ptr<SpectrumStream> mpTraced;
    SpectrumTimes mcTimes;
};

}  // namespace cli
