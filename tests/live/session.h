#pragma once

#include <gtest/gtest.h>

#include <complex>
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

}  // namespace live
