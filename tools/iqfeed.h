#pragma once

#include <chrono>
#include <optional>

#include "tools/iqinput.h"
#include "tools/levels.h"

namespace cli {

/// IQ on its way into processors: plays or captures it, and watches what comes. Attach processors to its
/// stream before it starts, so that they miss nothing; to learn a unit's sample rate first, wait for its
/// first frame, and lose that one.
class IqFeed {
 public:
    explicit IqFeed(IqInput& input);

    const IqStream& stream() const { return mcStream; }
    void start();
    /// False when none comes, or Ctrl-C: ending() tells why.
    bool waitForFirst();
    Ending ending() const { return meEnding; }

    /// The next frame of the last stream of a chain that this feeds. Ended: all that was on its way is
    /// through. Not responding: the link is lost, or nothing comes; ending() tells which.
    template <typename Output, typename Frame>
    int32_t next(Output& output, Frame& frame, uint32_t timeoutMs) {
        const int32_t iStatus = output.next(frame, timeoutMs);
        const bool bGoesOn = look();
        if (iStatus == kStatusFrame) {
            mcLastOutput = Clock::now();
            return iStatus;
        }
        if (iStatus == kStatusEnded) {
            // A frame may have come between the library's looks at the queue and at what feeds it.
            if (output.next(frame, 0) == kStatusFrame)
                return kStatusFrame;
            // The end of a chain may show before that of the stream in front of it.
            if (bGoesOn && !mbEnded)
                noteEnd();
            return iStatus;
        }
        if (iStatus < 0)
            return iStatus;
        if (!bGoesOn)
            return kStatusNotResponding;
        return hasDrained() ? kStatusEnded : kStatusNothing;
    }

    bool begun() const { return muFrames > 0; }
    double centreHz() const { return mdCentreHz; }
    double bandwidthHz() const { return mdBandwidthHz; }
    double sampleRateHz() const { return mdSampleRateHz; }
    uint64_t samples() const { return muSamples; }
    uint64_t gaps() const { return muGaps; }
    uint64_t overflows() const { return muOverflows; }
    const LevelStatistics& levels() const { return mcLevels; }

 private:
    using Clock = std::chrono::steady_clock;

    /// Takes what the stream has queued; false when nothing more is to be hoped for.
    bool look();
    void take(const vnkIQRecord& record);
    void noteEnd();
    bool hasDrained() const;

    IqInput& mcInput;
    IqStream mcStream;
    Ending meEnding = Ending::ended;
    Clock::time_point mcLast, mcLastOutput, mcEnd;
    bool mbEnded = false;
    double mdCentreHz = 0, mdBandwidthHz = 0, mdSampleRateHz = 0;
    uint64_t muFrames = 0, muSamples = 0, muGaps = 0, muOverflows = 0;
    LevelStatistics mcLevels;
};

/// Frames that the library dropped inside of a chain because the machine did not follow, by its notes.
uint64_t droppedFrames(Session& session);

}  // namespace cli
