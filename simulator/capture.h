#pragma once

#include <atomic>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "simulator/family.h"
#include "simulator/packetqueue.h"
#include "simulator/synthesizer.h"
#include "simulator/unit.h"

namespace vnksim {

/// One tuning of a capture and how many packets are taken there.
struct CaptureStep {
    bool directDigitization = false;
    bool real = false;  ///< real samples at the full rate; otherwise complex ones
    double centreHz = 0;
    uint32_t decimation = 1;
    uint32_t samplesPerPacket = 0;
    uint32_t packets = 0;  ///< 0: endless
    unsigned attenuation = 0;
    bool gain1 = true, gain2 = true;
    double referenceLevelDbm = 0;
    uint32_t entry = 0;  ///< of a list, from 0

    uint32_t ticksPerSample() const { return real ? 1 : decimation; }
};

struct CapturePlan {
    uint32_t identifier = 0;
    bool list = false;
    std::vector<CaptureStep> steps;
    uint32_t iterations = 1;  ///< 0: endless
};

/// Makes the packets of captures, on a thread of its own, and puts them into the queue.
class Capturer {
 public:
    Capturer(const UnitOptions& options, Faults& faults, PacketQueue& queue);
    ~Capturer();

    void startThread();
    void stopThread();

    /// Replaces a capture that runs. A list that runs and is started by its own identifier runs once more
    /// behind itself, however often it is started meanwhile.
    void start(CapturePlan plan);
    /// Returns when no packet of the capture can follow.
    void stop();
    void setScene(Scene scene);
    /// "BLOCK", "STREAMING" or "SWEEPING".
    std::string mode() const;
    bool waitForMode(const std::string& mode, std::chrono::milliseconds limit) const;
    /// Ends what only a fault kept running.
    void faultsChanged();
    uint64_t captures() const { return muCaptures.load(); }
    uint64_t dataPackets() const { return muDataPackets.load(); }
    uint64_t samples() const { return muSamples.load(); }

 private:
    struct Run;
    using StepKey = std::tuple<bool, double, uint32_t, double, bool>;
    void body();
    void run(const CapturePlan& plan, std::shared_ptr<const Scene> scene);
    bool runPass(Run& run);
    bool runStep(Run& run, size_t index);
    bool sendBlock(Run& run, size_t index);
    Synthesizer& synthesizerOf(Run& run, const CaptureStep& step);
    bool takeOnce(unsigned FaultSettings::*fault);
    bool pause(unsigned ms);
    bool sendContexts(Run& run, const CaptureStep& step, bool first);
    bool push(Packet packet);
    std::optional<double> toldHz(const Run& run, const CaptureStep& step, const FaultSettings& faults);
    bool sendIfContext(Run& run, const CaptureStep& step, const FaultSettings& faults);
    bool sendReceiverContext(Run& run, const CaptureStep& step, const FaultSettings& faults);
    bool sendDigitizerContext(Run& run, const CaptureStep& step, const FaultSettings& faults);
    bool sendExtensionContext(Run& run, const FaultSettings& faults);
    bool sendData(Run& run, const CaptureStep& step, Synthesizer& synthesizer);
    uint32_t samplesOfPacket(const Run& run, const CaptureStep& step, const FaultSettings& faults);
    std::shared_ptr<const std::vector<uint8_t>> makePayload(Run& run, const CaptureStep& step, uint32_t count,
                                                            Synthesizer& synthesizer, bool& overRange);
    bool pushData(Run& run, const FaultSettings& faults, Packet packet);
    bool waitUntilDue(const Run& run);
    bool cancelled() const { return mbCancel.load(); }
    void cancelAndWait(std::unique_lock<std::mutex>& lock);

    const UnitOptions& mcOptions;
    const FamilyTraits& mcTraits;
    Faults& mcFaults;
    PacketQueue& mcQueue;
    std::shared_ptr<const NoiseTable> mcNoise;

    mutable std::mutex mcLock;
    mutable std::condition_variable mcChanged;
    std::thread mcThread;
    std::shared_ptr<const Scene> mcScene;
    std::unique_ptr<CapturePlan> mcNext;
    std::unique_ptr<CapturePlan> mcFollowing;     // the list that runs, once more
    std::optional<uint32_t> mcRunningIdentifier;  // of a list
    std::string mcMode = "BLOCK";
    bool mbBusy = false, mbEnd = false;
    std::atomic<bool> mbCancel{false};
    std::atomic<uint64_t> muCaptures{0}, muDataPackets{0}, muSamples{0};

    // Of the capturing thread: kept from list to list, since a sweep comes back to the same settings.
    std::shared_ptr<const Scene> mcKeptScene;
    std::map<StepKey, std::unique_ptr<Synthesizer>> mcKept;
};

/// What a step sees, with the level that stands for full scale.
View viewOf(const CaptureStep& step, bool mirrored, const FamilyTraits& traits, const UnitOptions& options);

}  // namespace vnksim
