#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "recordings/player.h"

// Processors and their streams as a user's program holds them.

namespace processing {

using namespace recordings;

using HeldBaseband = Held<vnkBasebandRecord, vnkGetNextBaseband, vnkFreeBaseband>;

inline const std::vector<std::string> kTypes = {"AMDemodulator", "FMDemodulator", "IQToSpectrum",
                                                "SpectrumCharacterization"};

/// Any handle, which closes itself.
class Handle {
 public:
    Handle() = default;
    ~Handle() { close(); }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;

    operator uint32_t() const { return muHandle; }
    uint32_t* address() { return &muHandle; }
    int32_t close() { return muHandle == VNK_INVALID_HANDLE ? 0 : vnkClose(&muHandle); }
    int32_t set(const std::string& parameters) const {
        Text cText(parameters);
        return vnkSetParameters(muHandle, cText.address());
    }
    std::string parameters() const {
        Text cText;
        EXPECT_EQ(vnkGetParameters(muHandle, cText.address()), 0);
        return cText.str();
    }
    template <typename Record>
    int32_t read(Record& cRecord, uint32_t uTimeoutMs = 0) const {
        return cRecord.take(muHandle, uTimeoutMs);
    }
    template <typename Record>
    bool next(Record& cRecord) const {
        return vnktest::waitUntil([&] { return read(cRecord, 500) == 0; });
    }
    /// Reads until the stream has ended; how many frames there were.
    template <typename Record>
    size_t readToEnd() const {
        size_t uFrames = 0;
        Record cRecord;
        EXPECT_TRUE(vnktest::waitUntil([&] {
            const int32_t iStatus = read(cRecord, 200);
            uFrames += iStatus == 0;
            return iStatus == 2;
        }));
        return uFrames;
    }

 protected:
    uint32_t muHandle = VNK_INVALID_HANDLE;
};

class Processor : public Handle {
 public:
    explicit Processor(const std::string& type) { EXPECT_EQ(vnkCreateProcessor(&muHandle, type.c_str()), 0); }
    int32_t attach(uint32_t uStream) const { return vnkAttachProcessorToStream(muHandle, uStream); }
    int32_t detach() const { return vnkDetachProcessor(muHandle); }
};

class Output : public Handle {
 public:
    explicit Output(uint32_t uProcessor) { EXPECT_EQ(vnkGetProcessorOutputStream(uProcessor, &muHandle), 0); }
};

/// IQ that a demodulator makes something of: a tone that is modulated in amplitude.
inline std::vector<IQ> makeTone(size_t uFrames, size_t uSamples, uint64_t uStepNs = 0) {
    auto lFrames = makeIQ(uFrames, uSamples, uStepNs);
    size_t n = 0;
    for (IQ& cFrame : lFrames)
        for (auto& cSample : cFrame.mlSamples) {
            const float fPhase = 0.01f * static_cast<float>(n++ % 62832);
            cSample = std::polar(1e-3f * (1.0f + 0.5f * std::sin(fPhase)), 7.0f * fPhase);
        }
    return lFrames;
}

}  // namespace processing
