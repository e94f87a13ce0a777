#include <algorithm>
#include <string>
#include <vector>

#include "live/measure.h"
#include "live/session.h"

namespace {

using namespace std::chrono_literals;

vnksim::Scene oneTone() {
    return vnksim::Scene().tone(100.01e6, -40);
}

/// Lines from the first that contains `from` on.
std::vector<std::string> linesFrom(const std::vector<std::string>& lLines, const std::string& from) {
    const auto it = std::find_if(lLines.begin(), lLines.end(),
                                 [&](const std::string& line) { return line.find(from) != std::string::npos; });
    return {it, lLines.end()};
}

}  // namespace

TEST(Open, SendsItsCommandsInOrder) {
    vnksim::Unit cUnit(live::options("ZV100-A"), {});
    cUnit.start();
    live::Device cDevice(cUnit.options().address);
    ASSERT_EQ(cDevice.status(), 0) << live::log();
    const std::vector<std::string> lLines = cUnit.journal().lines();
    const std::vector<std::string> lHead(lLines.begin(), lLines.begin() + 9);
    EXPECT_EQ(lHead, (std::vector<std::string>{
                         "*IDN?",   // the probe's
                         "*IDN?", "*IDN?", "SYSTEM:OPTIONS?", ":SOURce:REFerence:PLL?", ":SOURce:REFerence:PPS?",
                         ":SYSTEM:TIME:SYNC?", ":SYSTem:TIME?", ":SYSTem:DATE?"}));
    EXPECT_EQ(lLines[9], "*CLS");
    EXPECT_EQ(lLines[10], "DATA:CORRECTION:SIGNAL:SIZE?");
    EXPECT_EQ(lLines[11], "DATA:CORRECTION:NOISE:SIZE?");
    EXPECT_EQ(lLines[12], "DATA:CORRECTION:SIGNAL:READ? 0, 48");
    ASSERT_GE(lLines.size(), 4u);
    EXPECT_EQ(lLines[lLines.size() - 2], "*RST");
    EXPECT_EQ(lLines[lLines.size() - 1], ":SYSTem:CAPTure:MODE?");
}

TEST(Open, AnOpenIndexGivesTheSameHandleAndNoSecondConnection) {
    vnksim::Unit cUnit(live::options(), {});
    cUnit.start();
    live::Device cDevice(cUnit.options().address);
    ASSERT_EQ(cDevice.status(), 0) << live::log();
    const size_t uLines = cUnit.journal().size();
    uint32_t uAgain = 0;
    EXPECT_EQ(vnkOpenDevice(live::indexOf(cUnit.options().address), &uAgain), 0);
    EXPECT_EQ(uAgain, cDevice.handle());
    EXPECT_EQ(cUnit.journal().size(), uLines);
    EXPECT_EQ(cUnit.state().dataConnections, 1u);
}

TEST(Open, EveryModelOpensAndTellsWhoItIs) {
    for (const std::string& model : vnksim::modelNames(vnksim::Family::first)) {
        vnksim::Unit cUnit(live::options(model), {});
        cUnit.start();
        Text cText;
        EXPECT_EQ(vnkExamineDevice(live::indexOf(cUnit.options().address), cText.address()), 0);
        EXPECT_NE(cText.str().find("\"type\":\"" + model + "\""), std::string::npos) << cText.str();
        EXPECT_NE(cText.str().find("\"serial\":\"SIM00001\""), std::string::npos) << cText.str();
        live::Device cDevice(cUnit.options().address);
        EXPECT_EQ(cDevice.status(), 0) << model << "\n" << live::log();
        EXPECT_NE(cDevice.parameters().find("\"RxSampleRate\":125000000.000000"), std::string::npos);
        EXPECT_EQ(cDevice.set("{\"pllSource\":\"internal\"}"), 0) << model;
        EXPECT_TRUE(cUnit.journal().waitFor(":SOURce:REFerence:PLL INT", 10s)) << model;
    }
}

