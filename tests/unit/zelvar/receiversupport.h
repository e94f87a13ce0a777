#pragma once

#include <gtest/gtest.h>

#include <thread>

#include "support/errorlog.h"
#include "support/faketransport.h"
#include "support/resources.h"
#include "zelvar/devicetypes.h"
#include "zelvar/zelvarreceiver.h"

/// A sanitizer makes a thread of its own beside the first of the program: here, before any are counted.
inline const bool gbThreadsWarm = [] {
    std::thread([] {}).join();
    return true;
}();

/// A receiver on a unit without a wire, and the counts that must be back at its end.
class ReceiverTest : public testing::Test {
 protected:
    ReceiverTest() {
        vnktest::FakeTransportType::instance();
        vnktest::takeLog();
        vnktest::takeStatuses();
        arrange("ZV350-C");
    }

    void arrange(const std::string& model) {
        mcUnit->reply("*IDN?", {"Maker," + model + " 1.2,1234,3.4.5\n"});
        mcUnit->reply(":SYSTem:CAPTure:MODE?", {"BLOCK\n"});
        mcUnit->reply("SYST:ERR?", {"0,\"No error\"\n"});
        mcUnit->reply("SYST:LOCK:REQ? ACQ", {"1\n"});
    }
    ReferencePtr<Device> open() { return rawType().create("TCP/IP", mcUnit.host()); }
    static void close(ReferencePtr<Device>& cDevice) {
        Device::forget(cDevice.get());
        cDevice.release();
    }
    static FrameSource& source(const ReferencePtr<Device>& cDevice) {
        return dynamic_cast<FrameSource&>(*cDevice);
    }
    bool allBack() {
        return vnktest::waitUntil([&] {
            return mcUnit->miLinks == 0 && Device::listedCount() == muDevices &&
                   vnktest::liveThreads() <= muThreads;
        });
    }
    static ZelvarRawDeviceType& rawType() {
        static ZelvarRawDeviceType scType;
        return scType;
    }

    vnktest::ReachableUnit mcUnit;
    size_t muDevices = Device::listedCount();
    size_t muThreads = vnktest::idleThreads();
};

/// A packet of the dialect: header, then the payload's words.
inline std::string packet(uint32_t uStreamID, const std::vector<uint32_t>& lPayload) {
    std::string bytes;
    const auto put = [&bytes](uint32_t uValue) {
        for (int iShift = 24; iShift >= 0; iShift -= 8)
            bytes += static_cast<char>(uValue >> iShift & 0xFF);
    };
    put(0x10000000u | static_cast<uint32_t>(5 + lPayload.size()));
    put(uStreamID);
    put(1700000000);
    put(0);
    put(0);
    for (const uint32_t uWord : lPayload)
        put(uWord);
    return bytes;
}
