#include "streams/streaminputfile.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <thread>
#include <utility>

#include "flows/basebandframe.h"
#include "flows/iqframe.h"
#include "flows/spectrumframe.h"
#include "streams/recordingpath.h"

namespace {

constexpr uint32_t kPlayerPriority = 4;
constexpr uint32_t kEndLimitMs = 1000;
constexpr uint64_t kPausedStepUs = 100000;
constexpr int64_t kLongestFrameMs = 3600000;   // what a description claims beyond that is no pace
constexpr std::streamoff kLongestDescription = std::streamoff{256} << 10;

std::atomic<uint32_t> suTotalRead{0};
std::atomic<uint32_t> suTotalFrames{0};

/// Empty for a file that cannot be read or is longer than any description.
std::string readText(const std::string& path) {
    InputFile cFile;
    if (!cFile.buffer().open(path))
        return {};
    cFile.seekg(0, std::ios_base::end);
    const std::streamoff iLength = cFile.tellg();
    if (iLength <= 0 || iLength > kLongestDescription)
        return {};
    cFile.seekg(0);
    std::string text(static_cast<size_t>(iLength), '\0');
    cFile.read(text.data(), iLength);
    text.resize(static_cast<size_t>(cFile.gcount()));
    return text;
}

/// Rounded; 0 for what is no number and for what no wait or step of time could be.
int64_t roundedOrZero(double fValue) {
    const double fRounded = std::round(fValue);
    return std::fabs(fRounded) < 9.0e18 ? static_cast<int64_t>(fRounded) : 0;
}

}  // namespace

uint64_t pacingMicroseconds(uint32_t uResolution, int64_t iAhead) {
    constexpr double kLongest = 1.0e18;
    const double fMicroseconds =
        std::floor(static_cast<double>(secondsPerTick(uResolution)) * static_cast<double>(iAhead) * 1000000.0);
    return static_cast<uint64_t>(std::fmin(std::fmax(fMicroseconds, 0.0), kLongest));
}

StreamInputFile::StreamInputFile(const std::string& path)
    : FrameSource(std::string()), utils::Thread("StreamInputFile") {
    open(RecordingPath::stemOf(path));
}

void StreamInputFile::open(const std::string& stem) {
    if (!RecordingPath::hasFolder(stem + ".json"))
        return;
    auto cContents = RecordingContents::parse(readText(stem + ".json"));
    if (!cContents)
        return;
    mcContents = std::move(*cContents);
    muStartTime = mcContents.muStartTime;
    mbOpen = mcData.buffer().open(stem + ".data");
    if (mbOpen)
        mcPath = stem;
    mbFinished = !mbOpen;
}

StreamInputFile::~StreamInputFile() {
    releaseSinks();
    notify();
    stop(kEndLimitMs);
}

// The body may be at its end in a sink that lets go of the last reference: what it uses outlives it.
void StreamInputFile::destroySelf() noexcept {
    retire(kEndLimitMs, [this] { delete this; });
}

void StreamInputFile::play() {
    if (!isRunning())
        start(kPlayerPriority);
}

uint32_t StreamInputFile::totalRead() {
    return suTotalRead;
}

uint32_t StreamInputFile::totalFrames() {
    return suTotalFrames;
}

// Whatever happens, the sinks learn that the stream has ended.
void StreamInputFile::run() {
    try {
        playAll();
    } catch (...) {
        end();
        throw;
    }
    end();
}

void StreamInputFile::end() {
    mbFinished = true;
    deliverFrame(nullptr, true);
}

void StreamInputFile::playAll() {
    if (dataType() == "IQ")
        playIQ();
    else if (dataType() == "Spectrum")
        playSpectrum();
    else if (dataType() == "Baseband")
        playBaseband();
}

// Time.

