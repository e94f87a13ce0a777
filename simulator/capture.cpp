#include "simulator/capturerun.h"

#include <algorithm>
#include <cmath>

#include "simulator/models.h"
#include "simulator/voices.h"

namespace vnksim {
namespace {

constexpr double kDitherCounts = 0.4;
constexpr size_t kPart = 8192;
constexpr double kIfHalfWidthHz = 26.5e6;
constexpr double kRealTransitionHz = 1e6;
// Slices of a real view end where the converter's band ends.
constexpr double kDirectHighHz = 61.5e6;

/// `all` tells of the whole capture.
bool isMirrored(const CaptureStep& step, const FaultSettings& faults, bool all) {
    const bool byEntry = step.entry < 32 && (faults.invertedEntries >> step.entry & 1) != 0;
    const double fromHz = faults.invertedFromMHz * 1e6, belowHz = faults.invertedBelowMHz * 1e6;
    const bool byCentre = step.centreHz >= fromHz && step.centreHz < belowHz;
    return !step.directDigitization && (all || byEntry || byCentre);
}

}  // namespace

View viewOf(const CaptureStep& step, bool mirrored, const FamilyTraits& traits, const UnitOptions& options) {
    View view;
    view.real = step.real;
    if (options.ifGaindB) {
        const double tuned = step.directDigitization ? 0 : step.centreHz;
        const double sign = mirrored ? -1 : 1;
        const double origin = step.directDigitization ? 0 : traits.ifHz;
        view.gaindB = [gain = options.ifGaindB, tuned, sign, origin](double hz) {
            return gain(tuned, origin + sign * (hz - tuned));
        };
    }
    view.rateHz = traits.clock() / step.ticksPerSample();
    view.fullScaleDbm = step.referenceLevelDbm + traits.headroomdB;
    if (step.directDigitization) {
        view.lowHz = 0;
        view.highHz = kDirectHighHz;
        view.transitionHz = kRealTransitionHz;
        return view;
    }
    view.mirrored = mirrored;
    view.originHz = step.centreHz;
    view.placeHz = view.real ? traits.ifHz : 0;
    const double half = view.real ? kIfHalfWidthHz : traits.halfWidth * view.rateHz;
    view.lowHz = step.centreHz - half;
    view.highHz = step.centreHz + half;
    view.transitionHz = view.real ? kRealTransitionHz : traits.transition * view.rateHz;
    return view;
}

Capturer::Capturer(const UnitOptions& options, Faults& faults, PacketQueue& queue)
    : mcOptions(options),
      mcTraits(traitsOf(familyOf(options.model))),
      mcFaults(faults),
      mcQueue(queue),
      mcNoise(std::make_shared<NoiseTable>(options.seed)),
      mcScene(std::make_shared<Scene>()) {}

Capturer::~Capturer() {
    stopThread();
}

void Capturer::startThread() {
    mbEnd = false;
    mbCancel = false;
    mcMode = "BLOCK";
    mcThread = std::thread([this] { body(); });
}

void Capturer::stopThread() {
    {
        const std::scoped_lock lock(mcLock);
        mbEnd = true;
        mcNext.reset();
        mcFollowing.reset();
        mbCancel = true;
    }
    mcChanged.notify_all();
    mcQueue.stir();
    if (mcThread.joinable()) {
        mcThread.join();
    }
}

void Capturer::cancelAndWait(std::unique_lock<std::mutex>& lock) {
    mcFollowing.reset();
    if (mcNext) {  // not begun yet
        mcNext.reset();
        mbBusy = false;
    }
    if (mbBusy) {
        mbCancel = true;
        mcChanged.notify_all();
        mcQueue.stir();
        mcChanged.wait(lock, [this] { return !mbBusy; });
    }
}

void Capturer::start(CapturePlan plan) {
    {
        std::unique_lock lock(mcLock);
        ++muCaptures;
        const bool runs = mcMode == "SWEEPING" && mbBusy && !mbCancel;
        if (plan.list && runs && mcRunningIdentifier == plan.identifier) {
            mcFollowing = std::make_unique<CapturePlan>(std::move(plan));
            return;
        }
        cancelAndWait(lock);
        mcRunningIdentifier = plan.list ? std::optional(plan.identifier) : std::nullopt;
        mcMode = plan.list ? "SWEEPING" : "STREAMING";
        mcNext = std::make_unique<CapturePlan>(std::move(plan));
        mbBusy = true;
        mbCancel = false;
    }
    mcChanged.notify_all();
}

void Capturer::stop() {
    const bool runsOn = mcFaults.snapshot().dataAfterStop;
    {
        std::unique_lock lock(mcLock);
        mcMode = "BLOCK";
        if (!runsOn) {
            cancelAndWait(lock);
        }
    }
    mcChanged.notify_all();
}

void Capturer::faultsChanged() {
    const bool runsOn = mcFaults.snapshot().dataAfterStop;
    const std::scoped_lock lock(mcLock);
    if (!runsOn && mbBusy && mcMode == "BLOCK") {
        mbCancel = true;
        mcChanged.notify_all();
        mcQueue.stir();
    }
}

void Capturer::setScene(Scene scene) {
    // The periods of FM stations are computed here, once, and not at each step of a sweep.
    for (Emitter& emitter : scene.emitters) {
        if (const auto* station = std::get_if<FmStation>(&emitter)) {
            emitter = Recording{station->frequencyHz, station->levelDbm, fmWaveform(*station)};
        }
    }
    const std::scoped_lock lock(mcLock);
    mcScene = std::make_shared<Scene>(std::move(scene));
}

std::string Capturer::mode() const {
    const std::scoped_lock lock(mcLock);
    return mcMode;
}

bool Capturer::waitForMode(const std::string& mode, std::chrono::milliseconds limit) const {
    std::unique_lock lock(mcLock);
    return mcChanged.wait_for(lock, limit, [&] { return mcMode == mode; });
}

void Capturer::body() {
    std::unique_lock lock(mcLock);
    for (;;) {
        mcChanged.wait(lock, [this] { return mcNext != nullptr || mbEnd; });
        if (mbEnd) {
            mbBusy = false;
            mcChanged.notify_all();
            return;
        }
        const std::unique_ptr<CapturePlan> plan = std::move(mcNext);
        const auto scene = mcScene;
        lock.unlock();
        run(*plan, scene);
        lock.lock();
        if (!mcNext && !mbCancel) {
            mcNext = std::move(mcFollowing);
        }
        mbBusy = mcNext != nullptr;
        if (!mbBusy && !mbCancel) {
            mcMode = "BLOCK";
        }
        mcChanged.notify_all();
    }
}

void Capturer::run(const CapturePlan& plan, std::shared_ptr<const Scene> scene) {
    const auto since = std::chrono::system_clock::now().time_since_epoch();
    const auto ns =
        static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(since).count());
    Run run{plan, std::move(scene),
            UnitTime{static_cast<uint32_t>(ns / 1000000000u), ns % 1000000000u * 1000u},
            std::chrono::steady_clock::now(), mcFaults.snapshot().spectralInversion};
    if (mcKeptScene != run.scene) {
        mcKept.clear();
        mcKeptScene = run.scene;
    }
    for (uint32_t pass = 0; plan.iterations == 0 || pass < plan.iterations; ++pass) {
        if (!runPass(run)) {
            return;
        }
    }
    if (run.held) {
        push(std::move(*run.held));
    }
}

