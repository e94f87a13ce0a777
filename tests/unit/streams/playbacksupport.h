#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "streams/streaminputfile.h"
#include "unit/flows/flowsupport.h"
#include "unit/streams/recordingsupport.h"

namespace vnktest {

/// The text side of a recording, each value as it stands in the text.
struct Description {
    using Values = std::map<std::string, std::string>;

    std::string text() const {
        return "{\r\n\t\"DataType\":\"" + mcDataType + "\",\r\n\t\"" + mcDataType +
               "\":" + recordOf(mcSummary) + ",\r\n\t\"Sampling\":" + recordOf(mcSampling) + "\r\n}";
    }
    static std::string recordOf(const Values& cValues) {
        std::string text = "{";
        for (const auto& [key, value] : cValues)
            text += (text.size() > 1 ? "," : "") + ("\"" + key + "\":") + value;
        return text + "}";
    }

    std::string mcDataType;
    Values mcSampling;
    Values mcSummary;
};

inline Description describeIQ(uint64_t uStart, uint64_t uSamples) {
    return {"IQ",
            {{"FCentreHz", "100000000.0"},
             {"BandwidthHz", "1000000.0"},
             {"RefdBm", "-30.0"},
             {"units", "\"sqrt-mw\""},
             {"SampleRateHz", "2000000.0"}},
            {{"StartTimestamp", std::to_string(uStart)},
             {"EndTimestamp", std::to_string(uStart + 1000)},
             {"TimeResolution", "\"ns\""},
             {"Samples", std::to_string(uSamples)}}};
}

inline Description describeSpectrum(uint64_t uStart) {
    return {"Spectrum",
            {{"FCentreHz", "100000000.0"},
             {"BandwidthHz", "1000000.0"},
             {"RefdBm", "-30.0"},
             {"units", "\"dBm\""},
             {"RBWHz", "2500.0"},
             {"WindowFn", "\"Hanning\""}},
            {{"StartTimestamp", std::to_string(uStart)},
             {"EndTimestamp", std::to_string(uStart + 1000)},
             {"TimeResolution", "\"ns\""},
             {"PointsPerFrame", "4"},
             {"Frames", "3"}}};
}

inline Description describeBaseband(uint64_t uStart, uint64_t uEnd, uint64_t uSamples) {
    return {"Baseband",
            {{"FCentreHz", "100000000.0"},
             {"BandwidthHz", "20000.0"},
             {"RefdBm", "-30.0"},
             {"units", "\"dBm\""},
             {"SampleRateHz", "48000.0"},
             {"UsableBWHz", "19000.0"},
             {"Channels", "2"}},
            {{"StartTimestamp", std::to_string(uStart)},
             {"EndTimestamp", std::to_string(uEnd)},
             {"TimeResolution", "\"ns\""},
             {"Samples", std::to_string(uSamples)}}};
}

/// One stored frame; samples as I and Q in turn.
inline std::string iqBytes(uint64_t uTimestamp, uint32_t uSequence, const std::vector<float>& lPairs) {
    const auto uCount = static_cast<uint32_t>(lPairs.size() / 2);
    return Bytes().u32(0x12F7A2E6).u64(uTimestamp).u32(uSequence).u32(uCount).floats(lPairs).text();
}

inline std::string spectrumBytes(uint64_t uTimestamp, uint64_t uDuration, uint32_t uSequence,
                                 const std::vector<float>& lPoints) {
    return Bytes()
        .u32(0x59EC7422)
        .u64(uTimestamp)
        .u64(uDuration)
        .u32(uSequence)
        .u32(static_cast<uint32_t>(lPoints.size()))
        .floats(lPoints)
        .text();
}

inline std::string basebandBytes(const std::vector<std::vector<float>>& lChannels) {
    Bytes cBytes;
    const size_t uSamples = lChannels.empty() ? 0 : lChannels[0].size();
    cBytes.u32(0xBA5EBA4D).u32(static_cast<uint32_t>(uSamples)).u32(static_cast<uint32_t>(lChannels.size()));
    for (const auto& lChannel : lChannels)
        cBytes.floats(lChannel);
    return cBytes.text();
}

/// Keeps what it is given.
class PlaybackSink : public FrameSink {
 public:
    void receiveFrame(ReferencePtr<Frame> cFrame, bool bLast) override {
        {
            std::lock_guard<std::mutex> cGuard(mcMutex);
            if (!cFrame)
                ++muNulls;
            else if (++muFrames; mbKeeping)
                mlFrames.push_back(cFrame);
        }
        if (mcReaction)
            mcReaction(cFrame.get());
        if (bLast)
            detachFromSource();
    }
    size_t frameCount() {
        std::lock_guard<std::mutex> cGuard(mcMutex);
        return muFrames;
    }
    size_t nullCount() {
        std::lock_guard<std::mutex> cGuard(mcMutex);
        return muNulls;
    }
    template <typename T>
    std::vector<const T*> frames() {
        std::lock_guard<std::mutex> cGuard(mcMutex);
        std::vector<const T*> lFrames;
        for (const auto& cFrame : mlFrames)
            lFrames.push_back(dynamic_cast<const T*>(cFrame.get()));
        return lFrames;
    }
    std::vector<uint64_t> timestamps() {
        std::vector<uint64_t> lTimes;
        for (const Frame* pFrame : frames<Frame>())
            lTimes.push_back(pFrame->timestamp());
        return lTimes;
    }
    /// What a file of the frames would hold.
    std::string stored() {
        std::ostringstream cStream;
        for (const Frame* pFrame : frames<Frame>())
            pFrame->writeTo(cStream);
        return cStream.str();
    }

