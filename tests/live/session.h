#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <complex>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "api/text.h"
#include "libvnk.h"
#include "simulator/unit.h"
#include "support/loopback.h"

namespace live {

/// Options of a unit at an address of its own.
inline vnksim::UnitOptions options(const std::string& model = "ZV150-C") {
    vnksim::UnitOptions cOptions;
    cOptions.address = vnktest::uniqueLoopback();
    cOptions.model = model;
    return cOptions;
}

/// Index of an address in the library's list, adding it if need be.
inline uint32_t indexOf(const std::string& address) {
    static std::vector<std::string> lKnown;
    uint32_t uBefore = 0;
    vnkEnumerateDevices(&uBefore, 0);
    if (uBefore == 0)
        lKnown.clear();
    if (vnkAddDeviceAddress(address.c_str()) == 0)
        lKnown.push_back(address);
    for (uint32_t i = 0; i < lKnown.size(); ++i)
        if (lKnown[i] == address)
            return i;
    return 0xFFFFFFFF;
}

/// The internal log, drained.
inline std::string log() {
    return Text::take(vnkGetVerboseInternalErrorState(1000));
}

/// A device handle that closes itself.
class Device {
 public:
    explicit Device(const std::string& address) : miStatus(vnkOpenDevice(indexOf(address), &muHandle)) {}
    ~Device() { close(); }
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;
    int32_t status() const { return miStatus; }
    uint32_t handle() const { return muHandle; }
    int32_t close() { return muHandle == VNK_INVALID_HANDLE ? 0 : vnkClose(&muHandle); }
    int32_t set(const std::string& parameters) {
        Text cText(parameters);
        return vnkSetParameters(muHandle, cText.address());
    }
    std::string parameters() const {
        Text cText;
        vnkGetParameters(muHandle, cText.address());
        return cText.str();
    }

 private:
    uint32_t muHandle = VNK_INVALID_HANDLE;
    int32_t miStatus;
};

/// A frame record that gives itself back.
class Frame {
 public:
    Frame() = default;
    ~Frame() { free(); }
    Frame(const Frame&) = delete;
    Frame& operator=(const Frame&) = delete;
    void free() {
        if (mpRecord)
            vnkFreeIQ(&mpRecord);
    }
    vnkIQRecord** address() {
        free();
        return &mpRecord;
    }
    vnkIQRecord* release() { return std::exchange(mpRecord, nullptr); }
    const vnkIQRecord* operator->() const { return mpRecord; }
    const std::complex<float>* samples() const {
        return reinterpret_cast<const std::complex<float>*>(mpRecord->samples);
    }
    std::string extras() const { return mpRecord->extras ? mpRecord->extras : ""; }

 private:
    vnkIQRecord* mpRecord = nullptr;
};

/// An IQ stream handle that closes itself.
class Stream {
 public:
    Stream(double centreHz, double bandwidthHz, double referenceLevel = -30) {
        EXPECT_EQ(vnkCreateIQStream(&muHandle, static_cast<float>(centreHz), static_cast<float>(bandwidthHz),
                                    static_cast<float>(referenceLevel)),
                  0);
    }
    ~Stream() { close(); }
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;
    uint32_t handle() const { return muHandle; }
    int32_t close() { return muHandle == VNK_INVALID_HANDLE ? 0 : vnkClose(&muHandle); }
    int32_t attach(const Device& cDevice) { return vnkAttachStreamToDevice(muHandle, cDevice.handle()); }
    int32_t detach() { return vnkDetachStream(muHandle); }
    /// The status of one read.
    int32_t read(Frame& cFrame, uint32_t uTimeoutMs = 1000) {
        return vnkGetNextIQ(muHandle, cFrame.address(), uTimeoutMs);
    }
    /// The next frame, within a generous limit.
    bool next(Frame& cFrame) {
        return vnktest::waitUntil([&] { return read(cFrame, 500) == 0; });
    }
    int32_t set(const std::string& parameters) {
        Text cText(parameters);
        return vnkSetParameters(muHandle, cText.address());
    }
    std::string parameters() const {
        Text cText;
        vnkGetParameters(muHandle, cText.address());
        return cText.str();
    }
    float number(const char* pKey) const {
        Text cText(parameters());
        float fValue = -12345.0f;
        vnkReadNumericParameter(cText.address(), pKey, &fValue);
        return fValue;
    }

 private:
    uint32_t muHandle = VNK_INVALID_HANDLE;
};

/// At least `uCount` samples in sequence, joined over frames without a gap.
inline std::vector<std::complex<float>> collect(Stream& cStream, size_t uCount, float* pRate = nullptr) {
    std::vector<std::complex<float>> lSamples;
    Frame cFrame;
    while (lSamples.size() < uCount) {
        if (!cStream.next(cFrame)) {
            ADD_FAILURE() << "no frame in time\n" << log();
            break;
        }
        if (cFrame->sequenceGap)
            lSamples.clear();
        lSamples.insert(lSamples.end(), cFrame.samples(), cFrame.samples() + cFrame->sampleCount);
        if (pRate)
            *pRate = cFrame->sampleRateHz;
    }
    return lSamples;
}

/// A recording of the tree, or of the folder of recordings that lies beside some checkouts; empty if absent.
inline std::string recordingPath(const std::string& name) {
    for (const std::string& folder :
         {std::string(VNK_TEST_DATA), std::string(VNK_SOURCE_DIR) + "/../shared/data"})
        if (std::filesystem::exists(folder + "/" + name))
            return folder + "/" + name;
    return {};
}

/// Why a test skips without its recording.
inline std::string absent(const std::string& name) {
    return "the recording " + name + " is not on this machine";
}

/// Level on the air of full scale of a recording: well below the clipping of the converter, some 60 dB and
/// more above its noise.
inline constexpr double kRecordingLevel = -20;

/// Puts a recording on the air, `offsetHz` beside the centre that the stream is tuned to, and captures it.
/// The recording begins with the first sample of the capture. `recordedRate` need not be the true one: a
/// faster recording has all its frequencies higher and its times shorter by one factor.
inline std::vector<std::complex<float>> capture(const std::string& path, const char* pFormat,
                                                double recordedRate, double centreHz, double offsetHz,
                                                double ifbwHz, double seconds, float* pRate) {
    vnksim::Scene cScene;
    cScene.add(vnksim::Recording{centreHz + offsetHz, kRecordingLevel,
                                 vnksim::readRecording(path, pFormat, recordedRate)});
    vnksim::Unit cUnit(options(), cScene);
    cUnit.start();
    Device cDevice(cUnit.options().address);
    EXPECT_EQ(cDevice.status(), 0) << log();
    Stream cStream(centreHz, ifbwHz, -20);
    EXPECT_EQ(cStream.set("{\"bufferFrames\":10000}"), 0);
    EXPECT_EQ(cStream.attach(cDevice), 0);
    std::vector<std::complex<float>> lSamples;
    Frame cFrame;
    do {
        if (!cStream.next(cFrame) || cFrame->sequenceGap) {
            ADD_FAILURE() << "frames are missing\n" << log();
            return {};
        }
        *pRate = cFrame->sampleRateHz;
        lSamples.insert(lSamples.end(), cFrame.samples(), cFrame.samples() + cFrame->sampleCount);
    } while (static_cast<double>(lSamples.size()) < seconds * static_cast<double>(*pRate));
    lSamples.resize(static_cast<size_t>(seconds * static_cast<double>(*pRate)));
    return lSamples;
}

}  // namespace live