bool Capturer::runPass(Run& run) {
    const size_t count = run.plan.steps.size();
    run.place = 0;
    for (size_t index = 0; index < count; ++index) {
        const bool swap = run.plan.list && index + 1 < count && mcFaults.snapshot().swapBlocksOnce;
        if (swap) {
            mcFaults.change([](FaultSettings& now) { now.swapBlocksOnce = false; });
            if (!runStep(run, index + 1)) {
                return false;
            }
        }
        if (!runStep(run, index)) {
            return false;
        }
        index += swap ? 1 : 0;
    }
    return true;
}

/// True, and one less, when the fault still has to act.
bool Capturer::takeOnce(unsigned FaultSettings::*fault) {
    bool acts = false;
    mcFaults.change([&](FaultSettings& now) {
        acts = now.*fault > 0;
        now.*fault -= acts ? 1 : 0;
    });
    return acts;
}

bool Capturer::pause(unsigned ms) {
    std::unique_lock lock(mcLock);
    mcChanged.wait_for(lock, std::chrono::milliseconds(ms), [this] { return cancelled(); });
    return !cancelled();
}

bool Capturer::runStep(Run& run, size_t index) {
    const CaptureStep& step = run.plan.steps[index];
    // Sample numbers of the step count from the start of the capture, so the step begins on one of them.
    const uint64_t grid = step.ticksPerSample();
    run.ticks = (run.ticks + grid - 1) / grid * grid;
    if (!run.plan.list) {
        return sendBlock(run, index);
    }
    const FaultSettings faults = mcFaults.snapshot();
    const auto isDue = [&run](unsigned every) { return every > 0 && run.blocks % every == 0; };
    ++run.blocks;
    if (faults.lateBlockOnceMs > 0) {
        mcFaults.change([](FaultSettings& now) { now.lateBlockOnceMs = 0; });
        if (!pause(faults.lateBlockOnceMs)) {
            return false;
        }
    }
    if (isDue(faults.loseBlockEvery) ||
        (faults.loseBlockOnce > 0 && takeOnce(&FaultSettings::loseBlockOnce))) {
        run.ticks += uint64_t{step.packets} * step.samplesPerPacket * grid;
        run.place += step.packets;
        return !cancelled();
    }
    const bool twice = isDue(faults.repeatBlockEvery) ||
                       (faults.repeatBlockOnce > 0 && takeOnce(&FaultSettings::repeatBlockOnce));
    const uint64_t ticks = run.ticks;
    const size_t place = run.place;
    if (twice) {
        if (!sendBlock(run, index)) {
            return false;
        }
        run.ticks = ticks;
        run.place = place;
    }
    return sendBlock(run, index);
}

