#include "zelvar/zelvarreceiver.h"

#include <bit>

#include "flows/basebandframesink.h"
#include "flows/spectrumframesink.h"
#include "receiversupport.h"

using vnktest::LogLine;

namespace {

class Receiver : public ReceiverTest {};

}  // namespace

TEST_F(Receiver, AHiSlipOpenOnAnotherTransportThrows) {
    try {
        makeReference<ZelvarReceiver>("USB", mcUnit.host(), true);
        FAIL();
    } catch (const utils::RuntimeErrors::Error& cError) {
        EXPECT_EQ(cError.code(), -5000);
        EXPECT_EQ(cError.message(), "Only TCP/IP currently supported for Zelvar");
    }
    EXPECT_TRUE(mcUnit->journal().empty());
    EXPECT_TRUE(allBack());
}

TEST_F(Receiver, AHiSlipOpenOfAUnitThatDoesNotSpeakItFails) {
    ZelvarHiSlipDeviceType cType;
    vnktest::takeLog();
    EXPECT_FALSE(cType.create("TCP/IP", mcUnit.host()));
    EXPECT_EQ(vnktest::takeLog(),
              (std::vector<LogLine>{{-4000, "No response to initialization within timeout"},
                                    {-4000, "Cannot open HiSlip connection to " + mcUnit.host()}}));
    EXPECT_TRUE(allBack());
}

TEST_F(Receiver, ARawOpenTakesAnyConnectionType) {
    ReferencePtr<Device> cDevice = rawType().create("USB", mcUnit.host());
    ASSERT_TRUE(cDevice);
    EXPECT_EQ(cDevice->describe().getText("connection"), "USB:" + mcUnit.host());
    close(cDevice);
    EXPECT_TRUE(allBack());
}

TEST_F(Receiver, TakesItsIdentityFromTheUnit) {
    ReferencePtr<Device> cDevice = open();
    ASSERT_TRUE(cDevice);
    EXPECT_TRUE(cDevice->isOpen());
    const auto cRecord = cDevice->describe();
    EXPECT_EQ(cRecord.getText("type"), "ZV350-C");
    EXPECT_EQ(cRecord.getText("version"), "1.2");
    EXPECT_EQ(cRecord.getText("serial"), "1234");
    EXPECT_EQ(cRecord.getText("firmware"), "3.4.5");
    EXPECT_EQ(cRecord.getText("connection"), "TCP/IP:" + mcUnit.host());
    close(cDevice);
    EXPECT_TRUE(allBack());
}

TEST_F(Receiver, RangesAreThoseOfTheModel) {
    ReferencePtr<Device> cDevice = open();
    ASSERT_TRUE(cDevice);
    const StreamRanges cRanges = dynamic_cast<ReceiverDevice&>(*cDevice).streamRanges();
    for (const FloatRange& cRange : {cRanges.mcCentreHz, cRanges.mcSweepHz}) {
        EXPECT_EQ(cRange.mfMinimum, 9000.0f);
        EXPECT_EQ(cRange.mfMaximum, 2.7e10f);
    }
    EXPECT_EQ(cRanges.mcRBWHz.mfMinimum, 1.0f);
    EXPECT_EQ(cRanges.mcRBWHz.mfMaximum, 10000000.0f);
    EXPECT_EQ(cRanges.mcIFBWHz.mfMinimum, 100000.0f);
    EXPECT_EQ(cRanges.mcIFBWHz.mfMaximum, 40000000.0f);
    EXPECT_EQ(cRanges.mcReferenceLevel.mfMinimum, -80.0f);
    EXPECT_EQ(cRanges.mcReferenceLevel.mfMaximum, 20.0f);
    close(cDevice);
}

TEST_F(Receiver, SinksOfNeitherTypeAreRefused) {
    ReferencePtr<Device> cDevice = open();
    ASSERT_TRUE(cDevice);
    const ErrorList lRefused = {"Frame sink attach failed"};
    EXPECT_EQ(attach(cDevice, {}), lRefused);
    EXPECT_EQ(attach(cDevice, makeReference<FrameSink>()), lRefused);
    EXPECT_EQ(attach(cDevice, makeReference<BasebandFrameSink>()), lRefused);
    EXPECT_FALSE(source(cDevice).removeFrameSink({}));
    EXPECT_FALSE(source(cDevice).removeFrameSink(makeReference<SpectrumFrameSink>()));
    close(cDevice);
    EXPECT_TRUE(allBack());
}

TEST_F(Receiver, AStreamOutOfRangeIsRefusedWithAStatusForEach) {
    ReferencePtr<Device> cDevice = open();
    ASSERT_TRUE(cDevice);
    const ErrorList lErrors = attach(cDevice, stream(R"({"FCentreHz":1.0,"IFBWHz":1.0,"RefdBm":-90.0})"));
    ASSERT_EQ(lErrors.size(), 4u);
    EXPECT_EQ(lErrors.back(), "Cannot implement IQ stream");
    EXPECT_EQ(vnktest::takeStatuses(), (std::vector<int32_t>{-62, -63, -64}));
    close(cDevice);
}

