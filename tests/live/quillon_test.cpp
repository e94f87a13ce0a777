#include <cmath>
#include <string>

#include "live/measure.h"
#include "live/spectra.h"

// The second family, from the air of a simulated unit to the record that a caller reads.

namespace {

constexpr size_t kBins = 16384;
constexpr double kRateHz = 122.88e6;

struct Case {
    double mfCentreHz;   // held exactly by a 32-bit float
    double mfOffsetHz;
    double mfIFBWHz;
    uint32_t muDecimation;
    double mfReferenceLevel = -30;
};

std::string nameOf(const testing::TestParamInfo<Case>& cInfo) {
    return std::to_string(static_cast<long long>(cInfo.param.mfCentreHz / 1e6)) + "MHzDecimation" +
           std::to_string(cInfo.param.muDecimation);
}

class QuillonTone : public testing::TestWithParam<Case> {};

/// A unit of the second family that is opened, fast enough for sweeps.
vnksim::UnitOptions quillonOptions(const std::string& model = "Quillon") {
    vnksim::UnitOptions cOptions = live::sweepOptions(model);
    cOptions.rateLimit = 5e6;
    return cOptions;
}

std::string logUntil(const std::string& text) {
    std::string all;
    vnktest::waitUntil([&] { return (all += live::log()).find(text) != std::string::npos; });
    return all;
}

/// The window that shows a tone between two bins at its full level.
constexpr const char* kFlat = "flattop";

/// The highest point within some bins of a frequency, and how far beside it stands.
struct Peak {
    double mfHz = 0;
    double mfdBm = -1000;
};
Peak peakNear(const live::SpectrumFrame& cFrame, double hz, double reachHz) {
    Peak cPeak;
    const std::vector<float> lPoints = cFrame.points();
    for (size_t i = 0; i < lPoints.size(); ++i)
        if (std::abs(cFrame.hertz(i) - hz) <= reachHz && static_cast<double>(lPoints[i]) > cPeak.mfdBm)
            cPeak = {cFrame.hertz(i), static_cast<double>(lPoints[i])};
    return cPeak;
}

/// Bins tell density: a tone stands lower by the noise bandwidth of the window.
void expectTones(const live::SpectrumFrame& cFrame, const std::vector<double>& lHertz, double level) {
    const double reach = 4 * static_cast<double>(cFrame->rbwHz);
    for (const double hz : lHertz) {
        const Peak cPeak = peakNear(cFrame, hz, reach);
        // Half a bin where a tone lies between two, half of one from the width told, and the flat top of the window.
        EXPECT_NEAR(cPeak.mfHz, hz, 2.5 * cFrame.binHz()) << hz;
        EXPECT_NEAR(cPeak.mfdBm, level - 10 * std::log10(live::noiseBandwidth(kFlat)), 0.2) << hz;
    }
}

std::vector<double> combOf(double fromHz, double toHz, double stepHz) {
    std::vector<double> lHertz;
    for (double hz = fromHz; hz < toHz; hz += stepHz)
        lHertz.push_back(hz);
    return lHertz;
}

vnksim::Scene sceneOf(const std::vector<double>& lHertz, double level) {
    vnksim::Scene cScene;
    for (const double hz : lHertz)
        cScene.tone(hz, level);
    return cScene;
}

/// A comb on the air, and a stream that sweeps it.
class QuillonSweep : public testing::Test {
 protected:
    static constexpr double kLevel = -60;
    explicit QuillonSweep(double samplesPerSecond = 5e6)
        : mlHertz(combOf(100.3e6, 387e6, 7.7e6)),
          mcRadio(optionsOf(samplesPerSecond), sceneOf(mlHertz, kLevel)),
          mcStream(95e6, 390e6, 400e3, kFlat, -30) {}
    static vnksim::UnitOptions optionsOf(double samplesPerSecond) {
        vnksim::UnitOptions cOptions = quillonOptions();
        cOptions.rateLimit = samplesPerSecond;
        return cOptions;
    }
    void attach() { ASSERT_EQ(mcStream.attach(mcRadio.device()), 0) << live::log(); }
    void expectFrames(int iFrames) {
        for (int i = 0; i < iFrames; ++i) {
            ASSERT_TRUE(mcStream.next(mcFrame)) << live::log();
            expectTones(mcFrame, mlHertz, kLevel);
        }
    }
    std::vector<double> mlHertz;
    live::Radio mcRadio;
    live::SpectrumStream mcStream;
    live::SpectrumFrame mcFrame;
};

/// Slow enough that no line of the log is lost between two looks at it.
class SlowQuillonSweep : public QuillonSweep {
 protected:
    SlowQuillonSweep() : QuillonSweep(300e3) {}
};

}  // namespace