Synthesizer& Capturer::synthesizerOf(Run& run, const CaptureStep& step) {
    const StepKey key{step.directDigitization, step.directDigitization ? 0 : step.centreHz, step.decimation,
                      step.referenceLevelDbm, run.stepMirrored};
    // A sweep of the whole range has 750 settings.
    constexpr size_t kMostKept = 4096;
    if (mcKept.size() >= kMostKept && mcKept.count(key) == 0) {
        mcKept.clear();
    }
    auto& kept = mcKept[key];
    if (!kept) {
        const double count = std::ldexp(1, 1 - static_cast<int>(mcTraits.bits));
        const double leastSigma = mcOptions.dither ? kDitherCounts * count : 0;
        kept = std::make_unique<Synthesizer>(*run.scene, viewOf(step, run.stepMirrored, mcTraits, mcOptions),
                                             mcNoise, leastSigma);
    }
    return *kept;
}

bool Capturer::sendBlock(Run& run, size_t index) {
    const CaptureStep& step = run.plan.steps[index];
    run.stepMirrored = isMirrored(step, mcFaults.snapshot(), run.mirrored);
    if (!sendContexts(run, step, !run.identified)) {
        return false;
    }
    run.identified = true;
    Synthesizer& synthesizer = synthesizerOf(run, step);
    for (uint32_t packet = 0; step.packets == 0 || packet < step.packets; ++packet) {
        if (packet > 0 && run.ticks - run.lastContextTicks >= mcTraits.clockHz &&
            !sendContexts(run, step, false)) {
            return false;
        }
        if (!sendData(run, step, synthesizer)) {
            return false;
        }
    }
    return true;
}

std::shared_ptr<const std::vector<uint8_t>> Capturer::makePayload(Run& run, const CaptureStep& step,
                                                                  uint32_t count, Synthesizer& synthesizer,
                                                                  bool& overRange) {
    // Those of a stream go round and round, those of a list come again in each pass.
    const bool endless = step.packets == 0;
    const size_t kept =
        endless && !run.prepared.empty() ? run.dataCount % mcOptions.preSynthesise : run.place;
    ++run.place;
    if (kept < run.prepared.size() && run.prepared[kept]->size() == count * (step.real ? 2u : 4u)) {
        return run.prepared[kept];
    }
    const size_t width = step.real ? 1 : 2;
    const uint64_t firstSample = run.ticks / step.ticksPerSample();
    auto payload = std::make_shared<std::vector<uint8_t>>(count * width * 2);
    run.buffer.resize(kPart * width);
    for (uint32_t done = 0; done < count; done += static_cast<uint32_t>(kPart)) {
        if (cancelled()) {
            return nullptr;
        }
        const size_t part = std::min<size_t>(count - done, kPart);
        synthesizer.read(firstSample + done, part, run.buffer.data());
        uint8_t* place = payload->data() + done * width * 2;
        overRange = kernels::quantise(place, run.buffer.data(), part * width, mcTraits.bits) || overRange;
    }
    if (kept == run.prepared.size() && kept < mcOptions.preSynthesise) {
        run.prepared.push_back(payload);
    }
    return payload;
}

