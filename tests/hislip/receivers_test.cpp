#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "dsp/windowfunctions.h"
#include "flows/iqframesink.h"
#include "flows/spectrumframe.h"
#include "flows/spectrumframesink.h"
#include "foundations/runtimeerrors.h"
#include "links/tcpiptransport.h"
#include "live/measure.h"
#include "quillon/devicetypes.h"
#include "simulator/unit.h"
#include "support/errorlog.h"
#include "support/loopback.h"
#include "support/resources.h"
#include "zelvar/devicetypes.h"

// A device type that accepts stands here alone: what the library registers for HiSLIP never does.

namespace {

using namespace std::chrono_literals;

/// Takes any model.
template <typename HiSlipType>
class Accepting : public HiSlipType {
 public:
    bool accepts(const std::string&) const override { return true; }
};

/// What differs between the two families here.
struct Family {
    const char* mpModel;
    ReferencePtr<Device> (*mpOpen)(const std::string& host);
    const char* mpRefused;   // when access is not granted
    const char* mpTCPIPOnly;
};

template <typename HiSlipType>
ReferencePtr<Device> openBy(const std::string& host) {
    const Accepting<HiSlipType> cType;   // registers itself for its life
    return DeviceType::search("any", "TCP/IP", host);
}

const Family kFamilies[] = {
    {"ZV150-C", openBy<ZelvarHiSlipDeviceType>, "Cannot obtain acquisition access",
     "Only TCP/IP currently supported for Zelvar"},
    {"Quillon", openBy<QuillonHiSlipDeviceType>, "Failed to acquire acqusition access.",
     "Only TCP/IP currently supported for Quillon"},
    {"Dravik", openBy<DravikHiSlipDeviceType>, "Failed to acquire acqusition access.",
     "Only TCP/IP currently supported for Quillon"},
};

class HiSlipReceiver : public testing::TestWithParam<Family> {
 protected:
    HiSlipReceiver() : mcUnit(options(GetParam().mpModel), scene()) {
        static _WinSockInitializer cSockets;
        cSockets.initialise();
        vnktest::takeLog();
    }
    ~HiSlipReceiver() override {
        close();
        mcUnit.stop();
    }
    static constexpr double kToneHz = 1e9 + 150e3;
    static constexpr double kToneLevel = -50;
    static vnksim::UnitOptions options(const std::string& model) {
        vnksim::UnitOptions cOptions;
        cOptions.address = vnktest::uniqueLoopback();
        cOptions.model = model;
        cOptions.corrections.signalSize = 0;   // a short open
        cOptions.pace = vnksim::Pace::limited;
        cOptions.rateLimit = 5e6;
        return cOptions;
    }
    static vnksim::Scene scene() { return vnksim::Scene().tone(kToneHz, kToneLevel); }
    bool open() {
        mcUnit.start();
        mcDevice = GetParam().mpOpen(mcUnit.options().address);
        return static_cast<bool>(mcDevice);
    }
    void close() {
        if (!mcDevice)
            return;
        Device::forget(mcDevice.get());
        mcDevice.release();
    }
    template <typename Sink>
    ReferencePtr<Sink> attach(const char* pParameters) {
        auto cSink = makeReference<Sink>();
        utils::VariantRecord cRecord(pParameters);
        ErrorList lErrors;
        EXPECT_TRUE(cSink->setSinkParameters(cRecord, lErrors, true));
        EXPECT_TRUE(dynamic_cast<FrameSource&>(*mcDevice).attachFrameSink(cSink, lErrors));
        EXPECT_TRUE(lErrors.empty());
        return cSink;
    }
    ReferencePtr<IQFrameSink> attachIQ() {
        return attach<IQFrameSink>(R"({"FCentreHz":1e9,"IFBWHz":1e6,"RefdBm":-30.0,"bufferFrames":100})");
    }
    static ReferencePtr<Frame> next(FrameSink& cSink) {
        ReferencePtr<Frame> cFrame;
        vnktest::waitUntil([&] { return static_cast<bool>(cFrame = cSink.nextFrame(500, false)); });
        return cFrame;
    }
    /// Two frames in sequence hold the tone at its place and level.
    void expectTone(IQFrameSink& cSink) {
        measure::Samples lSamples;
        float fRate = 0;
        constexpr size_t kCount = 32768;
        while (lSamples.size() < kCount) {
            const auto cFrame = dynamicReferenceCast<IQFrame>(next(cSink));
            ASSERT_TRUE(cFrame) << texts();
            fRate = cFrame->sampleRate();
            uint32_t uCount = 0;
            const auto* pSamples = reinterpret_cast<const std::complex<float>*>(cFrame->getSamples(uCount));
            lSamples.insert(lSamples.end(), pSamples, pSamples + uCount);
        }
        const double expected = (kToneHz - 1e9) / static_cast<double>(fRate);
        EXPECT_NEAR(measure::peakFrequency(lSamples, 16384), expected, 1.0 / 16384);
        EXPECT_NEAR(measure::dB(measure::toneAmplitude(lSamples, expected, kCount)), kToneLevel, 0.2);
    }
    void detach(const ReferencePtr<FrameSink>& cSink) {
        EXPECT_TRUE(dynamic_cast<FrameSource&>(*mcDevice).removeFrameSink(cSink));
    }
    static std::string texts() {
        std::string all;
        for (const auto& cLine : vnktest::takeLog())
            all += std::to_string(cLine.miCode) + " " + cLine.mcText + "\n";
        return all;
    }
    bool waitForReport(const std::string& text) {
        return vnktest::waitUntil([&] { return (mcReports += texts()).find(text) != std::string::npos; });
    }