TEST_P(QuillonTone, ComesOutWhereAndAsStrongAsItWentIn) {
    const Case& cCase = GetParam();
    constexpr double kLevel = -50.0;
    vnksim::Unit cUnit(live::options("Quillon"),
                       vnksim::Scene().tone(cCase.mfCentreHz + cCase.mfOffsetHz, kLevel).noise(-160));
    cUnit.start();
    live::Device cDevice(cUnit.options().address);
    ASSERT_EQ(cDevice.status(), 0) << live::log();
    live::Stream cStream(cCase.mfCentreHz, cCase.mfIFBWHz, cCase.mfReferenceLevel);
    ASSERT_EQ(cStream.attach(cDevice), 0) << live::log();
    float fRate = 0;
    const measure::Samples lSamples = live::collect(cStream, 2 * kBins, &fRate);
    ASSERT_GE(lSamples.size(), 2 * kBins);
    EXPECT_EQ(cUnit.state().decimation, cCase.muDecimation);
    EXPECT_EQ(fRate, static_cast<float>(kRateHz / cCase.muDecimation));
    const double expected = cCase.mfOffsetHz / static_cast<double>(fRate);
    EXPECT_NEAR(measure::peakFrequency(lSamples, kBins), expected, 1.0 / kBins);
    EXPECT_NEAR(measure::dB(measure::toneAmplitude(lSamples, expected, 2 * kBins)), kLevel, 0.1);
}

INSTANTIATE_TEST_SUITE_P(AtEachKindOfDecimation, QuillonTone,
                         testing::Values(Case{98e6, 20e3, 100e3, 1024}, Case{30e6, -30e3, 200e3, 512, 0},
                                         Case{900e6, 500e3, 3e6, 32, -10}, Case{2400e6, -5e6, 24e6, 4, -40},
                                         Case{5800e6, 11e6, 50e6, 2, 10}, Case{16e9, -40e6, 100e6, 1}),
                         nameOf);

TEST(Quillon, OpensEachModelThatTheFamilyTakes) {
    for (const char* pModel : {"Quillon", "Dravik", "unknown"}) {
        live::Radio cRadio(quillonOptions(pModel));
        EXPECT_EQ(cRadio.device().status(), 0) << pModel << live::log();
        const std::string parameters = cRadio.device().parameters();
        EXPECT_NE(parameters.find("122880000"), std::string::npos) << parameters;
        EXPECT_EQ(parameters.find("GNSS"), std::string::npos) << parameters;
    }
}

TEST(Quillon, AFrequencyLimitThatIsNoNumberIsToldAndFailsTheOpen) {
    const std::pair<const char*, const char*> replies[] = {{"none", "invalid stof argument"},
                                                           {"1e99", "stof argument out of range"}};
    for (const auto& cReply : replies) {
        vnksim::Unit cUnit(quillonOptions());
        cUnit.start();
        cUnit.faults().change([&](auto& f) { f.wrongReplies[":sense:freq:center? max"] = cReply.first; });
        const live::Device cDevice(cUnit.options().address);
        EXPECT_NE(cDevice.status(), 0);
        EXPECT_NE(live::log().find(cReply.second), std::string::npos);
    }
}

