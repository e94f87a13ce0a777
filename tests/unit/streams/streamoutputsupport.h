#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "streams/streamoutputfile.h"
#include "support/loopback.h"
#include "unit/flows/flowsupport.h"
#include "unit/streams/recordingsupport.h"

namespace vnktest {

inline std::string iqBytes(uint32_t uSequence, uint64_t uTimestamp, const std::vector<float>& lPairs) {
    return Bytes()
        .u32(0x12F7A2E6)
        .u64(uTimestamp)
        .u32(uSequence)
        .u32(static_cast<uint32_t>(lPairs.size() / 2))
        .floats(lPairs)
        .text();
}

inline std::string iqBytes(uint32_t uSequence) {
    return iqBytes(uSequence, 0, ramp(8));
}

inline ReferencePtr<IQFrame> smallIQ(uint32_t uSequence) {
    return makeIQ(fieldsAt(uSequence), ramp(8));
}

/// The sequences of the IQ frames of a data file, in order; -1 behind them where it goes wrong.
inline std::vector<int64_t> sequences(const std::string& bytes) {
    const auto u32At = [&](size_t uAt) {
        uint32_t uValue;
        std::memcpy(&uValue, bytes.data() + uAt, 4);
        return uValue;
    };
    std::vector<int64_t> lSequences;
    for (size_t uAt = 0; uAt < bytes.size();) {
        if (bytes.size() - uAt < 20 || u32At(uAt) != 0x12F7A2E6 ||
            bytes.size() - uAt - 20 < size_t{u32At(uAt + 16)} * 8) {
            lSequences.push_back(-1);
            break;
        }
        lSequences.push_back(u32At(uAt + 12));
        uAt += 20 + size_t{u32At(uAt + 16)} * 8;
    }
    return lSequences;
}

/// A gate that a frame waits at in the middle of being written.
class Gate {
 public:
    void pass() {
        std::unique_lock<std::mutex> cLock(mcMutex);
        ++muReached;
        mcCondition.notify_all();
        mcCondition.wait(cLock, [&] { return mbOpen; });
    }
    void open() {
        std::lock_guard<std::mutex> cLock(mcMutex);
        mbOpen = true;
        mcCondition.notify_all();
    }
    bool waitReached(uint32_t uTimes = 1) {
        std::unique_lock<std::mutex> cLock(mcMutex);
        return mcCondition.wait_for(cLock, std::chrono::seconds(30), [&] { return muReached >= uTimes; });
    }

 private:
    std::mutex mcMutex;
    std::condition_variable mcCondition;
    uint32_t muReached = 0;
    bool mbOpen = false;
};

/// An IQ frame that can wait while it is written, claims any size, and tells what becomes of it.
class WatchedFrame : public IQFrame {
 public:
    struct Fate {
        std::atomic<uint32_t> muWritten{0};
        std::atomic<uint32_t> muFreed{0};
        std::atomic<bool> mbFreedWhileWritten{false};
        Gate* mpGate = nullptr;
        uint64_t muBytes = 0;  // 0: as large as it is
    };
    WatchedFrame(uint32_t uSequence, Fate& cFate)
        : IQFrame(uSequence, uint64_t{0}, uint64_t{0}, kNanoseconds, 0.0f, 0.0f, 1.0e6f, 0.0f,
                  vnktest::complexArray(ramp(8)), {}),
          mcFate(cFate) {}
    ~WatchedFrame() override {
        if (mbWriting)
            mcFate.mbFreedWhileWritten = true;
        ++mcFate.muFreed;
    }
    uint64_t getDataBytes() const override {
        return mcFate.muBytes ? mcFate.muBytes : IQFrame::getDataBytes();
    }
    uint64_t writeTo(std::ostream& cStream) const override {
        mbWriting = true;
        if (mcFate.mpGate)
            mcFate.mpGate->pass();
        const uint64_t uResult = IQFrame::writeTo(cStream);
        ++mcFate.muWritten;
        mbWriting = false;
        return uResult;
    }

 private:
    Fate& mcFate;
    mutable std::atomic<bool> mbWriting{false};
};

class SourceEntity : public Entity {
 public:
    explicit SourceEntity(const char* pText) : mcParameters(pText) {}
    utils::VariantRecord getParameters() override { return mcParameters; }
    utils::VariantRecord mcParameters;
};

using OutputPtr = ReferencePtr<StreamOutputFile>;

/// Recordings in a folder of their own, "x" unless told otherwise.
class StreamOutputFileTest : public FlowTest {
 protected:
    OutputPtr record(const std::string& name = "x.json", ReferencePtr<Entity> cSource = nullptr) {
        return makeReference<StreamOutputFile>(mcFolder.path(name), cSource);
    }
    std::string data(const std::string& stem = "x") const { return readWhole(mcFolder.file(stem + ".data")); }
    std::string json(const std::string& stem = "x") const { return readWhole(mcFolder.file(stem + ".json")); }
    utils::VariantRecord summary(const char* pType) const {
        const utils::VariantRecord cRecord = parseRecord(json());
        const utils::Variant* pSummary = cRecord.find(pType);
        if (!pSummary || !pSummary->getRecord()) {
            ADD_FAILURE() << "no summary of " << pType << " in '" << json() << "'";
            return {};
        }
        return *pSummary->getRecord();
    }
    /// Until all frames so far are in the data file.
    bool waitForBytes(size_t uBytes) const {
        return waitUntil([&] {
            std::error_code cIgnored;
            return std::filesystem::file_size(mcFolder.file("x.data"), cIgnored) == uBytes;
        });
    }
    TempFolder mcFolder;
};

}  // namespace vnktest