    TCPIPTransportType mcTransports;
    vnksim::Unit mcUnit;
    ReferencePtr<Device> mcDevice;
    std::string mcReports;
};

}  // namespace

TEST_P(HiSlipReceiver, OpensCapturesAndIsClosed) {
    const size_t uDevices = Device::listedCount();
    ASSERT_TRUE(open()) << texts();
    EXPECT_TRUE(mcDevice->isOpen());
    EXPECT_EQ(mcDevice->type(), GetParam().mpModel);
    EXPECT_EQ(mcUnit.state().hislipSessions, 1u);
    EXPECT_EQ(mcUnit.state().scpiConnections, 0u) << "nothing goes raw";
    EXPECT_EQ(mcUnit.state().dataConnections, 1u);
    const auto cSink = attachIQ();
    expectTone(*cSink);
    detach(cSink);
    EXPECT_TRUE(mcUnit.waitForMode("BLOCK", 20s));
    close();
    EXPECT_TRUE(vnktest::waitUntil(
        [&] { return mcUnit.state().hislipSessions == 0 && mcUnit.state().dataConnections == 0; }));
    EXPECT_EQ(Device::listedCount(), uDevices);
}

TEST_P(HiSlipReceiver, SweepsOverTheVendorsChannel) {
    ASSERT_TRUE(open()) << texts();
    const auto cSink = attach<SpectrumFrameSink>(
        R"({"FMinHz":0.96e9,"FMaxHz":1.05e9,"RBWHz":4e5,"WindowFn":"flattop","RefdBm":-30.0,"bufferFrames":100})");
    const auto cFrame = dynamicReferenceCast<SpectrumFrame>(next(*cSink));
    ASSERT_TRUE(cFrame) << texts();
    uint32_t uPoints = 0;
    const float* pPoints = cFrame->getSpectrum(uPoints);
    const float* pHighest = std::max_element(pPoints, pPoints + uPoints);
    // Bins tell density: the window lets in the noise of 3.77 bins.
    EXPECT_NEAR(*pHighest, kToneLevel - 10 * std::log10(3.77), 0.3);
    detach(cSink);
}

TEST_P(HiSlipReceiver, TheLadderOpensTheSessionAnewAndTheCaptureGoesOn) {
    ASSERT_TRUE(open()) << texts();
    auto cSink = attachIQ();
    expectTone(*cSink);
    detach(cSink);
    // A start that fails runs the ladder; without a fault of the start nothing does.
    mcUnit.faults().change([](auto& f) {
        f.lockRefusedUntil = "reconnect";
        f.identifierOffset = 5;
    });
    cSink = attachIQ();
    EXPECT_TRUE(waitForReport("Transport close/reopen succeeded")) << mcReports;
    EXPECT_TRUE(waitForReport("Device access restored")) << mcReports;
    EXPECT_NE(mcReports.find(GetParam().mpRefused), std::string::npos);
    mcUnit.faults().clear();
    while (cSink->nextFrame(0, false)) {
    }
    expectTone(*cSink);
    EXPECT_EQ(mcUnit.state().hislipSessions, 1u);
    EXPECT_EQ(mcUnit.state().dataConnections, 1u) << "the ladder leaves the data channel alone";
    detach(cSink);
}

TEST_P(HiSlipReceiver, ALockThatIsRefusedIsTold) {
    ASSERT_TRUE(open()) << texts();
    mcUnit.faults().change([](auto& f) {
        f.hislipLockRefused = true;
        f.identifierOffset = 5;
    });
    const auto cSink = attachIQ();
    EXPECT_TRUE(waitForReport("-6002 HiSlip exclusive lock access failed")) << mcReports;
    mcUnit.faults().clear();
    while (cSink->nextFrame(0, false)) {
    }
    expectTone(*cSink);
    detach(cSink);
}