TEST(Quillon, WhatItCannotDoIsRefusedWithItsTexts) {
    live::Radio cRadio(quillonOptions());
    live::Stream cWide(1e9, 104.5e6);
    EXPECT_EQ(cWide.attach(cRadio.device()), -41);
    EXPECT_NE(live::log().find("FIFBWHz 1.0450e+08 is out of range (1.0000e+05, 1.0445e+08)"), std::string::npos);
    live::Stream cLoud(1e9, 1e6, 11);
    EXPECT_EQ(cLoud.attach(cRadio.device()), -41);
    EXPECT_NE(live::log().find("is out of range (-40, 10)"), std::string::npos);
    live::SpectrumStream cFine(1e9, 2e9, 99999);
    EXPECT_EQ(cFine.attach(cRadio.device()), -41);
    EXPECT_NE(live::log().find("RBWHz 1e+05 is out of range (1e+05, 2e+10)"), std::string::npos);
}

TEST(Quillon, AFiniteCaptureGivesWhatWasAskedAndEnds) {
    live::Radio cRadio(quillonOptions(), vnksim::Scene().tone(1e9 + 100e3, -60));
    live::Stream cStream(1e9, 1e6);
    ASSERT_EQ(cStream.set("{\"captureSec\":0.05,\"bufferFrames\":1000}"), 0);
    ASSERT_EQ(cStream.attach(cRadio.device()), 0) << live::log();
    uint64_t uSamples = 0;
    float fRate = 0;
    live::Frame cFrame;
    EXPECT_TRUE(vnktest::waitUntil([&] {
        const int32_t iStatus = cStream.read(cFrame, 100);
        if (iStatus == 0) {
            uSamples += cFrame->sampleCount;
            fRate = cFrame->sampleRateHz;
        }
        return iStatus == 2;
    }));
    EXPECT_GE(static_cast<double>(uSamples), 0.05 * static_cast<double>(fRate));
    EXPECT_LT(static_cast<double>(uSamples), 0.06 * static_cast<double>(fRate));
    EXPECT_TRUE(cRadio.journal().count("SWEEP:LIST:START") > 0);
    EXPECT_FALSE(cRadio.journal().count("INPUT:MODE") > 0);
}

TEST(Quillon, SamplesOfAnInvertedSpectrumComeUpright) {
    live::Radio cRadio(quillonOptions(), vnksim::Scene().tone(1e9 + 300e3, -50));
    cRadio.fault("spectralInversion");
    live::Stream cStream(1e9, 1e6);
    ASSERT_EQ(cStream.attach(cRadio.device()), 0) << live::log();
    float fRate = 0;
    const measure::Samples lSamples = live::collect(cStream, 2 * kBins, &fRate);
    ASSERT_GE(lSamples.size(), 2 * kBins);
    EXPECT_NEAR(measure::peakFrequency(lSamples, kBins), 300e3 / static_cast<double>(fRate), 1.0 / kBins);
}

TEST(Quillon, NeitherCalibrationNorAdaptationEntersTheSamples) {
    live::Radio cRadio(quillonOptions(), vnksim::Scene().tone(1e9 + 100e3, -60));
    live::Stream cStream(1e9, 1e6);
    ASSERT_EQ(cStream.set("{\"UserCaldB\":12.0,\"adaptFull\":true,\"adaptStep\":true}"), 0);
    ASSERT_EQ(cStream.attach(cRadio.device()), 0) << live::log();
    float fRate = 0;
    const measure::Samples lSamples = live::collect(cStream, 2 * kBins, &fRate);
    ASSERT_GE(lSamples.size(), 2 * kBins);
    EXPECT_NEAR(measure::dB(measure::toneAmplitude(lSamples, 100e3 / static_cast<double>(fRate), 2 * kBins)), -60, 0.1);
    EXPECT_EQ(cStream.number("RefdBm"), -30.0f);
}