TEST(ContinuousCapture, IsProgrammedStartedAndStopped) {
    vnksim::Unit cUnit(live::options("ZV150-C"), oneTone());
    cUnit.start();
    live::Device cDevice(cUnit.options().address);
    ASSERT_EQ(cDevice.status(), 0) << live::log();
    const size_t uFrom = cUnit.journal().size();
    live::Stream cStream(100e6, 100e3, -30);
    ASSERT_EQ(vnkIsAttached(cStream.handle()), 5);
    ASSERT_EQ(cStream.attach(cDevice), 0);
    EXPECT_EQ(vnkIsAttached(cStream.handle()), 0);
    live::Frame cFrame;
    ASSERT_TRUE(cStream.next(cFrame));
    EXPECT_EQ(cFrame->sequence, 0u);
    EXPECT_EQ(cFrame->sampleCount, 12192u);   // a tenth of a second at 125 MHz / 1024, to a multiple of 32
    EXPECT_EQ(cFrame->centreHz, 100e6);
    EXPECT_EQ(cFrame->bandwidthHz, 100e3f);
    EXPECT_EQ(cFrame->status, 0);
    EXPECT_EQ(cStream.detach(), 0);
    EXPECT_EQ(vnkIsAttached(cStream.handle()), 5);
    EXPECT_EQ(cStream.detach(), -44);
    ASSERT_TRUE(cUnit.waitForMode("BLOCK", 10s));

    const std::vector<std::string> lLines = cUnit.journal().lines(uFrom);
    ASSERT_GE(lLines.size(), 4u);
    EXPECT_EQ(lLines[0],
              "INPUT:MODE SH;:TRACe:SPPacket 12192;:SENSE:DEC 1024;FREQ:CENT 100000000 Hz;"
              ":INPut:ATTenuator:VARiable 0;:INPut:GAIN 1 1;:INPut:GAIN 2 1");
    EXPECT_EQ(lLines[1], "SYST:ERR?");
    EXPECT_EQ(lLines[2].substr(0, 21), ":TRACe:STReam:STARt 1");
    const std::vector<std::string> lEnd = linesFrom(lLines, "STOP");
    ASSERT_GE(lEnd.size(), 1u);
    EXPECT_EQ(lEnd[0], ":TRACe:STReam:STOP; :SYSTEM:FLUSH");
}

TEST(ContinuousCapture, EachStartCarriesAFreshIdentifier) {
    vnksim::Unit cUnit(live::options(), oneTone());
    cUnit.start();
    live::Device cDevice(cUnit.options().address);
    live::Stream cStream(100e6, 100e3);
    for (uint32_t i = 1; i <= 3; ++i) {
        ASSERT_EQ(cStream.attach(cDevice), 0);
        EXPECT_TRUE(cUnit.journal().waitFor(":TRACe:STReam:STARt " + std::to_string(i), 10s));
        live::Frame cFrame;
        ASSERT_TRUE(cStream.next(cFrame));
        ASSERT_EQ(cStream.detach(), 0);
        vnkFlushStream(cStream.handle());
    }
}

TEST(ContinuousCapture, AParameterChangeStartsItAnew) {
    vnksim::Unit cUnit(live::options(), oneTone());
    cUnit.start();
    live::Device cDevice(cUnit.options().address);
    live::Stream cStream(100e6, 100e3);
    ASSERT_EQ(cStream.attach(cDevice), 0);
    live::Frame cFrame;
    ASSERT_TRUE(cStream.next(cFrame));
    ASSERT_EQ(cStream.set("{\"FCentreHz\":200000000}"), 0);
    EXPECT_TRUE(cUnit.journal().waitFor("FREQ:CENT 200000000 Hz", 10s));
    EXPECT_TRUE(vnktest::waitUntil([&] { return cStream.read(cFrame) == 0 && cFrame->centreHz == 200e6; }));
    EXPECT_EQ(cStream.set("{\"FCentreHz\":90000000000.0}"), -34) << "out of range: the capture stays";
    EXPECT_EQ(cStream.number("FCentreHz"), 200e6f);
}