TEST_F(Receiver, AttachingAStreamTwiceIsTrueAndChangesNothing) {
    ReferencePtr<Device> cDevice = open();
    ASSERT_TRUE(cDevice);
    const auto cStream = stream(vnktest::kGoodIQStream);
    EXPECT_TRUE(attach(cDevice, cStream).empty());
    FrameSource* const pEngine = cStream->sourcePointer();
    EXPECT_NE(pEngine, nullptr);
    EXPECT_TRUE(attach(cDevice, cStream).empty());
    EXPECT_EQ(cStream->sourcePointer(), pEngine);
    EXPECT_TRUE(source(cDevice).removeFrameSink(cStream));
    EXPECT_FALSE(cStream->isAttached());
    EXPECT_FALSE(source(cDevice).removeFrameSink(cStream));
    close(cDevice);
    EXPECT_TRUE(allBack());
}

TEST_F(Receiver, PacketsBeforeAnyStreamAreLoggedAndDropped) {
    ReferencePtr<Device> cDevice = open();
    ASSERT_TRUE(cDevice);
    const std::pair<uint32_t, const char*> kKinds[] = {
        {0x90000001, "Unexpected ReceiverContext"}, {0x90000002, "Unexpected DigitizerContext"},
        {0x90000003, "Unexpected IFDataIQ14"},      {0x90000004, "Unexpected ExtensionContext"},
        {0x90000005, "Unexpected IFDataI14"},       {0x90000006, "Unexpected IFDataI24"}};
    for (const auto& [uStreamID, pText] : kKinds) {
        mcUnit->sendData(packet(uStreamID, {0}));
        EXPECT_TRUE(waitForReport(-6019, pText)) << pText;
    }
    close(cDevice);
}

TEST_F(Receiver, APacketIsASignOfLife) {
    ReferencePtr<Device> cDevice = open();
    ASSERT_TRUE(cDevice);
    const LinkWatch& cWatch = dynamic_cast<ReceiverDevice&>(*cDevice).linkWatch();
    const uint64_t uOpenedMs = cWatch.lastActivityMs();
    EXPECT_TRUE(vnktest::waitUntil([&] { return utils::steadyMilliseconds() > uOpenedMs + 1; }));
    EXPECT_EQ(cWatch.lastActivityMs(), uOpenedMs);
    mcUnit->sendData(packet(0x90000006, {0}));
    // Sooner than any test of the link.
    EXPECT_TRUE(vnktest::waitUntil([&] { return cWatch.lastActivityMs() > uOpenedMs; },
                                   std::chrono::milliseconds(4500)));
    close(cDevice);
}

TEST_F(Receiver, APositionInTheStreamReachesTheParameters) {
    mcUnit->reply(":GNSS:POSition?", {"10.0,20.0,30.0\n"});
    ReferencePtr<Device> cDevice = open();
    ASSERT_TRUE(cDevice);
    EXPECT_EQ(cDevice->getParameters().getNumber("latitude"), 10.0f);
    std::vector<uint32_t> lPayload = {1u << 14, 0, 1600000000, 0, 5000};
    for (const float fValue : {46.5f, -75.5f, 88.0f, 1.0f, 2.0f, 3.0f, 4.0f})
        lPayload.push_back(std::bit_cast<uint32_t>(fValue));
    mcUnit->sendData(packet(0x90000002, lPayload));
    EXPECT_TRUE(vnktest::waitUntil([&] { return cDevice->getParameters().getNumber("latitude") == 46.5f; }));
    const auto cParameters = cDevice->getParameters();
    EXPECT_EQ(cParameters.getNumber("GNSSMagVar"), 4.0f);
    ASSERT_TRUE(cParameters.find("GNSSTimeNanosec"));
    EXPECT_EQ(cParameters.find("GNSSTimeNanosec")->getUnsigned64(), 1600000000000000005u);
    close(cDevice);
}

TEST_F(Receiver, TheIdleThreadWakesEachTenthOfASecond) {
    ReferencePtr<Device> cDevice = open();
    ASSERT_TRUE(cDevice);
    int iWaits = 0, iExits = 0;
    EXPECT_TRUE(vnktest::waitUntil([&] {
        for (const auto& cLine : vnktest::takeLog(true)) {
            iWaits += cLine.mcText == "run into wait";
            iExits += cLine.mcText == "run exit wait";
        }
        return iWaits >= 3 && iExits >= 3;
    }));
    close(cDevice);
}

TEST_F(Receiver, AReopenedLinkBringsPacketsAgain) {
    ReferencePtr<Device> cDevice = open();
    ASSERT_TRUE(cDevice);
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(cDevice->reopen());
        EXPECT_EQ(mcUnit->miLinks, 2);
        mcUnit->sendData(packet(0x90000001, {0}));
        EXPECT_TRUE(waitForReport(-6019, "Unexpected ReceiverContext"));
    }
    close(cDevice);
    EXPECT_TRUE(allBack());
}
