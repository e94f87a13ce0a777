#include "quillon/quillonreceiver.h"

#include <gmock/gmock.h>

#include "flows/basebandframesink.h"
#include "quillon/devicetypes.h"
#include "support/logs.h"
#include "support/receiverfixture.h"
#include "unit/quillon/quillonpackets.h"
#include "unit/zelvar/correctiondata.h"

using vnktest::kGoodIQStream;
using vnktest::LogLine;
using vnktest::takeLog;
using vnktest::takeLogTexts;
using vnktest::waitUntil;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::Not;

namespace {

constexpr const char* kGoodSpectrumStream = R"({"FMinHz":100000000.0,"FMaxHz":350000000.0,"RBWHz":1000000.0})";

class QuillonReceiverTest : public vnktest::ReceiverFixture<QuillonRawDeviceType> {
 protected:
    QuillonReceiverTest() {
        arrange("Quillon");
        limits("9000\n", "2.0E+10\n");
    }
    void limits(const std::string& lowest, const std::string& highest) {
        mcUnit->reply(":sense:freq:center? min", {lowest});
        mcUnit->reply(":sense:freq:center? max", {highest});
    }
    /// Waits for a line of the log; what has come is kept in `mlSeen`.
    bool waitForText(const std::string& text) {
        return waitUntil([&] {
            for (const std::string& line : takeLogTexts())
                mlSeen.push_back(line);
            return std::find(mlSeen.begin(), mlSeen.end(), text) != mlSeen.end();
        });
    }
    /// Names each capture that is started, until the engine has seen it.
    bool answerStart() {
        std::string answered;
        return waitUntil([&] {
            for (const std::string& line : mcUnit->takeJournal())
                if (line.rfind(":TRACe:STReam:STARt ", 0) == 0 && line != answered) {
                    answered = line;
                    const auto uIdentifier = static_cast<uint32_t>(std::stoul(line.substr(line.rfind(' '))));
                    mcUnit->sendData(vnktest::identifierBytes(vnktest::kStreamBit, uIdentifier).bytes());
                }
            for (const std::string& line : takeLogTexts())
                mlSeen.push_back(line);
            return std::find(mlSeen.begin(), mlSeen.end(), "mcActiveIQ->start() succeeds") != mlSeen.end();
        });
    }

    std::vector<std::string> mlSeen;
};

}  // namespace

// Types.

TEST(QuillonDeviceTypes, ARawTypeAcceptsItsNameAndUnknown) {
    const QuillonRawDeviceType cQuillon;
    const DravikRawDeviceType cDravik;
    for (const char* pModel : {"unknown", "an unknown model"}) {
        EXPECT_TRUE(cQuillon.accepts(pModel)) << pModel;
        EXPECT_TRUE(cDravik.accepts(pModel)) << pModel;
    }
    EXPECT_TRUE(cQuillon.accepts("Quillon-2"));
    EXPECT_FALSE(cQuillon.accepts("Dravik"));
    EXPECT_TRUE(cDravik.accepts("a Dravik"));
    EXPECT_FALSE(cDravik.accepts("Quillon"));
    for (const char* pModel : {"", "ZV350-C", "quillon", "Unknown", "Drav"}) {
        EXPECT_FALSE(cQuillon.accepts(pModel)) << pModel;
        EXPECT_FALSE(cDravik.accepts(pModel)) << pModel;
    }
}

TEST(QuillonDeviceTypes, HiSlipTypesAcceptNothing) {
    const QuillonHiSlipDeviceType cQuillon;
    const DravikHiSlipDeviceType cDravik;
    for (const char* pModel : {"", "unknown", "Quillon", "Dravik", "Quillon-HiSlip", "Dravik-HiSlip"}) {
        EXPECT_FALSE(cQuillon.accepts(pModel)) << pModel;
        EXPECT_FALSE(cDravik.accepts(pModel)) << pModel;
    }
}

TEST(QuillonDeviceTypes, EachHasItsName) {
    const size_t uBefore = DeviceType::names().size();
    const QuillonHiSlipDeviceType cFirst;
    const QuillonRawDeviceType cSecond;
    const DravikHiSlipDeviceType cThird;
    const DravikRawDeviceType cFourth;
    auto lNames = DeviceType::names();
    lNames.erase(lNames.begin(), std::next(lNames.begin(), static_cast<std::ptrdiff_t>(uBefore)));
    EXPECT_THAT(lNames, ElementsAre("Quillon-HiSlip", "Quillon-Raw", "Dravik-HiSlip", "Dravik-Raw"));
}

// Opening.

TEST_F(QuillonReceiverTest, AHiSlipOpenOnAnotherTransportThrows) {
    try {
        makeReference<QuillonReceiver>("USB", mcUnit.host(), true);
        FAIL();
    } catch (const utils::RuntimeErrors::Error& cError) {
        EXPECT_EQ(cError.code(), -5000);
        EXPECT_EQ(cError.message(), "Only TCP/IP currently supported for Quillon");
    }
    EXPECT_TRUE(mcUnit->journal().empty());
    EXPECT_TRUE(allBack());
}