uint32_t Capturer::samplesOfPacket(const Run& run, const CaptureStep& step, const FaultSettings& faults) {
    constexpr uint32_t kShort = 32;
    const bool due = faults.shortPacketEvery > 0 && (run.dataCount + 1) % faults.shortPacketEvery == 0;
    const bool isShort =
        run.plan.list && (due || (faults.shortPacketOnce > 0 && takeOnce(&FaultSettings::shortPacketOnce)));
    return step.samplesPerPacket - (isShort ? kShort : 0);
}

bool Capturer::sendData(Run& run, const CaptureStep& step, Synthesizer& synthesizer) {
    FaultSettings faults = mcFaults.snapshot();
    const uint64_t ticksPerSample = step.ticksPerSample();
    if (faults.loseSamplesOnce > 0) {
        run.ticks += faults.loseSamplesOnce * ticksPerSample;
        run.lossPending = true;
        mcFaults.change([](FaultSettings& now) { now.loseSamplesOnce = 0; });
    }
    bool overRange = false;
    const uint32_t count = samplesOfPacket(run, step, faults);
    auto payload = makePayload(run, step, count, synthesizer, overRange);
    if (!payload) {
        return false;
    }
    uint32_t bits = trailer::kValidDataEnable | trailer::kValidData | trailer::kReferenceLockEnable |
                    trailer::kReferenceLock | trailer::kInversionEnable | trailer::kOverRangeEnable |
                    trailer::kSampleLossEnable;
    bits |= (run.stepMirrored ? trailer::kInversion : 0) | (overRange ? trailer::kOverRange : 0) |
            (run.lossPending ? trailer::kSampleLoss : 0);
    bits = (bits & ~faults.trailerClear) | faults.trailerSet;
    run.lossPending = false;
    HeaderFaults header;
    header.sizeOffset = faults.sizeFieldOffset + faults.sizeFieldOffsetOnce;
    header.streamOffset = faults.dataStreamOffset;
    header.withoutStream = faults.dataWithoutStream;
    if (faults.sizeFieldOffsetOnce != 0) {
        mcFaults.change([](FaultSettings& now) { now.sizeFieldOffsetOnce = 0; });
    }
    Packet packet = run.maker.data(step.real ? mcTraits.realData : mcTraits.data,
                                   run.startTime.plus(run.ticks, mcTraits.clockHz), std::move(payload), count,
                                   bits, header);
    run.ticks += step.samplesPerPacket * ticksPerSample;
    run.samples += count;
    ++run.dataCount;
    return waitUntilDue(run) && pushData(run, faults, std::move(packet));
}

bool Capturer::pushData(Run& run, const FaultSettings& faults, Packet packet) {
    const auto count = [this](Packet sent) {
        ++muDataPackets;
        muSamples += sent.samples;
        return push(std::move(sent));
    };
    if (faults.dropOnce > 0) {
        mcFaults.change([](FaultSettings& now) { now.dropOnce -= now.dropOnce > 0 ? 1 : 0; });
        return true;
    }
    if (faults.dropEvery > 0 && run.dataCount % faults.dropEvery == 0) {
        return true;
    }
    if (run.held) {
        Packet earlier = std::move(*run.held);
        run.held.reset();
        return count(std::move(packet)) && count(std::move(earlier));
    }
    if (faults.swapOnce) {
        mcFaults.change([](FaultSettings& now) { now.swapOnce = false; });
        run.held = std::move(packet);
        return true;
    }
    if (faults.repeatOnce > 0 && takeOnce(&FaultSettings::repeatOnce) && !count(packet)) {
        return false;
    }
    return count(std::move(packet));
}

bool Capturer::waitUntilDue(const Run& run) {
    auto due = run.start;
    if (mcOptions.pace == Pace::realTime) {
        const UnitTime gone = UnitTime{}.plus(run.ticks, mcTraits.clockHz);
        due += std::chrono::seconds(gone.seconds) + std::chrono::nanoseconds(gone.picoseconds / 1000);
    } else if (mcOptions.pace == Pace::limited && mcOptions.rateLimit > 0) {
        const double ns = static_cast<double>(run.samples) * 1e9 / mcOptions.rateLimit;
        due += std::chrono::nanoseconds(static_cast<int64_t>(ns));
    } else {
        return !cancelled();
    }
    std::unique_lock lock(mcLock);
    mcChanged.wait_until(lock, due, [this] { return cancelled(); });
    return !cancelled();
}

}  // namespace vnksim
