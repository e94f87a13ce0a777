#include "simulator/capturerun.h"
#include "simulator/models.h"

namespace vnksim {
namespace {

HeaderFaults contextFaults(const FaultSettings& faults) {
    HeaderFaults header;
    header.tsm = faults.contextTsm;
    return header;
}

double bandwidthHz(const CaptureStep& step, const FamilyTraits& traits) {
    return step.directDigitization ? 50e6 : step.real ? 40e6 : 0.85 * traits.clock() / step.decimation;
}

}  // namespace

bool Capturer::push(Packet packet) {
    return mcQueue.push(std::move(packet), [this] { return cancelled(); });
}

/// The frequency that the contexts of a block tell; faults may move it or leave it out.
std::optional<double> Capturer::toldHz(const Run& run, const CaptureStep& step, const FaultSettings& faults) {
    if (faults.frequencyMissing) {
        return std::nullopt;
    }
    double hz = step.directDigitization ? 0 : step.centreHz;
    if (run.plan.list) {
        hz += (faults.blockShiftKHz + faults.blockShiftOnceKHz) * 1e3;
        if (faults.blockShiftOnceKHz != 0) {
            mcFaults.change([](FaultSettings& now) { now.blockShiftOnceKHz = 0; });
        }
    }
    return hz;
}

bool Capturer::sendIfContext(Run& run, const CaptureStep& step, const FaultSettings& faults) {
    Tuning tuning;
    tuning.rfHz = toldHz(run, step, faults);
    tuning.bandwidthHz = bandwidthHz(step, mcTraits);
    tuning.rateHz = mcTraits.clock() / step.ticksPerSample();
    tuning.referenceLevelDbm = step.referenceLevelDbm;
    tuning.wrongFormat = faults.payloadFormat;
    run.lastContextTicks = run.ticks;
    return push(
        run.maker.ifContext(run.startTime.plus(run.ticks, mcTraits.clockHz), tuning, contextFaults(faults)));
}

bool Capturer::sendReceiverContext(Run& run, const CaptureStep& step, const FaultSettings& faults) {
    const std::optional<double> hz = toldHz(run, step, faults);
    if (!hz) {
        return true;
    }
    const double front = (step.gain1 ? 10.0 : 0.0) + (step.gain2 ? 10.0 : 0.0);
    return push(run.maker.receiverContext(run.startTime.plus(run.ticks, mcTraits.clockHz), *hz, front,
                                          -static_cast<double>(step.attenuation), contextFaults(faults)));
}

bool Capturer::sendDigitizerContext(Run& run, const CaptureStep& step, const FaultSettings& faults) {
    const UnitTime time = run.startTime.plus(run.ticks, mcTraits.clockHz);
    const GnssFix fix{time,
                      static_cast<float>(mcOptions.latitude),
                      static_cast<float>(mcOptions.longitude),
                      static_cast<float>(mcOptions.altitude),
                      0,
                      0,
                      0,
                      -12.86f};
    const bool fitted = findModel(mcOptions.model)->gnss;
    run.lastReference = step.referenceLevelDbm;
    run.lastContextTicks = run.ticks;
    return push(run.maker.digitizerContext(time, bandwidthHz(step, mcTraits), 0, step.referenceLevelDbm,
                                           fitted ? &fix : nullptr, contextFaults(faults)));
}

bool Capturer::sendExtensionContext(Run& run, const FaultSettings& faults) {
    const uint32_t identifier = run.plan.identifier + static_cast<uint32_t>(faults.identifierOffset);
    const uint32_t* sweep = run.plan.list ? &identifier : nullptr;
    const uint32_t* stream = run.plan.list && faults.sweepIdentifierOnly ? nullptr : &identifier;
    return push(run.maker.extensionContext(mcTraits.extensionContext,
                                           run.startTime.plus(run.ticks, mcTraits.clockHz), stream, sweep,
                                           contextFaults(faults)));
}

bool Capturer::sendContexts(Run& run, const CaptureStep& step, bool first) {
    const FaultSettings faults = mcFaults.snapshot();
    const bool due = run.ticks - run.lastContextTicks >= mcTraits.clockHz;
    if (faults.contextMissing) {
        run.lastContextTicks = run.ticks;
    } else if (mcTraits.oneContext) {
        if (!sendIfContext(run, step, faults)) {
            return false;
        }
    } else {
        const bool level = first || due || step.referenceLevelDbm != run.lastReference;
        if (!sendReceiverContext(run, step, faults) || (level && !sendDigitizerContext(run, step, faults))) {
            return false;
        }
    }
    return !first || faults.identifierMissing || sendExtensionContext(run, faults);
}

}  // namespace vnksim