TEST_F(QuillonReceiverTest, TheLimitsOfTuningAreTheUnitsAndTheOtherRangesTheFamilys) {
    limits("123000.5\n", "6.0E9\n");
    ReferencePtr<Device> cDevice = open();
    ASSERT_TRUE(cDevice);
    EXPECT_EQ(cDevice->describe().getText("type"), "Quillon");
    const StreamRanges cRanges = dynamic_cast<ReceiverDevice&>(*cDevice).streamRanges();
    const auto expect = [](const FloatRange& cRange, float fMinimum, float fMaximum) {
        EXPECT_EQ(cRange.mfMinimum, fMinimum);
        EXPECT_EQ(cRange.mfMaximum, fMaximum);
    };
    expect(cRanges.mcCentreHz, 123000.5f, 6e9f);
    expect(cRanges.mcSweepHz, 123000.5f, 6e9f);
    expect(cRanges.mcRBWHz, 1e5f, 2e10f);
    expect(cRanges.mcIFBWHz, 1e5f, 104448000.0f);
    expect(cRanges.mcReferenceLevel, -40.0f, 10.0f);
    close(cDevice);
    EXPECT_TRUE(allBack());
}

TEST_F(QuillonReceiverTest, ALimitThatIsNoNumberEndsTheOpen) {
    const std::pair<std::string, const char*> cRows[] = {
        {"none\n", "invalid stof argument"}, {"", "invalid stof argument"}, {"1e99\n", "stof argument out of range"}};
    for (const auto& [reply, pText] : cRows)
        for (const bool bLowest : {true, false}) {
            limits(bLowest ? reply : "9000\n", bLowest ? "2e10\n" : reply);
            takeLog();
            EXPECT_FALSE(open()) << reply;
            EXPECT_THAT(takeLog(), Contains(LogLine{-6000, pText})) << reply;
            EXPECT_TRUE(allBack());
        }
}

TEST_F(QuillonReceiverTest, CorrectionDataAreReadByTheirOwnCommands) {
    const std::string bytes = vnktest::correctionBytes({{1000, 0}}, {{0, 1000000}});
    mcUnit->otherwise([bytes](const std::string& query) {
        return query.rfind("DATA:", 0) == 0 ? vnktest::correctionReply(bytes, query) : std::string();
    });
    ReferencePtr<Device> cDevice = open();
    ASSERT_TRUE(cDevice);
    std::vector<std::string> lCommands;
    for (const std::string& line : mcUnit->takeJournal())
        if (line.rfind("DATA:", 0) == 0)
            lCommands.push_back(line);
    EXPECT_THAT(lCommands,
                ElementsAre("DATA:CORRECTION:SIGNAL:SIZE?", "DATA:CORrection:NOISe:SIZE?",
                            "DATA:CORrection:SIGNAL:READ? 0, 48", "DATA:CORrection::SIGNAL:READ? 48, 6",
                            "DATA:CORRECTION:SIGNAL:READ? 54, 10", "DATA:CORrection:NOISe:READ? 0, 48",
                            "DATA:CORrection::NOISe:READ? 48, 6", "DATA:CORRECTION:NOISe:READ? 54, 10"));
    EXPECT_EQ(cDevice->getParameters().getBool("iqequalization"), true);
    close(cDevice);
}

TEST_F(QuillonReceiverTest, ThereIsNoInhibitionOfContinuousSweeps) {
    ReferencePtr<Device> cDevice = open();
    ASSERT_TRUE(cDevice);
    utils::VariantRecord cRecord(R"({"InhibitContinuousSweep":true})");
    ErrorList lErrors;
    cDevice->setParameters(cRecord, lErrors);
    EXPECT_EQ(lErrors, ErrorList{"Unknown parameter 'InhibitContinuousSweep'"});
    EXPECT_EQ(vnktest::takeStatuses(), std::vector<int32_t>{-33});
    close(cDevice);
}

// Packets.

TEST_F(QuillonReceiverTest, PacketsBeforeAnyStreamAreReportedAndDropped) {
    ReferencePtr<Device> cDevice = open();
    ASSERT_TRUE(cDevice);
    const std::pair<uint32_t, const char*> cKinds[] = {{0, "Unexpected IFData"},
                                                       {1, "Unexpected IFData"},
                                                       {2, "Unexpected ExtensionData"},
                                                       {3, "Unexpected ExtensionData"},
                                                       {4, "Unexpected IFContext"},
                                                       {5, "Unexpected ExtensionContext"}};
    for (const auto& [uType, pText] : cKinds) {
        vnktest::GenericHeader cHeader;
        cHeader.muType = uType;
        mcUnit->sendData(vnktest::genericPacket(cHeader).fill(4, 0).bytes());
        EXPECT_TRUE(waitForReport(-6019, pText)) << uType;
    }
    close(cDevice);
}