    bool mbKeeping = true;
    std::function<void(const Frame*)> mcReaction;  // null at the stream's end

 private:
    std::mutex mcMutex;
    std::vector<ReferencePtr<Frame>> mlFrames;
    size_t muFrames = 0;
    size_t muNulls = 0;
};

/// A player whose clock moves only while it waits. The body may be run on the test's own thread.
class ClockedPlayer : public StreamInputFile {
 public:
    using StreamInputFile::run;
    using StreamInputFile::StreamInputFile;
    uint64_t tickCount() const override { return muTicks; }
    void pause(uint64_t uMicroseconds) override {
        ++muPauses;
        if (mbKeeping)
            mlPauses.push_back(uMicroseconds);
        muTicks += uMicroseconds * 10;
        if (mcReaction)
            mcReaction(uMicroseconds);
    }

    uint64_t muTicks = 123456789;
    bool mbKeeping = true;
    size_t muPauses = 0;
    std::vector<uint64_t> mlPauses;
    std::function<void(uint64_t)> mcReaction;
};

/// A folder with a pair "x" in it, its player and a sink.
class PlaybackTest : public FlowTest {
 protected:
    void TearDown() override {
        if (mcSink)
            mcSink->detachFromSource();
    }
    void write(const std::string& description, const std::string& data) {
        replace("x.json", description);
        replace("x.data", data);
    }
    /// As a new file: some file systems flush one that is emptied and written again.
    void replace(const std::string& name, const std::string& bytes) {
        std::filesystem::remove(mcFolder.file(name));
        writeWhole(mcFolder.file(name), bytes);
    }
    void write(const Description& cDescription, const std::string& data) { write(cDescription.text(), data); }
    ReferencePtr<ClockedPlayer> player() {
        auto cPlayer = makeReference<ClockedPlayer>(mcFolder.path("x"));
        mcSink = makeReference<PlaybackSink>();
        EXPECT_TRUE(cPlayer->attachFrameSink(mcSink, mlErrors));
        return cPlayer;
    }
    /// All that a player of the pair delivers when nothing holds it up.
    ReferencePtr<ClockedPlayer> playAll() {
        auto cPlayer = player();
        EXPECT_TRUE(cPlayer->isOpen());
        cPlayer->setPaced(false);
        cPlayer->run();
        return cPlayer;
    }

    TempFolder mcFolder;
    ReferencePtr<PlaybackSink> mcSink;
};

}  // namespace vnktest
