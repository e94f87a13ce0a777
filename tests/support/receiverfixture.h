#pragma once

#include <gtest/gtest.h>

#include <thread>

#include "flows/framesource.h"
#include "flows/iqframesink.h"
#include "flows/spectrumframesink.h"
#include "receivers/device.h"
#include "receivers/devicetype.h"
#include "support/errorlog.h"
#include "support/faketransport.h"
#include "support/resources.h"

namespace vnktest {

/// A sanitizer makes a thread of its own beside the first of the program: here, before any are counted.
inline const bool gbThreadsWarm = [] {
    std::thread([] {}).join();
    return true;
}();

inline constexpr const char* kGoodIQStream = R"({"FCentreHz":100000000.0,"IFBWHz":200000.0,"RefdBm":-30.0})";

/// A receiver on a unit without a wire, and the counts that must be back at its end.
template <typename RawDeviceType>
class ReceiverFixture : public testing::Test {
 protected:
    ReceiverFixture() {
        FakeTransportType::instance();
        takeLog();
        takeStatuses();
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
    static FrameSource& source(const ReferencePtr<Device>& cDevice) { return dynamic_cast<FrameSource&>(*cDevice); }
    bool allBack() {
        return waitUntil([&] {
            return mcUnit->miLinks == 0 && Device::listedCount() == muDevices && liveThreads() <= muThreads;
        });
    }
    static RawDeviceType& rawType() {
        static RawDeviceType scType;
        return scType;
    }

    template <typename Sink = IQFrameSink>
    static ReferencePtr<Sink> stream(const char* pParameters) {
        auto cStream = makeReference<Sink>();
        utils::VariantRecord cRecord(pParameters);
        ErrorList lErrors;
        EXPECT_TRUE(cStream->setSinkParameters(cRecord, lErrors, true));
        EXPECT_TRUE(lErrors.empty());
        return cStream;
    }
    static ErrorList attach(const ReferencePtr<Device>& cDevice, const ReferencePtr<FrameSink>& cSink) {
        ErrorList lErrors;
        const bool bAttached = source(cDevice).attachFrameSink(cSink, lErrors);
        EXPECT_EQ(bAttached, lErrors.empty());
        return lErrors;
    }
    static bool waitForReport(int32_t iCode, const std::string& text) {
        return waitUntil([&] {
            for (const LogLine& cLine : takeLog(true))
                if (cLine == LogLine{iCode, text})
                    return true;
            return false;
        });
    }

    ReachableUnit mcUnit;
    size_t muDevices = Device::listedCount();
    size_t muThreads = idleThreads();
};

}  // namespace vnktest