TEST_F(QuillonReceiverTest, AHandlerWithoutAPacketSaysSo) {
    ReferencePtr<Device> cDevice = open();
    ASSERT_TRUE(cDevice);
    auto& cListener = dynamic_cast<VITA49Protocol::Listener&>(*cDevice);
    cListener.handleIFContext(nullptr);
    cListener.handleIFData(nullptr);
    cListener.handleExtensionContext(nullptr);
    cListener.handleExtensionData(nullptr);
    const auto lTexts = takeLogTexts();
    for (const char* pHandler : {"IFContext", "IFData", "ExtensionContext", "ExtensionData"})
        EXPECT_THAT(lTexts, Contains(std::string("handle") + pHandler + " called with cPacket==nullptr"));
    EXPECT_THAT(lTexts, Not(Contains(testing::StartsWith("Unexpected"))));
    close(cDevice);
}

// Streams.

TEST_F(QuillonReceiverTest, StreamsOutOfRangeAreRefused) {
    ReferencePtr<Device> cDevice = open();
    ASSERT_TRUE(cDevice);
    const ErrorList lIQ = attach(cDevice, stream(R"({"FCentreHz":1.0,"IFBWHz":1.0,"RefdBm":-90.0})"));
    ASSERT_EQ(lIQ.size(), 4u);
    EXPECT_EQ(lIQ.back(), "IQ Stream cannot be implemented");
    EXPECT_EQ(vnktest::takeStatuses(), (std::vector<int32_t>{-62, -63, -64}));
    const ErrorList lSweep = attach(
        cDevice, stream<SpectrumFrameSink>(R"({"FMinHz":100000000.0,"FMaxHz":350000000.0,"RBWHz":10.0})"));
    ASSERT_EQ(lSweep.size(), 2u);
    EXPECT_EQ(lSweep.back(), "Failed to attach spectrum stream");
    EXPECT_EQ(vnktest::takeStatuses(), std::vector<int32_t>{-65});
    EXPECT_EQ(attach(cDevice, makeReference<BasebandFrameSink>()), ErrorList{"Frame sink attach failed"});
    close(cDevice);
    EXPECT_TRUE(allBack());
}

TEST_F(QuillonReceiverTest, ASpectrumStreamIsAttachedOnce) {
    ReferencePtr<Device> cDevice = open();
    ASSERT_TRUE(cDevice);
    const auto cStream = stream<SpectrumFrameSink>(kGoodSpectrumStream);
    EXPECT_TRUE(attach(cDevice, cStream).empty());
    EXPECT_EQ(attach(cDevice, cStream), ErrorList{"Attempt to re-attach an already served spectrum stream"});
    EXPECT_TRUE(source(cDevice).removeFrameSink(cStream));
    EXPECT_FALSE(cStream->isAttached());
    close(cDevice);
    EXPECT_TRUE(allBack());
}

TEST_F(QuillonReceiverTest, ACaptureThatIsDetachedIsErasedByTheLoopAndHalted) {
    ReferencePtr<Device> cDevice = open();
    ASSERT_TRUE(cDevice);
    const auto cStream = stream(kGoodIQStream);
    EXPECT_TRUE(attach(cDevice, cStream).empty());
    ASSERT_TRUE(answerStart());
    EXPECT_EQ(cDevice->getParameters().getBool("IQActive"), true);
    mlSeen.clear();
    takeLogTexts();
    EXPECT_TRUE(source(cDevice).removeFrameSink(cStream));
    EXPECT_TRUE(waitForText("syncComplete"));
    EXPECT_THAT(mlSeen, AllOf(Contains("::detachStream called..."),
                              Contains("issuing stop for continuous IQ capture (not self-terminating)")));
    const auto itRemoved = std::find(mlSeen.begin(), mlSeen.end(), "after remove (true) - mlIQEngines(size=0)");
    ASSERT_NE(itRemoved, mlSeen.end());
    EXPECT_NE(std::find(itRemoved, mlSeen.end(), "syncComplete"), mlSeen.end());
    EXPECT_FALSE(cStream->isAttached());
    close(cDevice);
    EXPECT_TRUE(allBack());
}

TEST_F(QuillonReceiverTest, AUnitThatRefusesAccessIsReported) {
    ReferencePtr<Device> cDevice = open();
    ASSERT_TRUE(cDevice);
    mcUnit->reply("SYST:LOCK:REQ? ACQ", {"0\n"});
    takeLog();
    const auto cStream = stream<SpectrumFrameSink>(kGoodSpectrumStream);
    EXPECT_TRUE(attach(cDevice, cStream).empty());   // an idle receiver wins the unit back first
    EXPECT_TRUE(waitForReport(-6001, "Failed to acquire acqusition access."));
    arrange("Quillon");
    close(cDevice);
    EXPECT_TRUE(allBack());
}

// The thread.

TEST_F(QuillonReceiverTest, TheIdleThreadTellsItsWaitsAndItsEnd) {
    ReferencePtr<Device> cDevice = open();
    ASSERT_TRUE(cDevice);
    EXPECT_TRUE(waitForText("quillon ::run wait start"));
    EXPECT_TRUE(waitForText("quillon processing loop (::run) exits wait state"));
    EXPECT_THAT(mlSeen, Not(Contains("QuillonReceiverThread exits")));
    close(cDevice);
    EXPECT_TRUE(waitForText("QuillonReceiverThread exits"));
    EXPECT_TRUE(allBack());
}
