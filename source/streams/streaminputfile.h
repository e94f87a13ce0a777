#pragma once

#include <atomic>
#include <optional>

#include "flows/framesource.h"
#include "foundations/thread.h"
#include "streams/recordingcontents.h"
#include "streams/recordingfile.h"

/// Plays a recording as a frame source, once or looping, on a thread of its own. To a stream it looks like a
/// device. An object plays once; at the end all sinks see the null frame and are let go.
class StreamInputFile : public utils::ReferenceCountedObject, public FrameSource, public utils::Thread {
 public:
    /// Any extension of the path is replaced. Never throws for a bad file: isOpen tells.
    explicit StreamInputFile(const std::string& path);
    ~StreamInputFile() override;

    /// The description was understood and the data file is open.
    bool isOpen() const { return mbOpen; }
    /// The stem of the pair; empty unless open.
    const std::string& getPath() const { return mcPath; }
    const std::string& dataType() const { return mcContents.mcDataType; }
    /// What the description tells under "Sampling"; for spectra with "FMinHz" and "FMaxHz".
    utils::VariantRecord getSampling() const { return mcContents.mcSampling; }
    bool isExhausted() override { return mbFinished; }
    utils::ReferenceCountedObject* countedSelf() override { return this; }

    void setLooping(bool bLooping) { mbLooping.store(bLooping, std::memory_order_relaxed); }
    bool isLooping() const { return mbLooping.load(std::memory_order_relaxed); }
    /// Wait between frames to keep the recorded rate; set at first.
    void setPaced(bool bPaced) { mbPaced.store(bPaced, std::memory_order_relaxed); }
    void setPaused(bool bPaused) { mbPaused.store(bPaused, std::memory_order_relaxed); }
    /// Starts the thread unless it runs. Throws std::system_error when there is none to be had.
    void play();

    /// What all players of the process have read: samples or points, and frames. Both wrap.
    static uint32_t totalRead();
    static uint32_t totalFrames();

 protected:
    void run() override;
    void destroySelf() noexcept override;
    /// The clock of the pacing, in 100 ns, and its waits; a stop ends a wait at once.
    virtual uint64_t tickCount() const;
    virtual void pause(uint64_t uMicroseconds);

 private:
    void open(const std::string& stem);
    void playAll();
    void playIQ();
    void playSpectrum();
    void playBaseband();
    template <typename Make, typename Follow>
    void playPass(Make make, Follow follow);
    bool rewind();
    bool playsAgain() const;
    uint64_t wallTime() const;
    void pace(const Frame& cFrame, uint64_t uWallStart);
    void end();

    std::string mcPath;
    InputFile mcData;
    RecordingContents mcContents;
    bool mbOpen = false;
    uint64_t muStartTime = 0;
    std::atomic<bool> mbFinished{true};
    std::atomic<bool> mbPaused{false};
    std::atomic<bool> mbPaced{true};
    std::atomic<bool> mbLooping{false};
};

/// How long to wait for a frame that lies `iAhead` of the clock. The difference is taken in the ticks of the
/// recording's resolution, though frame times are in nanoseconds: the two agree at the resolution of all live
/// streams.
uint64_t pacingMicroseconds(uint32_t uResolution, int64_t iAhead);