TEST(ContinuousCapture, OfTwoStreamsTheOlderHasTheRadio) {
    vnksim::Unit cUnit(live::options(), oneTone());
    cUnit.start();
    live::Device cDevice(cUnit.options().address);
    live::Stream cFirst(100e6, 100e3), cSecond(300e6, 100e3);
    ASSERT_EQ(cFirst.attach(cDevice), 0);
    ASSERT_EQ(cSecond.attach(cDevice), 0);
    live::Frame cFrame;
    ASSERT_TRUE(cFirst.next(cFrame));
    EXPECT_EQ(cSecond.read(cFrame, 300), 3);
    ASSERT_EQ(cFirst.detach(), 0);
    ASSERT_TRUE(cSecond.next(cFrame)) << live::log();
    EXPECT_EQ(cFrame->centreHz, 300e6);
}

TEST(ContinuousCapture, AttachingAgainChangesNothing) {
    vnksim::Unit cUnit(live::options(), oneTone());
    cUnit.start();
    live::Device cDevice(cUnit.options().address);
    live::Stream cStream(100e6, 100e3);
    ASSERT_EQ(cStream.attach(cDevice), 0);
    EXPECT_EQ(cStream.attach(cDevice), 0);
    live::Frame cFrame;
    EXPECT_TRUE(cStream.next(cFrame));
    EXPECT_EQ(cUnit.journal().count("STReam:STARt"), 1u);
}

TEST(ContinuousCapture, WhatIsOutOfRangeIsRefusedAtTheAttach) {
    vnksim::Unit cUnit(live::options("ZV100-A"), oneTone());
    cUnit.start();
    live::Device cDevice(cUnit.options().address);
    while (vnkGetNextStatus() != 0) {
    }
    live::Stream cStream(9e9, 90e6, 30);
    EXPECT_EQ(cStream.attach(cDevice), -41);
    EXPECT_EQ(vnkGetNextStatus(), -62);
    EXPECT_EQ(vnkGetNextStatus(), -63);
    EXPECT_EQ(vnkGetNextStatus(), -64);
    EXPECT_EQ(vnkGetNextStatus(), 0);
    EXPECT_EQ(vnkIsAttached(cStream.handle()), 5);
}

TEST(ContinuousCapture, DeliveredFramesOutliveTheirStreamAndDevice) {
    vnksim::Unit cUnit(live::options(), oneTone());
    cUnit.start();
    live::Frame cFrame;
    {
        live::Device cDevice(cUnit.options().address);
        live::Stream cStream(100e6, 100e3);
        ASSERT_EQ(cStream.attach(cDevice), 0);
        ASSERT_TRUE(cStream.next(cFrame));
    }
    double sum = 0;
    for (uint32_t i = 0; i < cFrame->sampleCount; ++i)
        sum += std::norm(cFrame.samples()[i]);
    EXPECT_NEAR(10 * std::log10(sum / cFrame->sampleCount), -40, 0.2);
}

TEST(ContinuousCapture, ADeviceClosedUnderItsStreamGoesOnUntilTheDetach) {
    vnksim::Unit cUnit(live::options(), oneTone());
    cUnit.start();
    auto pDevice = std::make_unique<live::Device>(cUnit.options().address);
    live::Stream cStream(100e6, 100e3);
    ASSERT_EQ(cStream.attach(*pDevice), 0);
    live::Frame cFrame;
    ASSERT_TRUE(cStream.next(cFrame));
    EXPECT_EQ(pDevice->close(), 0);
    for (int i = 0; i < 5; ++i)
        ASSERT_TRUE(cStream.next(cFrame));
    EXPECT_EQ(cUnit.state().dataConnections, 1u);
    EXPECT_EQ(cStream.close(), 0);
    EXPECT_TRUE(vnktest::waitUntil([&] { return cUnit.state().dataConnections == 0; }));
}

TEST(ContinuousCapture, AnEmptyQueueIsAWaitAndADeliveredRecordIsGivenBackOnce) {
    vnksim::Unit cUnit(live::options(), oneTone());
    cUnit.start();
    live::Device cDevice(cUnit.options().address);
    live::Stream cStream(100e6, 100e3);
    ASSERT_EQ(cStream.attach(cDevice), 0);
    live::Frame cFrame;
    ASSERT_TRUE(cStream.next(cFrame));
    vnkIQRecord* pRecord = cFrame.release();
    EXPECT_EQ(vnkFreeIQ(&pRecord), 0);
    EXPECT_EQ(vnkFreeIQ(&pRecord), -20);
    // A packet holds a tenth of a second: a queue that has just been emptied stays so for a while.
    EXPECT_TRUE(vnktest::waitUntil([&] {
        vnkFlushStream(cStream.handle());
        return cStream.read(cFrame, 0) == 1;
    }));
}

