#pragma once

#include <atomic>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "simulator/packetqueue.h"
#include "simulator/synthesizer.h"
#include "simulator/unit.h"

namespace vnksim {

/// One tuning of a capture and how many packets are taken there.
struct CaptureStep {
    bool directDigitization = false;
    double centreHz = 0;
    uint32_t decimation = 1;
    uint32_t samplesPerPacket = 0;
    uint32_t packets = 0;  ///< 0: endless
    unsigned attenuation = 0;
    bool gain1 = true, gain2 = true;

    bool real() const { return directDigitization || decimation == 1; }
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

    /// Replaces a capture that runs.
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
    void body();
    void run(const CapturePlan& plan, std::shared_ptr<const Scene> scene);
    bool runStep(Run& run, size_t index);
    bool sendContexts(Run& run, const CaptureStep& step, bool first);
    bool sendData(Run& run, const CaptureStep& step, Synthesizer& synthesizer);
    std::shared_ptr<const std::vector<uint8_t>> makePayload(Run& run, const CaptureStep& step,
                                                            Synthesizer& synthesizer, bool& overRange);
    bool pushData(Run& run, const FaultSettings& faults, Packet packet);
    bool waitUntilDue(const Run& run);
    bool cancelled() const { return mbCancel.load(); }
    void cancelAndWait(std::unique_lock<std::mutex>& lock);

    const UnitOptions& mcOptions;
    Faults& mcFaults;
    PacketQueue& mcQueue;
    std::shared_ptr<const NoiseTable> mcNoise;

    mutable std::mutex mcLock;
    mutable std::condition_variable mcChanged;
    std::thread mcThread;
    std::shared_ptr<const Scene> mcScene;
    std::unique_ptr<CapturePlan> mcNext;
    std::string mcMode = "BLOCK";
    bool mbBusy = false, mbEnd = false;
    std::atomic<bool> mbCancel{false};
    std::atomic<uint64_t> muCaptures{0}, muDataPackets{0}, muSamples{0};
};

/// What a step sees, with the level that stands for full scale.
View viewOf(const CaptureStep& step, double referenceLevelDbm, bool mirrored);

}  // namespace vnksim
