#pragma once

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "api/text.h"
#include "libvnk.h"
#include "recordings/pair.h"
#include "support/loopback.h"

// Streams and their records as a user's program holds them.

namespace recordings {

/// Sanitizers are slow and keep what has been freed: no measure of memory holds under them.
#ifdef VNK_SANITIZED
inline constexpr bool kSanitized = true;
#else
inline constexpr bool kSanitized = false;
#endif

/// A record that gives itself back.
template <typename Record, int32_t (*kNext)(uint32_t, Record**, uint32_t), int32_t (*kFree)(Record**)>
class Held {
 public:
    Held() = default;
    Held(Held&& cOther) noexcept : mpRecord(std::exchange(cOther.mpRecord, nullptr)) {}
    ~Held() { free(); }
    void free() {
        if (mpRecord)
            kFree(&mpRecord);
    }
    /// The status of one read.
    int32_t take(uint32_t uStream, uint32_t uTimeoutMs) {
        free();
        return kNext(uStream, &mpRecord, uTimeoutMs);
    }
    bool empty() const { return mpRecord == nullptr; }
    const Record* operator->() const { return mpRecord; }

 private:
    Record* mpRecord = nullptr;
};

using HeldIQ = Held<vnkIQRecord, vnkGetNextIQ, vnkFreeIQ>;
using HeldSpectrum = Held<vnkSpectrumRecord, vnkGetNextSpectrum, vnkFreeSpectrum>;

inline IQ contents(const HeldIQ& c) {
    IQ cFrame{c->timestamp, c->sequence, std::vector<std::complex<float>>(c->sampleCount)};
    if (c->sampleCount > 0)
        std::memcpy(static_cast<void*>(cFrame.mlSamples.data()), c->samples, size_t{c->sampleCount} * 8);
    return cFrame;
}

inline Spectrum contents(const HeldSpectrum& c) {
    return {c->timestamp, c->duration, c->sequence, std::vector<float>(c->points, c->points + c->pointCount)};
}

enum class Kind { iq, spectrum };

/// A stream handle that closes itself.
class Stream {
 public:
    explicit Stream(Kind eKind = Kind::iq) {
        if (eKind == Kind::iq)
            EXPECT_EQ(vnkCreateIQStream(&muHandle, 100e6f, 100e3f, -30.0f), 0);
        else
            EXPECT_EQ(vnkCreateSpectrumStream(&muHandle, 90e6f, 110e6f, 10e3f, "hann", -30.0f), 0);
    }
    ~Stream() { close(); }
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    uint32_t handle() const { return muHandle; }
    int32_t close() { return muHandle == VNK_INVALID_HANDLE ? 0 : vnkClose(&muHandle); }
    int32_t play(const std::string& path) { return vnkAttachStreamToFile(muHandle, path.c_str()); }
    int32_t record(const std::string& path) { return vnkSetStreamOutputFile(muHandle, path.c_str()); }
    int32_t endRecording() { return vnkSetStreamOutputFile(muHandle, nullptr); }
    int32_t detach() { return vnkDetachStream(muHandle); }
    int32_t isAttached() const { return vnkIsAttached(muHandle); }
    int32_t set(const std::string& parameters) {
        Text cText(parameters);
        return vnkSetParameters(muHandle, cText.address());
    }
    /// So that a reader who pauses loses nothing.
    void queueAll() { EXPECT_EQ(set("{\"bufferFrames\":100000}"), 0); }
    std::string parameters() const {
        Text cText;
        EXPECT_EQ(vnkGetParameters(muHandle, cText.address()), 0);
        return cText.str();
    }
    std::string schema() const {
        Text cText;
        EXPECT_EQ(vnkGetParameterInfo(muHandle, cText.address()), 0);
        return cText.str();
    }
    std::string text(const char* pKey) const {
        Text cText(parameters()), cValue;
        return vnkReadTextParameter(cText.address(), pKey, cValue.address()) == 0 ? cValue.str() : "(none)";
    }
    template <typename Record>
    int32_t read(Record& cRecord, uint32_t uTimeoutMs = 0) {
        return cRecord.take(muHandle, uTimeoutMs);
    }
    /// The next frame, within a generous limit.
    template <typename Record>
    bool next(Record& cRecord) {
        return vnktest::waitUntil([&] { return read(cRecord, 500) == 0; });
    }

 private:
    uint32_t muHandle = VNK_INVALID_HANDLE;
};

/// All frames until the stream has ended, or has never begun.
template <typename Record, typename Frame>
std::vector<Frame> readToEnd(Stream& cStream) {
    std::vector<Frame> lFrames;
    Record cRecord;
    const bool bEnded = vnktest::waitUntil([&] {
        const bool bDetached = cStream.isAttached() == 5;
        int32_t iStatus = 0;
        while ((iStatus = cStream.read(cRecord, 200)) == 0)
            lFrames.push_back(contents(cRecord));
        return iStatus == 2 || (iStatus == 3 && bDetached);
    });
    EXPECT_TRUE(bEnded) << "the stream did not end";
    return lFrames;
}

inline std::vector<IQ> readIQ(Stream& cStream) {
    return readToEnd<HeldIQ, IQ>(cStream);
}
inline std::vector<Spectrum> readSpectra(Stream& cStream) {
    return readToEnd<HeldSpectrum, Spectrum>(cStream);
}

/// The library's internal log, drained; newest first.
inline std::string takeLog() {
    return Text::take(vnkGetVerboseInternalErrorState(1000));
}

inline size_t countOf(const std::string& text, const std::string& part) {
    size_t uCount = 0;
    for (size_t uAt = text.find(part); uAt != std::string::npos; uAt = text.find(part, uAt + 1))
        ++uCount;
    return uCount;
}

}  // namespace recordings