TEST(Quillon, WithoutAContextTheSamplesStayUndecoded) {
    live::Radio cRadio(quillonOptions());
    cRadio.fault("contextMissing");
    live::Stream cStream(1e9, 1e6);
    ASSERT_EQ(cStream.attach(cRadio.device()), 0);
    EXPECT_NE(logUntil("IQ data packet decoding failed").find("IQ data packet decoding failed"), std::string::npos);
    cRadio.fault("clear");
    live::Frame cFrame;
    EXPECT_TRUE(cStream.next(cFrame)) << live::log().substr(0, 3000);
}

TEST(Quillon, EachPayloadFormatThatIsNotItsOwnEndsTheLinkAndAResetBringsItBack) {
    live::Radio cRadio(quillonOptions());
    live::Stream cStream(1e9, 1e6);
    live::Frame cFrame;
    ASSERT_EQ(cStream.attach(cRadio.device()), 0);
    for (unsigned uField = 1; uField <= 10; ++uField) {
        ASSERT_TRUE(cStream.next(cFrame)) << uField << live::log();
        live::log();
        cRadio.unit().faults().change([&](auto& f) { f.payloadFormat = uField; });
        // A context comes with a start.
        ASSERT_EQ(cStream.set("{\"IFBWHz\":" + std::to_string(uField % 2 ? 2e6 : 1e6) + "}"), 0);
        const std::string all = logUntil("raised an exception");
        EXPECT_NE(all.find("code -9001"), std::string::npos) << uField << all;
        cRadio.unit().faults().clear();
        ASSERT_EQ(vnkResetDeviceConnection(cRadio.device().handle()), 0) << live::log();
        while (cStream.read(cFrame, 0) == 0) {
        }
    }
    EXPECT_TRUE(cStream.next(cFrame)) << live::log();
}

TEST_F(QuillonSweep, ShowsEachToneAtItsPlaceAndLevel) {
    attach();
    expectFrames(3);
    EXPECT_NEAR(mcFrame->minimumHz, 95e6, 1);
    EXPECT_NEAR(mcFrame->maximumHz, 390e6, 2 * mcFrame.binHz());
    EXPECT_EQ(mcRadio.unit().state().iterations, 0u) << "a lone sweep runs by itself";
}

TEST_F(QuillonSweep, BlocksWhoseSpectrumIsInvertedReadOutInAscendingOrder) {
    mcRadio.fault("invertedFromMHz,200");
    mcRadio.fault("invertedBelowMHz,300");
    attach();
    expectFrames(2);
}

TEST_F(QuillonSweep, AResolutionOfManyPacketsToABlockIsJoinedRightly) {
    live::SpectrumStream cFine(200e6, 260e6, 100e3, kFlat, -30);
    ASSERT_EQ(cFine.attach(mcRadio.device()), 0) << live::log();
    ASSERT_TRUE(cFine.next(mcFrame)) << live::log();
    EXPECT_LE(mcFrame->rbwHz, 100e3f);
    std::vector<double> lInside;
    for (const double hz : mlHertz)
        if (hz > 201e6 && hz < 259e6)
            lInside.push_back(hz);
    expectTones(mcFrame, lInside, kLevel);
}

TEST_F(QuillonSweep, IsNeitherCountedNorHeldBackAndLeavesByDetachOnly) {
    ASSERT_EQ(mcStream.set("{\"captureFrames\":2,\"flowControl\":true}"), 0);
    attach();
    expectFrames(5);
    EXPECT_EQ(mcStream.detach(), 0);
    EXPECT_TRUE(mcRadio.unit().waitForMode("BLOCK", std::chrono::seconds(20)));
}

TEST_F(QuillonSweep, AReferenceLevelAboveTheHighestIsHeldToIt) {
    ASSERT_EQ(mcStream.set("{\"RefdBm\":15.0}"), 0);
    attach();
    ASSERT_TRUE(mcStream.next(mcFrame)) << live::log();
    EXPECT_TRUE(mcRadio.journal().count(":DEBUG:REFERENCE:LEVEL 10") > 0);
    EXPECT_EQ(mcRadio.unit().state().referenceLevelDbm, 10);
}