TEST(ContinuousCapture, AStreamThatIsAttachedToAnotherDeviceLeavesTheFirst) {
    vnksim::Unit cFirst(live::options(), oneTone()), cSecond(live::options(), oneTone());
    cFirst.start();
    cSecond.start();
    live::Device cOne(cFirst.options().address), cOther(cSecond.options().address);
    live::Stream cStream(100e6, 100e3);
    ASSERT_EQ(cStream.attach(cOne), 0);
    live::Frame cFrame;
    ASSERT_TRUE(cStream.next(cFrame));
    ASSERT_EQ(cStream.attach(cOther), 0);
    EXPECT_TRUE(cFirst.waitForMode("BLOCK", 20s));
    EXPECT_TRUE(cSecond.waitForMode("STREAMING", 20s));
    EXPECT_EQ(cStream.detach(), 0);
    EXPECT_TRUE(cSecond.waitForMode("BLOCK", 20s));
}

TEST(Open, AnOpenDeviceIsDescribedByItsSchema) {
    vnksim::Unit cUnit(live::options("ZV300-A"), {});
    cUnit.start();
    live::Device cDevice(cUnit.options().address);
    ASSERT_EQ(cDevice.status(), 0);
    Text cText;
    EXPECT_EQ(vnkExamineDevice(live::indexOf(cUnit.options().address), cText.address()), 0);
    for (const char* pKey : {"\"RxSampleRate\":", "\"GNSSValid\":", "\"pllSource\":", "\"IFBWHz\":"})
        EXPECT_NE(cText.str().find(pKey), std::string::npos) << pKey << cText.str();
}

TEST(FiniteCapture, IsASelfEndingListAndItsStreamEnds) {
    vnksim::Unit cUnit(live::options("ZV150-C"), oneTone());
    cUnit.start();
    live::Device cDevice(cUnit.options().address);
    ASSERT_EQ(cDevice.status(), 0);
    live::Stream cStream(100e6, 3e6, -30);   // decimation 32: 3.90625 MS/s
    ASSERT_EQ(cStream.set("{\"captureSec\":0.01}"), 0);
    const size_t uFrom = cUnit.journal().size();
    ASSERT_EQ(cStream.attach(cDevice), 0);
    live::Frame cFrame;
    ASSERT_TRUE(cStream.next(cFrame));
    // 39062.5 samples are wanted: one packet, a multiple of 32, not shorter.
    EXPECT_EQ(cFrame->sampleCount, 39072u);
    ASSERT_TRUE(vnktest::waitUntil([&] { return cStream.read(cFrame, 100) == 2; }));
    EXPECT_TRUE(vnktest::waitUntil([&] { return vnkIsAttached(cStream.handle()) == 5; }))
        << "the end lets the stream go";
    const std::vector<std::string> lLines = cUnit.journal().lines(uFrom);
    ASSERT_GE(lLines.size(), 3u);
    EXPECT_EQ(lLines[0],
              ":sweep:entry:delete all;:sweep:entry:new;:sweep:list:iter 1;:sweep:entry:att:var 0;"
              ":sweep:entry:mode SH;:sweep:entry:freq:cent 100000000;:sweep:entry:spp 39072;:sweep:entry:ppb 1;"
              ":sweep:entry:dec 32;:sweep:entry:save;:INPut:GAIN 1 1;:INPut:GAIN 2 1");
    EXPECT_EQ(lLines[1], "SYST:ERR?");
    EXPECT_EQ(lLines[2], "SWEEP:LIST:START 1");
    for (const std::string& line : lLines)
        EXPECT_EQ(line.find("STReam"), std::string::npos) << line;
    Text cText(cStream.parameters());
    uint8_t uContiguous = 0;
    EXPECT_EQ(vnkReadBooleanParameter(cText.address(), "contiguous", &uContiguous), 0);
    EXPECT_EQ(uContiguous, 1);
    EXPECT_NEAR(cStream.number("maxContiguousSec"), 33554432 / 3.90625e6, 1e-3);
    EXPECT_EQ(cStream.number("SampleRateHz"), 3.90625e6f);
}