TEST_P(HiSlipReceiver, AReopenMakesBothLinksAnew) {
    ASSERT_TRUE(open()) << texts();
    const auto cSink = attachIQ();
    expectTone(*cSink);
    mcUnit.faults().change([](auto& f) { f.closeHislipOnce = true; });
    ASSERT_TRUE(vnktest::waitUntil([&] { return mcDevice->reopen(); })) << texts();
    while (cSink->nextFrame(0, false)) {
    }
    expectTone(*cSink);
    EXPECT_TRUE(vnktest::waitUntil(
        [&] { return mcUnit.state().hislipSessions == 1 && mcUnit.state().dataConnections == 1; }));
    EXPECT_EQ(mcUnit.state().scpiConnections, 0u) << "nothing goes raw";
    detach(cSink);
}

TEST_P(HiSlipReceiver, EachMessageOfTheHandshakeThatGoesWrongFailsTheOpenAndGivesAllBack) {
    struct Case {
        const char* mpFault;
        const char* mpTold;
    };
    const Case cases[] = {
        {"InitializeResponse,missing", "-4000 No response to initialization within timeout"},
        {"InitializeResponse,lateMs=3000", "-4000 No response to initialization within timeout"},
        {"InitializeResponse,type=9", "-4000 Bad initialize response - received unexpected message 9"},
        {"InitializeResponse,fatal=3,text=no", "-4000 Initialization response is fatal error code 3"},
        {"InitializeResponse,error=2", "-4000 Initialization response is  error code 2"},
        {"InitializeResponse,cutAfter=7", "-4000 No response to initialization within timeout"},
        {"AsyncInitializeResponse,missing", "-4000 No response to async initialization within timeout"},
        {"AsyncInitializeResponse,type=9", "-4000 Bad async initialize response - received unexpected message 9"},
        {"AsyncInitializeResponse,fatal=1", "-4000 Async initialization response is fatal error code 1"},
        {"AsyncInitializeResponse,cutAfter=15", "-4000 No response to async initialization within timeout"},
        {"SessionReply,missing", "-4001 SCPI session query over HiSlip control failed"},
        {"VendorReply,missing", "-4001 No response to Varnik initialization within timeout"},
        {"VendorReply,type=1", "-4001 Bad response to Varnik initialization request"},
        {"VendorReply,session=1", "-4001 Server response invalid"},
        {"VendorReply,parameter=2147483648", "-4001 Server reports session ID not found"},
        {"VendorReply,cutAfter=9", "-4001 Bad response to Varnik initialization request"},
    };
    mcUnit.start();
    const size_t uDevices = Device::listedCount();
    for (const Case& cCase : cases) {
        texts();
        ASSERT_TRUE(mcUnit.faults().apply(std::string("hislip,") + cCase.mpFault)) << cCase.mpFault;
        EXPECT_FALSE(GetParam().mpOpen(mcUnit.options().address)) << cCase.mpFault;
        mcUnit.faults().clear();
        const std::string told = texts();
        EXPECT_NE(told.find(cCase.mpTold), std::string::npos) << cCase.mpFault << "\n" << told;
        const char* pOutcome = std::string(cCase.mpTold).starts_with("-4001") ? "-6005 Failed to open VITA49 data transport"
                                                                             : "-4000 Cannot open HiSlip connection to ";
        EXPECT_NE(told.find(pOutcome), std::string::npos) << cCase.mpFault << "\n" << told;
        EXPECT_EQ(Device::listedCount(), uDevices) << cCase.mpFault;
        EXPECT_TRUE(vnktest::waitUntil(
            [&] { return mcUnit.state().hislipSessions == 0 && mcUnit.state().dataConnections == 0; }))
            << cCase.mpFault;
    }
    mcDevice = GetParam().mpOpen(mcUnit.options().address);
    EXPECT_TRUE(mcDevice) << texts();
}

TEST_P(HiSlipReceiver, AnotherConnectionTypeIsRefusedByAThrow) {
    mcUnit.start();
    const auto open = [&] {
        if (std::string(GetParam().mpModel).starts_with("ZV"))
            makeReference<ZelvarReceiver>("USB", mcUnit.options().address, true);
        else
            makeReference<QuillonReceiver>("USB", mcUnit.options().address, true);
    };
    try {
        open();
        FAIL();
    } catch (const utils::RuntimeErrors::Error& cError) {
        EXPECT_EQ(cError.code(), -5000);
        EXPECT_EQ(cError.message(), GetParam().mpTCPIPOnly);
    }
}

INSTANTIATE_TEST_SUITE_P(OfEachFamily, HiSlipReceiver, testing::ValuesIn(kFamilies),
                         [](const auto& cInfo) {
                             std::string name = cInfo.param.mpModel;
                             std::erase(name, '-');
                             return name;
                         });