uint64_t StreamInputFile::tickCount() const {
    using Ticks = std::chrono::duration<uint64_t, std::ratio<1, 10000000>>;
    return std::chrono::duration_cast<Ticks>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

void StreamInputFile::pause(uint64_t uMicroseconds) {
    if (!isStopping())
        sleepMicroseconds(uMicroseconds);
}

/// In ticks of the recording's resolution.
uint64_t StreamInputFile::wallTime() const {
    const uint64_t uTicks = tickCount();
    switch (mcContents.muResolution) {
        case kMicroseconds:
            return uTicks / 10;
        case kNanoseconds:
            return uTicks * 100;
        case kPicoseconds:
            return uTicks * 100000;
        default:
            return uTicks / 10000;
    }
}

// Both times count from the pass's start, so that waits that end late do not add up. The difference is signed:
// a frame whose time has gone back is late, and not ages ahead.
void StreamInputFile::pace(const Frame& cFrame, uint64_t uWallStart) {
    if (!mbPaced.load(std::memory_order_relaxed))
        return;
    const auto iFrame = static_cast<int64_t>(cFrame.getTimestamp(kNanoseconds) - muStartTime);
    const auto iElapsed = std::max<int64_t>(static_cast<int64_t>(wallTime() - uWallStart), 0);
    if (iElapsed < iFrame)
        pause(pacingMicroseconds(mcContents.muResolution, iFrame - iElapsed));
}

// Passes.

bool StreamInputFile::rewind() {
    mcData.clear();
    mcData.seekg(0);
    return mcData.good();
}

bool StreamInputFile::playsAgain() const {
    if (!isLooping() || isStopping())
        return false;
    // A recording without a single frame passes at once.
    std::this_thread::yield();
    return true;
}

/// One frame after the other, until the data end, a stop, or `follow` says so.
template <typename Make, typename Follow>
void StreamInputFile::playPass(Make make, Follow follow) {
    while (!isStopping()) {
        if (mbPaused.load(std::memory_order_relaxed)) {
            pause(kPausedStepUs);
            continue;
        }
        const auto cFrame = make();
        cFrame->setLive(false);
        const uint64_t uRead = cFrame->readFrom(mcData);
        if (uRead == 0)
            return;
        suTotalRead += static_cast<uint32_t>(uRead);
        ++suTotalFrames;
        deliverFrame(cFrame, false);
        if (!follow(*cFrame, uRead))
            return;
    }
}

void StreamInputFile::playIQ() {
    const RecordingContents& c = mcContents;
    do {
        const uint64_t uWallStart = wallTime();
        if (!rewind())
            return;
        uint64_t uPosition = 0;
        playPass(
            [&] {
                return makeReference<IQFrame>(0u, uPosition, muStartTime, c.muResolution, c.mfCentreHz,
                                              c.mfBandwidthHz, c.mfSampleRateHz, c.mfReferenceLevel,
                                              ReferencePtr<ComplexArray>(), c.mcUnits);
            },
            [&](const IQFrame& cFrame, uint64_t uRead) {
                if (muStartTime == 0)
                    muStartTime = cFrame.timestamp();
                pace(cFrame, uWallStart);
                uPosition += uRead;
                return uPosition < c.muSampleTotal;
            });
    } while (playsAgain());
}

void StreamInputFile::playSpectrum() {
    const RecordingContents& c = mcContents;
    do {
        const uint64_t uWallStart = wallTime();
        muStartTime = 0;
        if (!rewind())
            return;
        playPass(
            [&] {
                return makeReference<SpectrumFrame>(0u, uint64_t{0}, uint64_t{0}, c.muResolution, c.minimumHz(),
                                                    c.maximumHz(), c.mfRBWHz, c.mfReferenceLevel, c.mcWindowName,
                                                    ReferencePtr<FloatArray>(), c.mcUnits);
            },
            [&](const SpectrumFrame& cFrame, uint64_t) {
                if (muStartTime == 0)
                    muStartTime = cFrame.getTimestamp(kNanoseconds);
                pace(cFrame, uWallStart);
                return true;
            });
    } while (playsAgain());
}

// Frames of this kind carry no time in the file: it is made up from the length of the whole, counted from the
// start time, which a later pass finds at 0. The library's own recordings do not tell the points of a frame, so
// that all frames of a pass begin at its start and none is waited for.
void StreamInputFile::playBaseband() {
    const RecordingContents& c = mcContents;
    const double fPoints = c.muPointsPerFrame;
    const int64_t iWaitMs =
        std::min(roundedOrZero(fPoints * 1000.0 / static_cast<double>(c.mfSampleRateHz)), kLongestFrameMs);
    do {
        const double fTicksPerSample = static_cast<double>(static_cast<int64_t>(c.muEndTime - muStartTime)) /
                                       static_cast<double>(c.muSampleTotal);
        const int64_t iFrameTicks = roundedOrZero(fPoints * fTicksPerSample);
        uint64_t uTime = std::exchange(muStartTime, 0);
        uint32_t uSequence = 0;
        if (!rewind())
            return;
        playPass(
            [&] {
                const auto cFrame = makeReference<BasebandFrame>(uTime, c.muResolution, c.mfSampleRateHz,
                                                                 c.mfBandwidthHz);
                cFrame->setSequence(uSequence);
                return cFrame;
            },
            [&](const BasebandFrame&, uint64_t) {
                ++uSequence;
                uTime += static_cast<uint64_t>(iFrameTicks);
                if (mbPaced.load(std::memory_order_relaxed) && iWaitMs > 0)
                    pause(static_cast<uint64_t>(iWaitMs) * 1000);
                return true;
            });
    } while (playsAgain());
}