TEST(FiniteCapture, OfMoreThanOnePacketDeliversAllOfThem) {
    vnksim::Unit cUnit(live::options("ZV150-C"), oneTone());
    cUnit.start();
    live::Device cDevice(cUnit.options().address);
    live::Stream cStream(100e6, 3e6, -30);
    ASSERT_EQ(cStream.set("{\"captureSec\":0.1,\"bufferFrames\":1000}"), 0);
    ASSERT_EQ(cStream.attach(cDevice), 0);
    uint64_t uSamples = 0;
    live::Frame cFrame;
    EXPECT_TRUE(vnktest::waitUntil([&] {
        const int32_t iStatus = cStream.read(cFrame, 100);
        if (iStatus == 0)
            uSamples += cFrame->sampleCount;
        return iStatus == 2;
    }));
    EXPECT_GE(uSamples, 390625u);
    EXPECT_LT(uSamples, 390625u + 6 * 32 + 1);
}

TEST(FiniteCapture, AtFullRateComesAsWholePackets) {
    vnksim::Unit cUnit(live::options("ZV150-C"), oneTone());
    cUnit.start();
    live::Device cDevice(cUnit.options().address);
    live::Stream cStream(100e6, 40e6, -30);
    ASSERT_EQ(cStream.set("{\"captureSec\":0.002,\"bufferFrames\":1000}"), 0);
    ASSERT_EQ(cStream.attach(cDevice), 0);
    uint32_t uFrames = 0;
    live::Frame cFrame;
    EXPECT_TRUE(vnktest::waitUntil([&] {
        const int32_t iStatus = cStream.read(cFrame, 100);
        if (iStatus == 0) {
            ++uFrames;
            EXPECT_EQ(cFrame->sampleCount, 32640u);
            EXPECT_EQ(cFrame->sampleRateHz, 62.5e6f);
        }
        return iStatus == 2;
    }));
    EXPECT_EQ(uFrames, 4u);   // 250000 samples in packets of 65280
}

TEST(FiniteCapture, LongerThanTheMemoryRunsOnTheContinuousPathAndIsStoppedByCount) {
    vnksim::Unit cUnit(live::options("ZV150-C"), oneTone());
    cUnit.start();
    live::Device cDevice(cUnit.options().address);
    live::Stream cStream(20e6, 1e6, -30);   // direct digitization: 67108864 / 125 MHz = 0.537 s
    ASSERT_EQ(cStream.set("{\"captureSec\":0.55}"), 0);
    const size_t uFrom = cUnit.journal().size();
    ASSERT_EQ(cStream.attach(cDevice), 0);
    live::Frame cFrame;
    EXPECT_TRUE(vnktest::waitUntil([&] { return cStream.read(cFrame, 100) == 2; }, 120s));
    EXPECT_TRUE(cUnit.journal().waitFor(":TRACe:STReam:STARt 1", 10s, uFrom));
    EXPECT_TRUE(cUnit.journal().waitFor(":TRACe:STReam:STOP; :SYSTEM:FLUSH", 10s, uFrom));
}

TEST(StepAdaptation, RaisesTheReferenceLevelAfterACaptureThatWasTooStrong) {
    vnksim::Unit cUnit(live::options("ZV100-A"), vnksim::Scene().tone(100e6, -10));
    cUnit.start();
    live::Device cDevice(cUnit.options().address);
    live::Stream cStream(100e6, 100e3, -30);
    ASSERT_EQ(cStream.set("{\"adaptStep\":true}"), 0);
    ASSERT_EQ(cStream.attach(cDevice), 0);
    live::Frame cFrame;
    ASSERT_TRUE(cStream.next(cFrame));
    // A change of any parameter ends this capture; the next one starts with the adapted level.
    ASSERT_EQ(cStream.set("{\"UserCaldB\":0.5}"), 0);
    EXPECT_TRUE(vnktest::waitUntil([&] { return cStream.number("RefdBm") == -20.0f; })) << cStream.parameters();
}