TEST_F(QuillonSweep, TellsTheTrueLevelAtAnyReferenceLevel) {
    for (const int iLevel : {0, -35, 10}) {
        live::SpectrumStream cStream(95e6, 390e6, 400e3, kFlat, iLevel);
        ASSERT_EQ(cStream.attach(mcRadio.device()), 0) << live::log();
        ASSERT_TRUE(cStream.next(mcFrame)) << live::log();
        EXPECT_EQ(mcRadio.unit().state().referenceLevelDbm, iLevel);
        expectTones(mcFrame, mlHertz, kLevel);
    }
}

TEST_F(SlowQuillonSweep, LostRepeatedAndSwappedBlocksGiveNoFrameThatIsWrong) {
    attach();
    expectFrames(1);
    // One lost at the end of a sweep, or repeated at its start, is followed by the first one of the next: no line.
    for (const char* pFault : {"loseBlockOnce,1", "repeatBlockOnce,1"}) {
        mcRadio.fault(pFault);
        ASSERT_TRUE(vnktest::waitUntil([&] {
            const vnksim::FaultSettings cNow = mcRadio.unit().faults().snapshot();
            return cNow.loseBlockOnce == 0 && cNow.repeatBlockOnce == 0;
        })) << pFault;
        expectFrames(4);
    }
    const std::pair<const char*, const char*> faults[] = {{"swapBlocksOnce", "Out of order block #"},
                                                          {"blockShiftOnceKHz,9000000", "Out of order block #"},
                                                          {"shortPacketOnce,1", "VITA49::IFData data size incorrect"}};
    for (const auto& cFault : faults) {
        mcRadio.fault(cFault.first);
        EXPECT_NE(logUntil(cFault.second).find(cFault.second), std::string::npos) << cFault.first;
        expectFrames(3);
    }
}

TEST_F(QuillonSweep, GivesWayToIQAndComesBack) {
    attach();
    expectFrames(1);
    {
        live::Stream cIQ(1e9, 1e6);
        ASSERT_EQ(cIQ.attach(mcRadio.device()), 0);
        live::Frame cFrame;
        ASSERT_TRUE(cIQ.next(cFrame)) << live::log();
    }
    while (mcStream.read(mcFrame, 0) == 0) {
    }
    expectFrames(2);
}

TEST_F(QuillonSweep, TwoTakeTurnsAndTheOneThatStaysRunsByItself) {
    attach();
    expectFrames(1);
    {
        live::SpectrumStream cOther(1e9, 1.2e9, 1e6, kFlat, -30);
        ASSERT_EQ(cOther.attach(mcRadio.device()), 0);
        live::SpectrumFrame cFrame;
        for (int i = 0; i < 3; ++i) {
            ASSERT_TRUE(cOther.next(cFrame)) << live::log();
            EXPECT_NEAR(cFrame->minimumHz, 1e9, 100);
            expectFrames(1);
        }
    }
    expectFrames(3);
}

TEST(QuillonFlatten, UndoesTheRippleOfTheIF) {
    vnksim::UnitOptions cOptions = quillonOptions();
    cOptions.corrections = vnksim::defaultCorrectionData(7);
    cOptions.ifGaindB = vnksim::gainOfCorrections(
        cOptions.corrections.signal, vnksim::sampledBandHz(vnksim::familyOf(cOptions.model)));
    const std::vector<double> lHertz = combOf(103e6, 295e6, 6.3e6);
    live::Radio cRadio(cOptions, sceneOf(lHertz, -60));
    EXPECT_NE(cRadio.device().parameters().find("\"iqequalization\":true"), std::string::npos);
    EXPECT_TRUE(cRadio.journal().count("DATA:CORrection::SIGNAL:READ? 48,") > 0);
    live::SpectrumStream cStream(95e6, 300e6, 400e3, kFlat, -30);
    ASSERT_EQ(cStream.set("{\"flatten\":true}"), 0);
    ASSERT_EQ(cStream.attach(cRadio.device()), 0) << live::log();
    live::SpectrumFrame cFrame;
    ASSERT_TRUE(cStream.next(cFrame)) << live::log();
    expectTones(cFrame, lHertz, -60);
}
