#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <limits>
#include <memory>
#include <numeric>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "api/processing.h"
#include "api/processormodel.h"
#include "libvnk.h"

// What a caller may rely on of each processor: its parameters to the letter, and what it computes against the
// models of processormodel.h.

namespace {

using namespace processing;
using testing::HasSubstr;
using testing::Not;

// Results, copied out of their records.

struct Levels {
    uint32_t muSequence = 0;
    uint64_t muTime = 0, muDuration = 0;
    double mfMinHz = 0, mfMaxHz = 0;
    float mfRBWHz = 0;
    std::string mcExtras;
    std::vector<float> mlPoints;
    std::vector<std::vector<float>> mlTraces;
};

struct Audio {
    uint32_t muSequence = 0;
    uint64_t muTime = 0;
    float mfRateHz = 0, mfBandwidthHz = 0;
    uint32_t muChannels = 0;
    bool mbExtras = false;
    std::vector<float> mlSamples;
};

Levels copyOf(const HeldSpectrum& c) {
    Levels cLevels{c->sequence, c->timestamp, c->duration, c->minimumHz, c->maximumHz, c->rbwHz, {}, {}, {}};
    cLevels.mcExtras = c->extras ? c->extras : "(none)";
    cLevels.mlPoints.assign(c->points, c->points + c->pointCount);
    for (uint32_t i = 0; i < c->traceCount; ++i)
        cLevels.mlTraces.emplace_back(c->traces[i], c->traces[i] + c->pointCount);
    return cLevels;
}

Audio copyOf(const HeldBaseband& c) {
    Audio cAudio{
        c->sequence, c->timestamp, c->sampleRateHz, c->bandwidthHz, c->channelCount, c->extras != nullptr,
        {}};
    if (c->channelCount > 0)
        cAudio.mlSamples.assign(c->channels[0], c->channels[0] + c->samplesPerChannel);
    return cAudio;
}

template <typename Result, typename Record>
std::vector<Result> readAll(const Handle& cStream) {
    std::vector<Result> lResults;
    Record cRecord;
    EXPECT_TRUE(vnktest::waitUntil([&] {
        int32_t iStatus = 0;
        while ((iStatus = cStream.read(cRecord, 200)) == 0)
            lResults.push_back(copyOf(cRecord));
        return iStatus == 2;
    })) << "the end did not come";
    return lResults;
}

constexpr char kQueueAll[] = "{\"bufferFrames\":100000}";

/// A stream, a processor behind it and what that makes, none of which loses a frame.
class Bench {
 public:
    explicit Bench(const std::string& type, const std::string& parameters = "{}", Kind eKind = Kind::iq)
        : mcStream(eKind), mcProcessor(type), mcOutput(mcProcessor) {
        EXPECT_EQ(mcProcessor.set(parameters), 0);
        EXPECT_EQ(mcProcessor.set(kQueueAll), 0);
        mcOutput.set(kQueueAll);
        EXPECT_THAT(mcOutput.parameters(), HasSubstr("\"bufferFrames\":100000"));
        EXPECT_EQ(mcProcessor.attach(mcStream.handle()), 0);
    }
    template <typename Frame>
    void play(const std::vector<Frame>& lFrames, const Tuning& c = {}) {
        const std::string stem = "x" + std::to_string(++miPlayed);
        writePair(mcFolder, stem, lFrames, c);
        // The recording before has ended when its last frame is out, and its file is let go right behind
        // that.
        ASSERT_TRUE(vnktest::waitUntil([&] { return mcStream.isAttached() == 5; }));
        ASSERT_EQ(mcStream.play(mcFolder.name(stem)), 0);
    }
    template <typename Frame>
    std::vector<Levels> levels(const std::vector<Frame>& lFrames, const Tuning& c = {}) {
        play(lFrames, c);
        return readAll<Levels, HeldSpectrum>(mcOutput);
    }
    std::vector<Audio> audio(const std::vector<IQ>& lFrames, const Tuning& c = {}) {
        play(lFrames, c);
        return readAll<Audio, HeldBaseband>(mcOutput);
    }

    Folder mcFolder;
    Stream mcStream;
    Processor mcProcessor;
    Output mcOutput;

 private:
    int miPlayed = 0;
};

std::vector<float> joined(const std::vector<Audio>& lAudio) {
    std::vector<float> lSamples;
    for (const Audio& cAudio : lAudio)
        lSamples.insert(lSamples.end(), cAudio.mlSamples.begin(), cAudio.mlSamples.end());
    return lSamples;
}

/// Frames of the given lengths over one run of samples, all at one time, so that they play at once.
std::vector<IQ> cut(const std::vector<std::complex<float>>& lSamples, const std::vector<size_t>& lLengths,
                    uint32_t uFirst = 0, uint64_t uTime = 1'600'000'000'000'000'000) {
    std::vector<IQ> lFrames;
    auto it = lSamples.begin();
    for (size_t uLength : lLengths) {
        const auto itEnd = it + static_cast<std::ptrdiff_t>(uLength);
        lFrames.push_back({uTime, uFirst + static_cast<uint32_t>(lFrames.size()), {it, itEnd}});
        it = itEnd;
    }
    return lFrames;
}

/// Two tones in noise, the same for every run.
std::vector<std::complex<float>> noisyTones(size_t uSamples) {
    std::vector<std::complex<float>> lSamples;
    uint32_t uState = 12345;
    const auto noise = [&uState] {
        uState = uState * 1664525u + 1013904223u;
        return (static_cast<double>(uState >> 8) / (1u << 24) - 0.5) * 1e-4;
    };
    for (size_t n = 0; n < uSamples; ++n) {
        const auto t = static_cast<double>(n);
        const std::complex<double> z =
            std::polar(1e-3, 0.7331 * t) + std::polar(2e-4, -1.9 * t + 0.4) + std::complex(noise(), noise());
        lSamples.emplace_back(z);
    }
    return lSamples;
}

std::vector<std::complex<float>> modulated(size_t uSamples, double fRate, double fToneHz, double fCarrierHz) {
    std::vector<std::complex<float>> lSamples;
    for (size_t n = 0; n < uSamples; ++n) {
        const double t = static_cast<double>(n) / fRate;
        const double fLevel = 1e-3 * (1 + 0.5 * std::sin(2 * model::kPi * fToneHz * t));
        lSamples.emplace_back(std::complex<float>(std::polar(fLevel, 2 * model::kPi * fCarrierHz * t)));
    }
    return lSamples;
}

Tuning tuned(float fRateHz, float fBandwidthHz, float fCentreHz = 100e6f) {
    Tuning c;
    c.mfSampleRateHz = fRateHz;
    c.mfBandwidthHz = fBandwidthHz;
    c.mfCentreHz = fCentreHz;
    return c;
}

const Tuning kWide = tuned(1.024e6f, 800e3f);

void expectLevels(const std::vector<float>& lPoints, const std::vector<double>& lExpected) {
    ASSERT_EQ(lPoints.size(), lExpected.size());
    for (size_t i = 0; i < lPoints.size(); ++i)
        if (lExpected[i] > -140) {
            ASSERT_NEAR(static_cast<double>(lPoints[i]), lExpected[i], 0.01) << "bin " << i;
        }
}

/// Drops what the calling thread has been told so far.
void forgetStatuses() {
    while (vnkGetNextStatus() != 0) {
    }
    Text::take(vnkGetDetailedStatus());
    takeLog();
}

std::string detail() {
    return Text::take(vnkGetDetailedStatus());
}

std::string schemaOf(uint32_t uHandle) {
    Text cText;
    EXPECT_EQ(vnkGetParameterInfo(uHandle, cText.address()), 0);
    return cText.str();
}

float numberOf(const Handle& cHandle, const char* pKey) {
    Text cText(cHandle.parameters());
    float fValue = -12345.0f;
    vnkReadNumericParameter(cText.address(), pKey, &fValue);
    return fValue;
}

std::string textOf(const Handle& cHandle, const char* pKey) {
    Text cText(cHandle.parameters()), cValue;
    return vnkReadTextParameter(cText.address(), pKey, cValue.address()) == 0 ? cValue.str() : "(none)";
}

/// 1, 0, or -1 where there is none.
int flagOf(const Handle& cHandle, const char* pKey) {
    Text cText(cHandle.parameters());
    uint8_t uValue = 0;
    return vnkReadBooleanParameter(cText.address(), pKey, &uValue) == 0 ? uValue : -1;
}

// Schemas.

constexpr char kFlow[] = "<If set true, limit capture rate to ensure minimal network buffering>";

std::string listOf(const std::vector<std::string>& lValues) {
    std::string text = "[";
    for (const std::string& value : lValues)
        text += std::string(text.size() > 1 ? "," : "") + "\r\n\t\t\t\"" + value + "\"";
    return text + "\r\n\t\t]";
}

Record described(const std::string& description) {
    return Record().text("description", description);
}
Record readOnly(const std::string& description) {
    return described(description).literal("readonly", "true");
}
Record oneOf(const std::string& description, const std::vector<std::string>& lValues) {
    return described(description).literal("values", listOf(lValues));
}
Record numeric(const std::string& description, float fMin, float fMax, float fDefault) {
    return described(description).number("min", fMin).number("max", fMax).number("default", fDefault);
}
Record demodulator() {
    Record cRate = numeric("<desired output sample rate. Program to cause resampling.>", 4000, 1e6f, 44100);
    return Record()
        .text("flowControl", kFlow)
        .nested("frames", readOnly("<count of frames processed>"))
        .nested("OutputSampleRate", cRate.text("units", "Hz"));
}

const std::vector<std::string> kFlags = {"true", "false"};

}  // namespace

// Parameters.

TEST(ProcessorSchema, OfIQToSpectrumIsToTheLetter) {
    const Record cRBW = numeric("<programmed resolution bandwidth>", 1, 100000, 1000).text("units", "Hz");
    const Record cExpected =
        Record()
            .text("flowControl", kFlow)
            .nested("MatchIQ", readOnly("<most recently processed IQ frame sequence number>"))
            .nested(
                "FollowIQ",
                oneOf("<if set, overlap is 0.0 and 1 spectrum frame is generated for each IQ frame>", kFlags))
            .nested("OutputSize", readOnly("<integer size of output result>"))
            .nested("RBWHz", cRBW)
            .nested("FFTOverlap", numeric("<overlap between FFTs>", 0, 0.8f, 0.5f))
            .nested("WindowFn", oneOf("<window function>", model::kWindows));
    EXPECT_EQ(schemaOf(Processor("IQToSpectrum")), cExpected.pretty());
}

TEST(ProcessorSchema, OfTheDemodulatorsIsToTheLetter) {
    EXPECT_EQ(schemaOf(Processor("FMDemodulator")), demodulator().pretty());
    const Record cType = oneOf("<AM demodulator subtype>", {"DSB", "USB", "LSB"});
    EXPECT_EQ(schemaOf(Processor("AMDemodulator")), demodulator().nested("type", cType).pretty());
}

TEST(ProcessorSchema, OfSpectrumCharacterizationIsToTheLetter) {
    const Record cExpected =
        Record()
            .text("flowControl", kFlow)
            .nested("Frames", readOnly(""))
            .nested("Average", numeric("<Number of spectra to take average of>", 1, 10000, 1))
            .nested("ClearAverageTrace", oneOf("<Boolean to clear average trace>", kFlags))
            .nested("ClearMaxHoldTrace", oneOf("<Boolean to clear max-hold trace>", kFlags))
            .nested("ClearMinHoldTrace", oneOf("<Boolean to clear min-hold trace>", kFlags));
    EXPECT_EQ(schemaOf(Processor("SpectrumCharacterization")), cExpected.pretty());
}

TEST(ProcessorSchema, NumbersOfItAreReadWithTheReader) {
    Processor cProcessor("IQToSpectrum");
    Text cSchema(schemaOf(cProcessor)), cJSON;
    float fValue = 0;
    EXPECT_EQ(vnkReadParameterInfoElement(cSchema.address(), "FFTOverlap", "max", &fValue), 0);
    EXPECT_EQ(fValue, 0.8f);
    EXPECT_EQ(vnkReadParameterInfoElement(cSchema.address(), "RBWHz", "default", &fValue), 0);
    EXPECT_EQ(fValue, 1000.0f);
    EXPECT_EQ(vnkReadParameterInfoElement(cSchema.address(), "MatchIQ", "min", &fValue), -13);
    EXPECT_EQ(vnkReadParameterInfoElement(cSchema.address(), "flowControl", "min", &fValue), -13);
    EXPECT_EQ(vnkReadParameterAsJSON(cSchema.address(), "flowControl", cJSON.address()), -13);
    EXPECT_EQ(vnkReadParameterAsJSON(cSchema.address(), "OutputSize", cJSON.address()), 0);
    EXPECT_EQ(cJSON.str(), readOnly("<integer size of output result>").pretty());
}

TEST(ProcessorParameters, OfANewIQToSpectrumAreItsDefaults) {
    const Record cExpected = Record()
                                 .number("bufferSec", 0)
                                 .whole("bufferFrames", 10)
                                 .number("bufferDiscard", 0)
                                 .literal("flowControl", "false")
                                 .whole("RecentFrames", 0)
                                 .text("WindowFn", "nuttall")
                                 .literal("FollowIQ", "false")
                                 .number("RBWHz", 1000)
                                 .number("FFTOverlap", 0.5f);
    EXPECT_EQ(Processor("IQToSpectrum").parameters(), cExpected.pretty());
}

TEST(ProcessorParameters, OfADemodulatorTellTheRateOnceThereIsOne) {
    for (const char* pType : {"AMDemodulator", "FMDemodulator"}) {
        Processor cProcessor(pType);
        EXPECT_THAT(cProcessor.parameters(), Not(HasSubstr("OutputSampleRate"))) << pType;
        EXPECT_EQ(numberOf(cProcessor, "frames"), 0.0f);
        EXPECT_EQ(textOf(cProcessor, "type"), pType == std::string("AMDemodulator") ? "DSB" : "(none)");
        EXPECT_EQ(cProcessor.set("{\"OutputSampleRate\":44100}"), 0) << "any number";
        EXPECT_THAT(cProcessor.parameters(), HasSubstr("\"OutputSampleRate\":44100.000000"));
    }
}

TEST(ProcessorParameters, OfTracesAreAnAverageOfOneAndNoFlags) {
    Processor cProcessor("SpectrumCharacterization");
    EXPECT_EQ(numberOf(cProcessor, "Average"), 1.0f);
    for (const char* pKey : {"ClearAverageTrace", "ClearMaxHoldTrace", "ClearMinHoldTrace"})
        EXPECT_EQ(flagOf(cProcessor, pKey), 0) << pKey;
    EXPECT_EQ(numberOf(cProcessor, "Frames"), -12345.0f) << "described, without a value";
    EXPECT_EQ(cProcessor.set("{\"Average\":20000.0,\"ClearMinHoldTrace\":true}"), 0) << "no range is checked";
    EXPECT_EQ(numberOf(cProcessor, "Average"), 20000.0f);
    EXPECT_EQ(flagOf(cProcessor, "ClearMinHoldTrace"), 1) << "until a frame comes";
    EXPECT_EQ(flagOf(cProcessor, "ClearMaxHoldTrace"), 0);
}

TEST(ProcessorParameters, OfIQToSpectrumAreTakenAtTheirLimitsAndDroppedSilentlyBeyond) {
    Processor cProcessor("IQToSpectrum");
    for (const char* pGood : {"{\"RBWHz\":1.0}", "{\"RBWHz\":100000}", "{\"FFTOverlap\":0.0}",
                              "{\"FFTOverlap\":0.8}", "{\"WindowFn\":\"flattop\"}"})
        EXPECT_EQ(cProcessor.set(pGood), 0) << pGood;
    forgetStatuses();
    for (const char* pBad :
         {"{\"RBWHz\":0.5}", "{\"RBWHz\":100000.1}", "{\"RBWHz\":-5.0}", "{\"FFTOverlap\":0.81}",
          "{\"FFTOverlap\":-0.1}", "{\"WindowFn\":\"Hann\"}", "{\"WindowFn\":\"\"}"})
        EXPECT_EQ(cProcessor.set(pBad), 0) << pBad;
    EXPECT_EQ(vnkGetNextStatus(), 0);
    EXPECT_THAT(takeLog(), Not(HasSubstr("-34")));
    EXPECT_EQ(numberOf(cProcessor, "RBWHz"), 100000.0f);
    EXPECT_EQ(numberOf(cProcessor, "FFTOverlap"), 0.8f);
    EXPECT_EQ(textOf(cProcessor, "WindowFn"), "flattop");
}

TEST(ProcessorParameters, OfIQToSpectrumThatFollowsLeaveOutWhatItDoesNotUse) {
    Processor cProcessor("IQToSpectrum");
    ASSERT_EQ(cProcessor.set("{\"FollowIQ\":true,\"RBWHz\":500.0}"), 0);
    EXPECT_EQ(flagOf(cProcessor, "FollowIQ"), 1);
    EXPECT_THAT(cProcessor.parameters(), Not(HasSubstr("RBWHz")));
    EXPECT_THAT(cProcessor.parameters(), Not(HasSubstr("FFTOverlap")));
    ASSERT_EQ(cProcessor.set("{\"FollowIQ\":false}"), 0);
    EXPECT_EQ(numberOf(cProcessor, "RBWHz"), 500.0f) << "taken all the same";
}

TEST(ProcessorParameters, OfAnotherKindOfValueAreNotUnderstood) {
    const std::vector<std::pair<const char*, std::string>> lCases = {
        {"IQToSpectrum", "{\"RBWHz\":\"lots\"}"},
        {"IQToSpectrum", "{\"FollowIQ\":1}"},
        {"IQToSpectrum", "{\"WindowFn\":5}"},
        {"IQToSpectrum", "{\"FFTOverlap\":true}"},
        {"IQToSpectrum", "{\"MatchIQ\":5}"},
        {"IQToSpectrum", "{\"OutputSize\":5}"},
        {"IQToSpectrum", "{\"RecentFrames\":5}"},
        {"AMDemodulator", "{\"type\":1}"},
        {"AMDemodulator", "{\"frames\":1}"},
        {"FMDemodulator", "{\"type\":\"DSB\"}"},
        {"FMDemodulator", "{\"OutputSampleRate\":true}"},
        {"SpectrumCharacterization", "{\"Average\":\"5\"}"},
        {"SpectrumCharacterization", "{\"Frames\":5}"},
        {"SpectrumCharacterization", "{\"ClearMaxHoldTrace\":1}"}};
    for (const auto& [pType, parameters] : lCases) {
        Processor cProcessor(pType);
        const std::string before = cProcessor.parameters();
        forgetStatuses();
        EXPECT_EQ(cProcessor.set(parameters), -34) << parameters;
        const std::string key = parameters.substr(2, parameters.find('"', 2) - 2);
        const std::string told = "Attempted to integrate unknown parameter '" + key + "'";
        EXPECT_EQ(vnkGetNextStatus(), -33) << parameters;
        EXPECT_EQ(vnkGetNextStatus(), 0);
        EXPECT_THAT(detail(), HasSubstr(told));
        EXPECT_THAT(takeLog(), HasSubstr(told));
        EXPECT_EQ(cProcessor.parameters(), before);
    }
}

TEST(ProcessorParameters, ThatNobodyKnowsAreToldOneByOne) {
    for (const std::string& type : kTypes) {
        Processor cProcessor(type);
        forgetStatuses();
        EXPECT_EQ(cProcessor.set("{\"aaa\":1,\"zzz\":2}"), -34);
        EXPECT_EQ(vnkGetNextStatus(), -33);
        EXPECT_EQ(vnkGetNextStatus(), -33);
        EXPECT_EQ(vnkGetNextStatus(), 0);
        EXPECT_THAT(detail(), HasSubstr("'zzz'")) << "the last one";
        const std::string log = takeLog();
        EXPECT_EQ(countOf(log, "Attempted to integrate unknown parameter 'aaa'"), 1u);
        EXPECT_EQ(countOf(log, "Attempted to integrate unknown parameter 'zzz'"), 1u);
    }
}

TEST(ProcessorParameters, OfTheQueueAreCheckedAsOnAnyStreamAndThenNothingOfItIsStored) {
    struct Case {
        const char* mpSet;
        int32_t miStatus;
        const char* mpText;
    };
    const Case aCases[] = {
        {"\"bufferFrames\":0", -51, "VNKBufferFrames 0 out-of-range. Valid range 1 - 100000"},
        {"\"bufferFrames\":100001", -51, "VNKBufferFrames 100001 out-of-range. Valid range 1 - 100000"},
        {"\"bufferSec\":1000.5", -50, "VNKBufferSec 1000.500 out-of-range. Valid range 0 - 1000 seconds"},
        {"\"bufferDiscard\":1.5", -52, "VNKDiscardProportion should be between 0.0 and 1.0"}};
    for (const std::string& type : kTypes)
        for (const Case& c : aCases) {
            Processor cProcessor(type);
            forgetStatuses();
            EXPECT_EQ(cProcessor.set(std::string("{\"flowControl\":true,") + c.mpSet + "}"), -34);
            EXPECT_EQ(vnkGetNextStatus(), c.miStatus);
            EXPECT_EQ(vnkGetNextStatus(), 0);
            EXPECT_THAT(detail(), HasSubstr(c.mpText));
            EXPECT_EQ(flagOf(cProcessor, "flowControl"), 0);
        }
}

TEST(ProcessorParameters, OfTheProcessorStandAlsoWhenTheQueueRefuses) {
    Processor cSpectra("IQToSpectrum"), cAM("AMDemodulator");
    EXPECT_EQ(cSpectra.set("{\"RBWHz\":250.0,\"bufferFrames\":0}"), -34);
    EXPECT_EQ(numberOf(cSpectra, "RBWHz"), 250.0f);
    EXPECT_EQ(cAM.set("{\"type\":\"USB\",\"OutputSampleRate\":3999.0,\"bufferFrames\":77}"), -34);
    EXPECT_EQ(textOf(cAM, "type"), "USB");
    EXPECT_EQ(numberOf(cAM, "bufferFrames"), 10.0f) << "an earlier refusal keeps the queue as it was";
}

TEST(ProcessorParameters, OutputSampleRateIsTakenWithinItsRangeOnly) {
    for (const char* pType : {"AMDemodulator", "FMDemodulator"}) {
        Processor cProcessor(pType);
        forgetStatuses();
        EXPECT_EQ(cProcessor.set("{\"OutputSampleRate\":3999.0}"), -34);
        EXPECT_THAT(detail(), HasSubstr("Output sample rate 3.9990e+03 is out of range"));
        EXPECT_THAT(takeLog(), HasSubstr("Output sample rate 3.9990e+03 is out of range"));
        EXPECT_THAT(cProcessor.parameters(), Not(HasSubstr("OutputSampleRate")));
        EXPECT_EQ(cProcessor.set("{\"OutputSampleRate\":4000.0}"), 0);
        EXPECT_EQ(cProcessor.set("{\"OutputSampleRate\":1000000.0}"), 0);
        EXPECT_EQ(cProcessor.set("{\"OutputSampleRate\":1000001.0}"), -34);
        EXPECT_THAT(detail(), HasSubstr("Output sample rate 1.0000e+06 is out of range"));
        EXPECT_EQ(numberOf(cProcessor, "OutputSampleRate"), 1e6f);
    }
}

TEST(ProcessorParameters, TheTypeOfAMIsWrittenInOneCase) {
    Processor cProcessor("AMDemodulator");
    const std::vector<std::pair<std::string, std::string>> lGood = {
        {"USB", "USB"}, {"lsb", "LSB"}, {"usb", "USB"}, {"DSB", "DSB"}, {"LSB", "LSB"}, {"dsb", "DSB"}};
    for (const auto& [set, read] : lGood) {
        EXPECT_EQ(cProcessor.set("{\"type\":\"" + set + "\"}"), 0);
        EXPECT_EQ(textOf(cProcessor, "type"), read);
    }
    for (const std::string bad : {"Usb", "AM", ""}) {
        forgetStatuses();
        EXPECT_EQ(cProcessor.set("{\"type\":\"" + bad + "\"}"), -34);
        EXPECT_THAT(detail(), HasSubstr("AM demodulator type <" + bad + "> not known"));
        EXPECT_EQ(textOf(cProcessor, "type"), "DSB");
    }
}

TEST(ProcessorParameters, OfAnAttachedOutputOfSpectraAreRefusedButItsQueueTakesThem) {
    Processor cProcessor("IQToSpectrum");
    Output cSpectra(cProcessor);
    forgetStatuses();
    EXPECT_EQ(cSpectra.set("{\"bufferFrames\":33}"), -34);
    const std::string log = takeLog();
    EXPECT_THAT(log, HasSubstr("Default ::canImplement fails"));
    EXPECT_THAT(log, HasSubstr("Connected source cannot implement requested parameter change"));
    EXPECT_EQ(numberOf(cSpectra, "bufferFrames"), 33.0f)
        << "what its kind refuses does not hold the queue back";
    ASSERT_EQ(vnkDetachStream(cSpectra), 0);
    EXPECT_EQ(cSpectra.set("{\"bufferFrames\":44}"), 0);
    Processor cFM("FMDemodulator");
    Output cAudio(cFM);
    EXPECT_EQ(cAudio.set("{\"bufferFrames\":55}"), 0) << "audio negotiates nothing";
    EXPECT_EQ(numberOf(cAudio, "bufferFrames"), 55.0f);
}

// Spectra.

TEST(SpectraOfIQ, HaveTheSizeTheirResolutionAsksFor) {
    struct Case {
        const char* mpSet;
        const char* mpWindow;
        float mfRateHz, mfBandwidthHz;
        size_t muSize, muBins;
    };
    const Case aCases[] = {
        {"{\"RBWHz\":1000.0}", "nuttall", 1e6f, 800e3f, 2048, 1638},
        {"{\"RBWHz\":1000.0,\"WindowFn\":\"rectangular\"}", "rectangular", 1.024e6f, 800e3f, 1024, 800},
        {"{\"RBWHz\":999.0,\"WindowFn\":\"rectangular\"}", "rectangular", 1.024e6f, 1.024e6f, 2048, 2048},
        {"{\"RBWHz\":100000.0,\"WindowFn\":\"rectangular\"}", "rectangular", 50e3f, 50e3f, 2, 2},
        {"{\"RBWHz\":4000.0,\"WindowFn\":\"hann\"}", "hann", 1.024e6f, 81e3f, 512, 40}};
    for (const Case& c : aCases) {
        Bench cBench("IQToSpectrum", c.mpSet);
        const auto lLevels =
            cBench.levels(cut(noisyTones(c.muSize), {c.muSize}), tuned(c.mfRateHz, c.mfBandwidthHz));
        ASSERT_EQ(lLevels.size(), 1u) << c.mpSet;
        EXPECT_EQ(lLevels[0].mlPoints.size(), c.muBins) << c.mpSet;
        const double fBin = static_cast<double>(c.mfRateHz) / static_cast<double>(c.muSize);
        EXPECT_FLOAT_EQ(lLevels[0].mfRBWHz, static_cast<float>(fBin) * model::noiseBandwidth(c.mpWindow));
        const double fHalf = static_cast<double>(c.muBins) * 0.5 * fBin;
        EXPECT_NEAR(lLevels[0].mfMinHz, 100e6 - fHalf, 8) << "as near as single precision comes";
        EXPECT_NEAR(lLevels[0].mfMaxHz, 100e6 + fHalf, 8);
        const double fDuration = static_cast<double>(c.muSize - 1) / static_cast<double>(c.mfRateHz) * 1e9;
        EXPECT_NEAR(static_cast<double>(lLevels[0].muDuration), fDuration, 1.0);
    }
}

TEST(SpectraOfIQ, HaveTheLevelsOfTheirSamplesForEveryWindow) {
    constexpr size_t kSize = 256;
    const auto lSamples = noisyTones(kSize);
    for (const std::string& window : model::kWindows) {
        // Three quarters of the size that comes out, so that rounding does not decide.
        const double fRBW = 1.024e6 / (0.75 * kSize) * static_cast<double>(model::noiseBandwidth(window));
        Bench cBench("IQToSpectrum", "{\"FFTOverlap\":0.0,\"WindowFn\":\"" + window +
                                         "\",\"RBWHz\":" + std::to_string(fRBW) + "}");
        const auto lLevels = cBench.levels(cut(lSamples, {kSize}), kWide);
        ASSERT_EQ(lLevels.size(), 1u) << window;
        SCOPED_TRACE(window);
        expectLevels(lLevels[0].mlPoints, model::levels(lSamples.data(), kSize, 200, window));
    }
}

TEST(SpectraOfIQ, ShowAToneAtItsFrequencyWithItsPower) {
    // Bin 100 of 1024 above the centre, and 333 below it: 100 kHz and -333 kHz.
    std::vector<std::complex<float>> lSamples;
    for (int n = 0; n < 1024; ++n)
        lSamples.emplace_back(std::polar(1e-3, 2 * model::kPi * 100 * n / 1024.0) +
                              std::polar(1e-2, -2 * model::kPi * 333 * n / 1024.0));
    Bench cBench("IQToSpectrum", "{\"RBWHz\":1000.0,\"WindowFn\":\"rectangular\"}");
    const auto lLevels = cBench.levels(cut(lSamples, {1024}), kWide);
    ASSERT_EQ(lLevels.size(), 1u);
    const Levels& c = lLevels[0];
    ASSERT_EQ(c.mlPoints.size(), 800u);
    EXPECT_EQ(c.mfMinHz, 99.6e6);
    EXPECT_EQ(c.mfMaxHz, 100.4e6);
    EXPECT_NEAR(static_cast<double>(c.mlPoints[500]), -60.0, 0.01) << "the centre is the middle bin";
    EXPECT_NEAR(static_cast<double>(c.mlPoints[67]), -40.0, 0.01);
    for (size_t i = 0; i < 800; ++i)
        if (i != 500 && i != 67) {
            ASSERT_LT(c.mlPoints[i], -120.0f) << i;
        }
}

TEST(SpectraOfIQ, OverlapAcrossFramesOfAnyLength) {
    constexpr size_t kSize = 256;
    for (const auto& [overlap, uHop] : std::vector<std::pair<std::string, size_t>>{
             {"0.0", 256}, {"0.25", 192}, {"0.5", 128}, {"0.8", 51}}) {
        const auto lSamples = noisyTones(1237);
        const std::vector<size_t> lLengths = {1, 300, 255, 2, 256, 257, 166};
        Bench cBench("IQToSpectrum",
                     "{\"WindowFn\":\"hann\",\"RBWHz\":8000.0,\"FFTOverlap\":" + overlap + "}");
        const auto lFrames = cut(lSamples, lLengths);
        const auto lLevels = cBench.levels(lFrames, kWide);
        SCOPED_TRACE(overlap);
        ASSERT_EQ(lLevels.size(), (1237 - kSize) / uHop + 1);
        for (size_t i = 0; i < lLevels.size(); ++i) {
            EXPECT_EQ(lLevels[i].muSequence, i);
            EXPECT_EQ(lLevels[i].muTime, lFrames[0].muTime + i * uHop * 1'024'000u)
                << "the step is samples times rate";
            // The frame that brought the last sample.
            size_t uFrame = 0;
            for (size_t uSeen = lLengths[0]; uSeen < i * uHop + kSize; uSeen += lLengths[++uFrame]) {
            }
            EXPECT_EQ(lLevels[i].mcExtras, "{\"MatchIQ\":" + std::to_string(uFrame) + "}");
            EXPECT_TRUE(lLevels[i].mlTraces.empty());
            expectLevels(lLevels[i].mlPoints, model::levels(&lSamples[i * uHop], kSize, 200, "hann"));
        }
    }
}

TEST(SpectraOfIQ, AGapDropsWhatWaitedAndShowsInTheirNumbersAndTimes) {
    constexpr size_t kSize = 256;
    const auto lSamples = noisyTones(1000);
    auto lFrames = cut(lSamples, {400, 300, 300});
    lFrames[1].muSequence = 7;
    lFrames[1].muTime += 5'000'000;
    lFrames[2].muSequence = 8;
    lFrames[2].muTime += 6'000'000;
    Bench cBench("IQToSpectrum", "{\"WindowFn\":\"hann\",\"RBWHz\":8000.0,\"FFTOverlap\":0.0}");
    const auto lLevels = cBench.levels(lFrames, kWide);
    ASSERT_EQ(lLevels.size(), 3u);
    const size_t aStart[] = {0, 400, 656};
    const uint32_t aSequence[] = {0, 2, 3};
    const uint64_t aTime[] = {lFrames[0].muTime, lFrames[1].muTime, lFrames[1].muTime + kSize * 1'024'000u};
    const char* const aExtras[] = {"{\"MatchIQ\":0}", "{\"MatchIQ\":7}", "{\"MatchIQ\":8}"};
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(lLevels[i].muSequence, aSequence[i]) << i;
        EXPECT_EQ(lLevels[i].muTime, aTime[i]) << i;
        EXPECT_EQ(lLevels[i].mcExtras, aExtras[i]);
        expectLevels(lLevels[i].mlPoints, model::levels(&lSamples[aStart[i]], kSize, 200, "hann"));
    }
}

TEST(SpectraOfIQ, AFirstFrameWithANumberOfItsOwnIsNoGap) {
    Bench cBench("IQToSpectrum", "{\"WindowFn\":\"hann\",\"RBWHz\":8000.0}");
    const auto lLevels = cBench.levels(cut(noisyTones(384), {384}, 1000), kWide);
    ASSERT_EQ(lLevels.size(), 2u);
    EXPECT_EQ(lLevels[0].muSequence, 0u);
    EXPECT_EQ(lLevels[1].muSequence, 1u);
    EXPECT_EQ(lLevels[1].mcExtras, "{\"MatchIQ\":1000}");
}

TEST(SpectraOfIQ, SamplesThatWaitAreUsedAlsoByARecordingThatGoesOn) {
    constexpr size_t kSize = 256;
    const auto lSamples = noisyTones(600);
    Bench cBench("IQToSpectrum", "{\"WindowFn\":\"hann\",\"RBWHz\":8000.0,\"FFTOverlap\":0.0}");
    ASSERT_EQ(cBench.levels(cut(lSamples, {200, 200}), kWide).size(), 1u);
    const auto lLevels = cBench.levels(cut({lSamples.begin() + 400, lSamples.end()}, {200}, 2), kWide);
    ASSERT_EQ(lLevels.size(), 1u);
    EXPECT_EQ(lLevels[0].muSequence, 1u);
    expectLevels(lLevels[0].mlPoints, model::levels(&lSamples[256], kSize, 200, "hann"));
    EXPECT_EQ(numberOf(cBench.mcProcessor, "RecentFrames"), 3.0f);
    EXPECT_EQ(numberOf(cBench.mcProcessor, "RecentFrames"), 0.0f) << "read once";
}

TEST(SpectraOfIQ, AChangeOfResolutionOrTuningBeginsAnew) {
    Bench cBench("IQToSpectrum", "{\"WindowFn\":\"rectangular\",\"RBWHz\":4000.0,\"FFTOverlap\":0.0}");
    const auto lSamples = noisyTones(1024);
    EXPECT_EQ(cBench.levels(cut(lSamples, {700}), kWide).size(), 2u);
    ASSERT_EQ(cBench.mcProcessor.set("{\"RBWHz\":2000.0}"), 0);
    auto lLevels = cBench.levels(cut(lSamples, {1024}, 1), kWide);
    ASSERT_EQ(lLevels.size(), 2u) << "what waited is gone";
    EXPECT_EQ(lLevels[0].muSequence, 0u);
    EXPECT_EQ(lLevels[0].mlPoints.size(), 400u);
    expectLevels(lLevels[0].mlPoints, model::levels(lSamples.data(), 512, 400, "rectangular"));
    lLevels = cBench.levels(cut(lSamples, {1024}, 2), tuned(1.024e6f, 800e3f, 200e6f));
    ASSERT_EQ(lLevels.size(), 2u);
    EXPECT_EQ(lLevels[0].muSequence, 0u);
    EXPECT_NEAR(lLevels[0].mfMinHz, 199.6e6, 16);
    lLevels = cBench.levels(cut(lSamples, {1024}, 3), tuned(1.024e6f, 400e3f, 200e6f));
    ASSERT_EQ(lLevels.size(), 2u);
    EXPECT_EQ(lLevels[1].muSequence, 1u);
    EXPECT_EQ(lLevels[1].mlPoints.size(), 200u);
    lLevels = cBench.levels(cut(lSamples, {1024}, 4), tuned(512e3f, 400e3f, 200e6f));
    ASSERT_EQ(lLevels.size(), 4u);
    EXPECT_EQ(lLevels[3].mlPoints.size(), 200u);
}

TEST(SpectraOfIQ, AnotherWindowBeginsAnewAndAnotherOverlapDoesNot) {
    constexpr size_t kSize = 256;
    const auto lSamples = noisyTones(1200);
    const auto part = [&lSamples](std::ptrdiff_t iFrom, std::ptrdiff_t iTo) {
        return std::vector<std::complex<float>>(lSamples.begin() + iFrom, lSamples.begin() + iTo);
    };
    Bench cBench("IQToSpectrum", "{\"WindowFn\":\"hann\",\"RBWHz\":8000.0,\"FFTOverlap\":0.0}");
    ASSERT_EQ(cBench.levels(cut(part(0, 300), {300}), kWide).size(), 1u);
    ASSERT_EQ(cBench.mcProcessor.set("{\"FFTOverlap\":0.5}"), 0);
    auto lLevels = cBench.levels(cut(part(300, 640), {340}, 1), kWide);
    ASSERT_EQ(lLevels.size(), 2u);
    EXPECT_EQ(lLevels[0].muSequence, 1u);
    EXPECT_EQ(lLevels[1].muSequence, 2u);
    expectLevels(lLevels[0].mlPoints, model::levels(&lSamples[256], kSize, 200, "hann"));
    expectLevels(lLevels[1].mlPoints, model::levels(&lSamples[384], kSize, 200, "hann"));
    ASSERT_EQ(cBench.mcProcessor.set("{\"WindowFn\":\"hamming\"}"), 0);
    lLevels = cBench.levels(cut(part(640, 1024), {384}, 2), kWide);
    ASSERT_EQ(lLevels.size(), 2u) << "256 and half of that: nothing waited";
    EXPECT_EQ(lLevels[0].muSequence, 0u);
    expectLevels(lLevels[0].mlPoints, model::levels(&lSamples[640], kSize, 200, "hamming"));
}

TEST(SpectraOfIQ, ExpectEveryNumberThatFollows) {
    const auto numbers = [](std::vector<uint32_t> lNumbers) {
        auto lFrames = cut(noisyTones(128 * lNumbers.size()), std::vector<size_t>(lNumbers.size(), 128));
        for (size_t i = 0; i < lNumbers.size(); ++i)
            lFrames[i].muSequence = lNumbers[i];
        Bench cBench("IQToSpectrum", "{\"WindowFn\":\"hann\",\"RBWHz\":8000.0,\"FFTOverlap\":0.0}");
        std::vector<uint32_t> lSequences;
        for (const Levels& c : cBench.levels(lFrames, kWide))
            lSequences.push_back(c.muSequence);
        return lSequences;
    };
    using testing::ElementsAre;
    EXPECT_THAT(numbers({0xFFFFFFFE, 0xFFFFFFFF, 0, 1}), ElementsAre(0, 1));
    EXPECT_THAT(numbers({0xFFFFFFFD, 0xFFFFFFFE, 0, 1}), ElementsAre(0, 2)) << "one left out";
    EXPECT_THAT(numbers({5, 5, 6, 7, 8}), ElementsAre(1, 2)) << "one twice";
    EXPECT_THAT(numbers({9, 4, 3, 4}), ElementsAre(2)) << "hardly one follows another";
}

TEST(SpectraOfIQ, OfNothingAreInfinitelyLow) {
    Bench cBench("IQToSpectrum", "{\"FollowIQ\":true}");
    const auto lLevels = cBench.levels(cut(std::vector<std::complex<float>>(64), {64}), kWide);
    ASSERT_EQ(lLevels.size(), 1u);
    EXPECT_EQ(lLevels[0].mlPoints, std::vector<float>(50, -std::numeric_limits<float>::infinity()));
}

TEST(SpectraOfIQ, FollowingAreOneForEachFrame) {
    const auto lSamples = noisyTones(4000);
    const std::vector<size_t> lLengths = {1000, 1000, 512, 511, 1, 2, 300};
    auto lFrames = cut(lSamples, lLengths, 40);
    for (size_t i = 0; i < lFrames.size(); ++i)
        lFrames[i].muTime += i * 1'000'000;
    lFrames[6].muSequence = 50;
    Bench cBench("IQToSpectrum", "{\"FollowIQ\":true,\"WindowFn\":\"hamming\"}");
    const auto lLevels = cBench.levels(lFrames, tuned(1.024e6f, 1.024e6f));
    const size_t aFrame[] = {0, 1, 2, 3, 5, 6}, aSize[] = {512, 512, 512, 256, 2, 256};
    ASSERT_EQ(lLevels.size(), 6u) << "one sample alone gives none";
    for (size_t i = 0; i < 6; ++i) {
        const IQ& cFrame = lFrames[aFrame[i]];
        EXPECT_EQ(lLevels[i].muSequence, cFrame.muSequence);
        EXPECT_EQ(lLevels[i].muTime, cFrame.muTime);
        EXPECT_EQ(lLevels[i].mcExtras, "{\"MatchIQ\":" + std::to_string(cFrame.muSequence) + "}");
        expectLevels(lLevels[i].mlPoints,
                     model::levels(cFrame.mlSamples.data(), aSize[i], aSize[i], "hamming"));
        EXPECT_NEAR(static_cast<double>(lLevels[i].muDuration),
                    static_cast<double>(aSize[i] - 1) / 1.024e6 * 1e9, 1.0);
    }
}

TEST(SpectraOfIQ, AreRecordedInTheUnitTheirSamplesTell) {
    for (const auto& [units, expected] :
         std::vector<std::pair<std::string, std::string>>{{"sqrt-mw", "dBm"}, {"volts", "dB"}}) {
        Bench cBench("IQToSpectrum", "{\"WindowFn\":\"rectangular\",\"RBWHz\":4000.0,\"FFTOverlap\":0.0}");
        ASSERT_EQ(vnkSetStreamOutputFile(cBench.mcOutput, cBench.mcFolder.name("out").c_str()), 0);
        Tuning cTuning = kWide;
        cTuning.mcUnits = units;
        const auto lFrames = cut(noisyTones(512), {512});
        const auto lLevels = cBench.levels(lFrames, cTuning);
        ASSERT_EQ(lLevels.size(), 2u);
        ASSERT_EQ(vnkSetStreamOutputFile(cBench.mcOutput, nullptr), 0);
        std::string data;
        for (const Levels& c : lLevels)
            data += bytesOf(Spectrum{c.muTime, c.muDuration, c.muSequence, c.mlPoints});
        EXPECT_EQ(readFile(cBench.mcFolder.native("out.data")), data);
        const Record cSampling = Record()
                                     .number("FCentreHz", 100e6f)
                                     .number("BandwidthHz", 800e3f)
                                     .number("RefdBm", 0)
                                     .text("units", expected)
                                     .number("RBWHz", lLevels[0].mfRBWHz)
                                     .text("WindowFn", "rectangular");
        const Record cSummary = Record()
                                    .whole("StartTimestamp", lLevels[0].muTime)
                                    .text("Encoding", "_float32 LE")
                                    .text("TimeResolution", "ns")
                                    .whole("EndTimestamp", lLevels[1].muTime + lLevels[1].muDuration)
                                    .whole("PointsPerFrame", 200)
                                    .whole("Frames", 2);
        const Record cAll =
            Record().text("DataType", "Spectrum").nested("Sampling", cSampling).nested("Spectrum", cSummary);
        EXPECT_EQ(readFile(cBench.mcFolder.native("out.json")), cAll.pretty());
    }
}

// Demodulators.

TEST(AMDemodulation, OfBothSidebandsIsAsModelled) {
    const auto lSamples = modulated(9000, 48e3, 1000, 3000);
    const auto lFrames = cut(lSamples, {1500, 1, 2999, 1500, 3000});
    Bench cBench("AMDemodulator");
    const auto lAudio = cBench.audio(lFrames, tuned(48e3f, 20e3f));
    ASSERT_EQ(lAudio.size(), lFrames.size());
    for (size_t i = 0; i < lAudio.size(); ++i) {
        EXPECT_EQ(lAudio[i].muSequence, lFrames[i].muSequence);
        EXPECT_EQ(lAudio[i].muTime, lFrames[i].muTime);
        EXPECT_EQ(lAudio[i].mfRateHz, 48e3f);
        EXPECT_EQ(lAudio[i].mfBandwidthHz, 20e3f);
        EXPECT_EQ(lAudio[i].muChannels, 1u);
        EXPECT_FALSE(lAudio[i].mbExtras);
        EXPECT_EQ(lAudio[i].mlSamples.size(), lFrames[i].mlSamples.size());
    }
    const auto lGot = joined(lAudio);
    const auto lExpected = model::am(lFrames, 48e3);
    ASSERT_EQ(lGot.size(), lExpected.size());
    for (size_t i = 0; i < lGot.size(); ++i)
        ASSERT_NEAR(static_cast<double>(lGot[i]), lExpected[i], 1e-4) << i;
    EXPECT_EQ(numberOf(cBench.mcProcessor, "frames"), 5.0f);
    ASSERT_EQ(cBench.mcProcessor.set("{\"type\":\"DSB\"}"), 0);
    EXPECT_EQ(numberOf(cBench.mcProcessor, "frames"), 0.0f) << "counted from the type that was set";
}

TEST(AMDemodulation, SilenceIsZeroAndLeavesNothingBehind) {
    std::vector<std::complex<float>> lSamples(1000);
    const auto lTone = modulated(3000, 48e3, 1000, 0);
    lSamples.insert(lSamples.end(), lTone.begin(), lTone.end());
    const auto lFrames = cut(lSamples, {1000, 3000});
    Bench cBench("AMDemodulator");
    const auto lGot = joined(cBench.audio(lFrames, tuned(48e3f, 20e3f)));
    const auto lExpected = model::am(lFrames, 48e3);
    ASSERT_EQ(lGot.size(), 4000u);
    for (size_t i = 0; i < lGot.size(); ++i) {
        ASSERT_NEAR(static_cast<double>(lGot[i]), lExpected[i], 1e-4) << i;
        if (i < 1000) {
            ASSERT_EQ(lGot[i], 0.0f);
        }
    }
}

TEST(AMDemodulation, AGapStartsItAnew) {
    for (const char* pType : {"DSB", "USB", "LSB"}) {
        const std::string set = std::string("{\"type\":\"") + pType + "\"}";
        auto lFrames = cut(modulated(4000, 48e3, 1000, 3000), {1000, 1000, 1000, 1000});
        Bench cWhole("AMDemodulator", set), cGap("AMDemodulator", set), cBehind("AMDemodulator", set);
        const auto lWhole = cWhole.audio(lFrames, tuned(48e3f, 20e3f));
        lFrames[2].muSequence = 9;
        lFrames[3].muSequence = 10;
        const auto lGap = cGap.audio(lFrames, tuned(48e3f, 20e3f));
        const auto lBehind = cBehind.audio({lFrames[2], lFrames[3]}, tuned(48e3f, 20e3f));
        ASSERT_EQ(lGap.size(), 4u);
        ASSERT_EQ(lBehind.size(), 2u);
        EXPECT_EQ(lGap[1].mlSamples, lWhole[1].mlSamples) << pType;
        EXPECT_NE(lGap[2].mlSamples, lWhole[2].mlSamples) << pType;
        EXPECT_EQ(lGap[2].mlSamples, lBehind[0].mlSamples) << pType << " as if nothing had been before";
        EXPECT_EQ(lGap[3].mlSamples, lBehind[1].mlSamples) << pType;
        EXPECT_EQ(lGap[2].muSequence, 9u);
    }
}

TEST(AMDemodulation, TheLastNumbersAreFollowedByZero) {
    auto lFrames = cut(modulated(4000, 48e3, 1000, 3000), {1000, 1000, 1000, 1000});
    Bench cPlain("AMDemodulator"), cWrapped("AMDemodulator");
    const auto lPlain = joined(cPlain.audio(lFrames, tuned(48e3f, 20e3f)));
    lFrames[0].muSequence = 0xFFFFFFFD;
    lFrames[1].muSequence = 0xFFFFFFFE;
    lFrames[2].muSequence = 0;
    lFrames[3].muSequence = 1;
    EXPECT_EQ(joined(cWrapped.audio(lFrames, tuned(48e3f, 20e3f))), lPlain);
}

TEST(AMDemodulation, ABareCarrierIsHeldWhereItBegan) {
    const auto lFrames = cut(std::vector<std::complex<float>>(20000, {3e-4f, 4e-4f}), {20000});
    Bench cBench("AMDemodulator");
    const auto lGot = joined(cBench.audio(lFrames, tuned(48e3f, 20e3f)));
    const auto lExpected = model::am(lFrames, 48e3);
    ASSERT_EQ(lGot.size(), 20000u);
    for (size_t i = 0; i < lGot.size(); ++i)
        ASSERT_NEAR(static_cast<double>(lGot[i]), lExpected[i], 1e-3) << i;
    EXPECT_NEAR(static_cast<double>(lGot.back()), static_cast<double>(lGot[2000]), 1e-3)
        << "mean and peak fall together";
    EXPECT_GT(lGot.back(), 0.5f);
}

TEST(AMDemodulation, BelowTenSamplesASecondTheMeanIsTheSampleItself) {
    Bench cBench("AMDemodulator");
    const auto lAudio = cBench.audio(cut(noisyTones(500), {500}), tuned(8.0f, 4.0f));
    ASSERT_EQ(lAudio.size(), 1u);
    EXPECT_EQ(lAudio[0].mlSamples, std::vector<float>(500, 0.0f));
}

TEST(AMDemodulation, AnotherRateThatFollowsWithoutAGapChangesNothingInside) {
    const auto lSamples = modulated(6000, 48e3, 1000, 3000);
    const std::vector<std::complex<float>> lBehind(lSamples.begin() + 3000, lSamples.end());
    Bench cWhole("AMDemodulator"), cParts("AMDemodulator");
    const auto lWhole = cWhole.audio(cut(lSamples, {3000, 3000}), tuned(48e3f, 20e3f));
    ASSERT_EQ(lWhole.size(), 2u);
    EXPECT_EQ(
        cParts.audio(cut({lSamples.begin(), lSamples.begin() + 3000}, {3000}), tuned(48e3f, 20e3f)).size(),
        1u);
    const auto lParts = cParts.audio(cut(lBehind, {3000}, 1), tuned(24e3f, 20e3f));
    ASSERT_EQ(lParts.size(), 1u);
    EXPECT_EQ(lParts[0].mfRateHz, 24e3f);
    EXPECT_EQ(lParts[0].mlSamples, lWhole[1].mlSamples);
}

TEST(AMDemodulation, AnyTypeThatIsSetStartsItAnew) {
    const auto lSamples = modulated(6000, 48e3, 1000, 3000);
    const auto lFrames = cut(lSamples, {3000, 3000});
    for (const std::string type : {"DSB", "usb", "LSB"}) {
        const std::string set = "{\"type\":\"" + type + "\"}";
        Bench cSet("AMDemodulator"), cFresh("AMDemodulator", set);
        ASSERT_EQ(cSet.audio({lFrames[0]}, tuned(48e3f, 20e3f)).size(), 1u);
        ASSERT_EQ(cSet.mcProcessor.set(set), 0);
        const auto lSet = cSet.audio({lFrames[1]}, tuned(48e3f, 20e3f));
        EXPECT_EQ(joined(lSet), joined(cFresh.audio({lFrames[1]}, tuned(48e3f, 20e3f)))) << type;
        EXPECT_EQ(joined(lSet).size(), 3000u);
        EXPECT_EQ(numberOf(cSet.mcProcessor, "frames"), 1.0f);
    }
}

TEST(AMDemodulation, OfTheUpperSidebandIsClearOfTheLowerFromLowToHigh) {
    constexpr size_t kSamples = 48000;
    for (const double fUnwanted : {576.0, 1002.0, 2404.0, 6002.0, 10002.0, 14404.0}) {
        std::vector<std::complex<float>> lSamples;
        for (size_t n = 0; n < kSamples; ++n) {
            const double t = 2 * model::kPi * static_cast<double>(n) / 48e3;
            lSamples.emplace_back(std::polar(1e-3, 1500 * t) + std::polar(1e-3, -fUnwanted * t));
        }
        Bench cBench("AMDemodulator", "{\"type\":\"USB\"}");
        const auto lGot = joined(cBench.audio(cut(lSamples, {kSamples}), tuned(48e3f, 20e3f)));
        ASSERT_EQ(lGot.size(), kSamples);
        const auto level = [&lGot](double fHz) {
            std::complex<double> cSum;
            for (size_t n = kSamples / 2; n < kSamples; ++n)
                cSum += std::polar(static_cast<double>(lGot[n]),
                                   -2 * model::kPi * fHz * static_cast<double>(n) / 48e3);
            // Without what the filters on both sides take from it.
            double fGain = 1;
            for (const auto& [fCutoff, fAngle, iTimes] :
                 {std::tuple(0.4, model::kPi / 4, 3), std::tuple(0.25, model::kPi / 8, 1),
                  std::tuple(0.25, 3 * model::kPi / 8, 1)}) {
                const model::Biquad c(fCutoff, fAngle);
                const auto z = std::polar(1.0, -2 * model::kPi * fHz / 48e3);
                fGain *= std::pow(
                    std::abs((c.b0 + c.b1 * z + c.b2 * z * z) / (1.0 + c.a1 * z + c.a2 * z * z)), iTimes);
            }
            return 20 * std::log10(std::abs(cSum) / fGain);
        };
        EXPECT_GT(level(1500) - level(fUnwanted), 40.0) << fUnwanted;
    }
}

TEST(AMDemodulation, OfOneSidebandKeepsTheOtherOut) {
    // 1000 Hz above the carrier, 2300 Hz below it, of one strength.
    constexpr size_t kSamples = 48000;
    std::vector<std::complex<float>> lSamples;
    for (size_t n = 0; n < kSamples; ++n) {
        const double t = 2 * model::kPi * static_cast<double>(n) / 48e3;
        lSamples.emplace_back(std::polar(1e-3, 1000 * t) + std::polar(1e-3, -2300 * t));
    }
    const auto power = [](const std::vector<float>& lAudio, double fHz) {
        std::complex<double> cSum;
        for (size_t n = lAudio.size() / 2; n < lAudio.size(); ++n)
            cSum += std::polar(static_cast<double>(lAudio[n]),
                               -2 * model::kPi * fHz * static_cast<double>(n) / 48e3);
        return 10 * std::log10(std::norm(cSum));
    };
    Bench cUpper("AMDemodulator", "{\"type\":\"usb\"}"), cLower("AMDemodulator", "{\"type\":\"lsb\"}");
    const auto lUpper = joined(cUpper.audio(cut(lSamples, {kSamples}), tuned(48e3f, 20e3f)));
    const auto lLower = joined(cLower.audio(cut(lSamples, {kSamples}), tuned(48e3f, 20e3f)));
    ASSERT_EQ(lUpper.size(), kSamples);
    ASSERT_EQ(lLower.size(), kSamples);
    EXPECT_GT(power(lUpper, 1000) - power(lUpper, 2300), 40.0);
    EXPECT_GT(power(lLower, 2300) - power(lLower, 1000), 40.0);
    EXPECT_NEAR(static_cast<double>(*std::max_element(lUpper.begin() + 24000, lUpper.end())), 1.0, 0.05)
        << "brought to a peak of one";
}

namespace {

/// The response of the low-pass behind the discriminator, from the step that a carrier a quarter of the rate
/// off gives.
std::vector<double> measuredLowPass() {
    std::vector<std::complex<float>> lSamples;
    const std::complex<float> aTurns[] = {{1, 0}, {0, 1}, {-1, 0}, {0, -1}};
    for (size_t n = 0; n < 200; ++n)
        lSamples.push_back(aTurns[n % 4]);
    const auto lFrames = cut(lSamples, {200});
    Bench cBench("FMDemodulator");
    const auto lOut = joined(cBench.audio(lFrames));
    const auto x = model::discriminated(lFrames);
    std::vector<double> h(60);
    if (lOut.size() != 200)
        return h;
    for (size_t k = 0; k < h.size(); ++k) {
        double fRest = static_cast<double>(lOut[k + 1]);
        for (size_t j = 0; j < k; ++j)
            fRest -= h[j] * x[k + 1 - j];
        h[k] = fRest / x[1];
    }
    return h;
}

}  // namespace

TEST(FMDemodulation, HasALowPassOfThirtySevenTaps) {
    const auto h = measuredLowPass();
    EXPECT_NEAR(std::accumulate(h.begin(), h.end(), 0.0), 1.0, 1e-4);
    EXPECT_NEAR(h[0], 0.0319946 / 0.9384554, 0.004);
    EXPECT_NEAR(h[18], 0.2262464 / 0.9384554, 0.01);
    for (size_t k = 0; k < 37; ++k)
        EXPECT_NEAR(h[k], h[36 - k], 1e-4) << k;
    for (size_t k = 37; k < h.size(); ++k)
        EXPECT_NEAR(h[k], 0.0, 1e-4) << k;
}

TEST(FMDemodulation, IsTheThreePointDiscriminatorAtAnyLevel) {
    const auto h = measuredLowPass();
    std::vector<std::complex<float>> lSamples;
    double fPhase = 0.3;
    for (size_t n = 0; n < 3000; ++n) {
        fPhase += 0.4 + 0.8 * std::sin(0.05 * static_cast<double>(n));
        lSamples.emplace_back(std::complex<float>(std::polar(n < 1500 ? 1e-6 : 20.0, fPhase)));
    }
    const auto lFrames = cut(lSamples, {38, 1000, 500, 1462});
    Bench cBench("FMDemodulator");
    const auto lAudio = cBench.audio(lFrames, tuned(256e3f, 180e3f));
    ASSERT_EQ(lAudio.size(), 4u);
    for (size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(lAudio[i].muSequence, i);
        EXPECT_EQ(lAudio[i].muTime, lFrames[i].muTime);
        EXPECT_EQ(lAudio[i].mfRateHz, 256e3f);
        EXPECT_EQ(lAudio[i].mfBandwidthHz, 180e3f);
    }
    const auto lGot = joined(lAudio);
    const auto x = model::discriminated(lFrames);
    ASSERT_EQ(lGot.size(), x.size());
    for (size_t n = 0; n < x.size(); ++n) {
        double y = 0;
        for (size_t k = 0; k < 37 && k <= n; ++k)
            y += h[k] * x[n - k];
        ASSERT_NEAR(static_cast<double>(lGot[n]), y, 1e-4) << n;
    }
    EXPECT_EQ(numberOf(cBench.mcProcessor, "frames"), 4.0f);
}

TEST(FMDemodulation, GoesStraightOnOverAGap) {
    auto lFrames = cut(noisyTones(4000), {1000, 1000, 2000});
    Bench cWhole("FMDemodulator"), cGap("FMDemodulator");
    const auto lWhole = joined(cWhole.audio(lFrames));
    lFrames[1].muSequence = 77;
    lFrames[2].muSequence = 3;
    const auto lGap = cGap.audio(lFrames);
    ASSERT_EQ(lGap.size(), 3u);
    EXPECT_EQ(lGap[1].muSequence, 77u);
    EXPECT_EQ(joined(lGap), lWhole);
}

TEST(FMDemodulation, ASampleOfNoMagnitudeIsNotANumberForAWhile) {
    auto lSamples = noisyTones(2000);
    lSamples[1000] = 0;
    Bench cBench("FMDemodulator");
    const auto lGot = joined(cBench.audio(cut(lSamples, {700, 1300})));
    ASSERT_EQ(lGot.size(), 2000u);
    for (size_t n = 1000; n < 1000 + 3 + 36; ++n)
        EXPECT_TRUE(std::isnan(lGot[n])) << n;
    for (size_t n = 0; n < 2000; ++n)
        if (n < 960 || n > 1080) {
            ASSERT_TRUE(std::isfinite(lGot[n])) << n;
        }
}

TEST(FMDemodulation, AFrameNoLongerThanItsFilterEndsItsThreadButNotItsUse) {
    Bench cBench("FMDemodulator");
    takeLog();
    cBench.play(cut(noisyTones(37), {37}));
    std::string log;
    ASSERT_TRUE(vnktest::waitUntil([&] {
        log += takeLog();
        return log.find("raised an exception") != std::string::npos;
    }));
    EXPECT_THAT(log, HasSubstr("-9001"));
    EXPECT_EQ(cBench.mcProcessor.detach(), 0);
    EXPECT_EQ(cBench.mcProcessor.detach(), -76);
    ASSERT_EQ(cBench.mcProcessor.attach(cBench.mcStream.handle()), 0);
    EXPECT_EQ(joined(cBench.audio(cut(noisyTones(38), {38}))).size(), 38u);
}

// Other rates.

TEST(Resampling, GivesBlocksOfOneLengthAsModelled) {
    const auto lFrames = cut(modulated(60000, 48e3, 700, 0), {20001, 19999, 3, 9997, 10000});
    Bench cPlain("AMDemodulator");
    const auto lPlain = cPlain.audio(lFrames, tuned(48e3f, 20e3f));
    std::vector<std::vector<float>> lInput;
    for (const Audio& c : lPlain)
        lInput.push_back(c.mlSamples);
    for (const float fOut : {44100.0f, 32000.0f, 16000.0f, 11025.0f, 5000.0f}) {
        SCOPED_TRACE(fOut);
        const auto lExpected = model::resampled(lInput, 48e3f, fOut);
        const size_t uRest = lExpected.size() % 1024;
        ASSERT_TRUE(uRest > 8 && uRest < 1016) << "so that the end of the input does not decide: " << uRest;
        Bench cBench("AMDemodulator", "{\"OutputSampleRate\":" + std::to_string(fOut) + "}");
        const auto lAudio = cBench.audio(lFrames, tuned(48e3f, 20e3f));
        ASSERT_EQ(lAudio.size(), lExpected.size() / 1024);
        for (size_t i = 0; i < lAudio.size(); ++i) {
            EXPECT_EQ(lAudio[i].muSequence, i);
            const auto uStep = static_cast<uint64_t>(std::llround(1024e9 / static_cast<double>(fOut)));
            EXPECT_EQ(lAudio[i].muTime, lFrames[0].muTime + i * uStep);
            EXPECT_EQ(lAudio[i].mfRateHz, fOut);
            EXPECT_EQ(lAudio[i].mfBandwidthHz, 20e3f);
            EXPECT_EQ(lAudio[i].muChannels, 1u);
            ASSERT_EQ(lAudio[i].mlSamples.size(), 1024u);
            for (size_t n = 0; n < 1024; ++n)
                ASSERT_NEAR(static_cast<double>(lAudio[i].mlSamples[n]), lExpected[i * 1024 + n], 2e-4)
                    << i << ", " << n;
        }
        EXPECT_EQ(numberOf(cBench.mcProcessor, "frames"), static_cast<float>(lAudio.size()));
    }
}

TEST(Resampling, IsTheSameBehindFM) {
    const auto lFrames = cut(noisyTones(9000), {3000, 2500, 3500});
    Bench cPlain("FMDemodulator"), cBench("FMDemodulator", "{\"OutputSampleRate\":100000.0}");
    std::vector<std::vector<float>> lInput;
    for (const Audio& c : cPlain.audio(lFrames))
        lInput.push_back(c.mlSamples);
    const auto lExpected = model::resampled(lInput, 256e3f, 100e3f);
    const auto lGot = joined(cBench.audio(lFrames));
    ASSERT_EQ(lGot.size(), 3072u);
    ASSERT_GT(lExpected.size(), lGot.size());
    for (size_t n = 0; n < lGot.size(); ++n)
        ASSERT_NEAR(static_cast<double>(lGot[n]), lExpected[n], 2e-4) << n;
}

TEST(Resampling, OnlyLowers) {
    for (const char* pRate : {"48000.0", "96000.0"}) {
        Bench cBench("AMDemodulator", std::string("{\"OutputSampleRate\":") + pRate + "}");
        takeLog();
        cBench.play(cut(modulated(4000, 48e3, 700, 0), {4000}), tuned(48e3f, 20e3f));
        std::string log;
        ASSERT_TRUE(vnktest::waitUntil([&] {
            log += takeLog();
            return log.find("raised an exception") != std::string::npos;
        })) << pRate;
        EXPECT_THAT(log, HasSubstr("-9001"));
        HeldBaseband cRecord;
        EXPECT_EQ(cBench.mcOutput.read(cRecord), 3) << "not even one frame";
        EXPECT_EQ(cBench.mcProcessor.detach(), 0);
        ASSERT_EQ(cBench.mcProcessor.set("{\"OutputSampleRate\":24000.0}"), 0);
        ASSERT_EQ(cBench.mcProcessor.attach(cBench.mcStream.handle()), 0);
        EXPECT_FALSE(cBench.audio(cut(modulated(4000, 48e3, 700, 0), {4000}), tuned(48e3f, 20e3f)).empty());
    }
}

TEST(Resampling, AnotherOutputRateBeginsAnew) {
    const auto lSamples = modulated(16000, 48e3, 700, 0);
    Bench cBench("AMDemodulator", "{\"OutputSampleRate\":16000.0}");
    EXPECT_EQ(cBench.audio(cut(lSamples, {8000}), tuned(48e3f, 20e3f)).size(), 2u);
    ASSERT_EQ(cBench.mcProcessor.set("{\"OutputSampleRate\":8000.0}"), 0);
    const std::vector<std::complex<float>> lBehind(lSamples.begin() + 8000, lSamples.end());
    const auto lAudio = cBench.audio(cut(lBehind, {8000}, 1, 1'700'000'000'000'000'000), tuned(48e3f, 20e3f));
    ASSERT_EQ(lAudio.size(), 1u);
    EXPECT_EQ(lAudio[0].muSequence, 0u);
    EXPECT_EQ(lAudio[0].muTime, 1'700'000'000'000'000'000u);
    EXPECT_EQ(lAudio[0].mfRateHz, 8000.0f);
    EXPECT_EQ(cBench.mcProcessor.set("{\"OutputSampleRate\":3000.0}"), -34);
    EXPECT_EQ(numberOf(cBench.mcProcessor, "OutputSampleRate"), 8000.0f);
}

TEST(Resampling, GoesOnPastSamplesThatAreNotNumbers) {
    auto lSamples = noisyTones(9000);
    lSamples[2000] = 0;
    Bench cBench("FMDemodulator", "{\"OutputSampleRate\":100000.0}");
    const auto lAudio = cBench.audio(cut(lSamples, {3000, 2500, 3500}));
    ASSERT_EQ(lAudio.size(), 3u);
    EXPECT_TRUE(std::isfinite(lAudio[0].mlSamples[500]));
    EXPECT_TRUE(std::isnan(lAudio[0].mlSamples[790]));
    EXPECT_EQ(lAudio[2].muSequence, 2u);
}

TEST(Resampling, AnotherRateOfTheInputDropsWhatWaits) {
    Bench cBench("AMDemodulator", "{\"OutputSampleRate\":8000.0}");
    // 7.5 samples for each of 1024 would be wanted, and no block comes.
    cBench.play(cut(modulated(7600, 60e3, 700, 0), {7600}), tuned(60e3f, 20e3f));
    ASSERT_TRUE(vnktest::waitUntil([&] { return cBench.mcStream.isAttached() == 5; }));
    HeldBaseband cRecord;
    EXPECT_EQ(cBench.mcOutput.read(cRecord, 300), 3);
    const auto lFrames = cut(modulated(6200, 48e3, 700, 0), {6100, 100}, 1, 1'700'000'000'000'000'000);
    const auto lAudio = cBench.audio(lFrames, tuned(48e3f, 20e3f));
    ASSERT_EQ(lAudio.size(), 1u) << "six to one, of which the second half is not enough";
    EXPECT_EQ(lAudio[0].muTime, 1'700'000'000'000'000'000u);
    EXPECT_EQ(lAudio[0].mlSamples.size(), 1024u);
}

TEST(Resampling, IsRecordedWithItsRateAndUsableBandwidth) {
    Bench cBench("FMDemodulator", "{\"OutputSampleRate\":32000.0}");
    ASSERT_EQ(vnkSetStreamOutputFile(cBench.mcOutput, cBench.mcFolder.name("out").c_str()), 0);
    const auto lFrames = cut(noisyTones(20000), {10000, 10000});
    const auto lAudio = cBench.audio(lFrames, tuned(256e3f, 180e3f, 98.1e6f));
    ASSERT_EQ(lAudio.size(), 2u);
    ASSERT_EQ(vnkSetStreamOutputFile(cBench.mcOutput, nullptr), 0);
    std::string data;
    for (const Audio& c : lAudio)
        data += bytesOf(Baseband{{c.mlSamples}});
    EXPECT_EQ(readFile(cBench.mcFolder.native("out.data")), data);
    const Record cSampling = Record()
                                 .number("FCentreHz", 98.1e6f)
                                 .number("BandwidthHz", 180e3f)
                                 .number("RefdBm", 0)
                                 .text("units", "sqrt-mw")
                                 .number("SampleRateHz", 32e3f)
                                 .number("UsableBWHz", 12800)
                                 .whole("Channels", 1);
    const Record cSummary = Record()
                                .whole("StartTimestamp", lAudio[0].muTime)
                                .text("Encoding", "_float32")
                                .text("TimeResolution", "ns")
                                .whole("EndTimestamp", endOf(lAudio[1].muTime, 1024, 32e3f))
                                .whole("Samples", 2048);
    const Record cAll =
        Record().text("DataType", "Baseband").nested("Sampling", cSampling).nested("Baseband", cSummary);
    EXPECT_EQ(readFile(cBench.mcFolder.native("out.json")), cAll.pretty());
}

// Traces.

namespace {

std::vector<Spectrum> spectra(size_t uFrames, size_t uPoints, uint32_t uSeed = 1) {
    auto lFrames = makeSpectra(uFrames, uPoints);
    uint32_t uState = uSeed;
    for (Spectrum& cFrame : lFrames)
        for (float& fPoint : cFrame.mlPoints) {
            uState = uState * 1664525u + 1013904223u;
            fPoint = -100.0f + 80.0f * static_cast<float>(uState >> 8) / (1u << 24);
        }
    return lFrames;
}

std::string extras(bool bAverage, bool bMax, bool bMin, uint32_t uFirst = 0) {
    const auto text = [](bool b) { return std::string(b ? "true" : "false"); };
    return Record()
        .literal("ClearAverageTrace", text(bAverage))
        .literal("ClearMaxHoldTrace", text(bMax))
        .literal("ClearMinHoldTrace", text(bMin))
        .whole("minHoldIndex", uFirst)
        .whole("maxHoldIndex", uFirst + 1)
        .whole("averageIndex", uFirst + 2)
        .compact();
}

void expectTraces(const Levels& cLevels, const model::Traces& cExpected) {
    ASSERT_EQ(cLevels.mlTraces.size(), 3u);
    EXPECT_EQ(cLevels.mlTraces[0], cExpected.mlMin);
    EXPECT_EQ(cLevels.mlTraces[1], cExpected.mlMax);
    for (size_t i = 0; i < cExpected.mlAverage.size(); ++i)
        ASSERT_NEAR(static_cast<double>(cLevels.mlTraces[2][i]), cExpected.mlAverage[i], 1e-3) << i;
}

}  // namespace

TEST(TracesOfSpectra, AreTheMinimumTheMaximumAndTheJumpingAverage) {
    for (const size_t uLength : {1u, 2u, 3u, 5u, 50u}) {
        SCOPED_TRACE(uLength);
        Bench cBench("SpectrumCharacterization", "{\"Average\":" + std::to_string(uLength) + "}",
                     Kind::spectrum);
        const auto lFrames = spectra(12, 40);
        const auto lLevels = cBench.levels(lFrames);
        ASSERT_EQ(lLevels.size(), 12u);
        model::Characterization cModel;
        cModel.muLength = uLength;
        for (size_t i = 0; i < 12; ++i) {
            EXPECT_EQ(lLevels[i].mlPoints, lFrames[i].mlPoints);
            EXPECT_EQ(lLevels[i].muSequence, lFrames[i].muSequence);
            EXPECT_EQ(lLevels[i].muTime, lFrames[i].muTime);
            EXPECT_EQ(lLevels[i].muDuration, lFrames[i].muDuration);
            EXPECT_EQ(lLevels[i].mfRBWHz, 1000.0f);
            EXPECT_EQ(lLevels[i].mcExtras, extras(false, false, false));
            expectTraces(lLevels[i], cModel.add(lFrames[i].mlPoints));
        }
    }
}

TEST(TracesOfSpectra, StartAnewWithAnotherNumberOfPoints) {
    auto lFrames = spectra(4, 16);
    const auto lMore = spectra(4, 24, 9);
    lFrames.insert(lFrames.end(), lMore.begin(), lMore.end());
    Bench cBench("SpectrumCharacterization", "{\"Average\":4}", Kind::spectrum);
    const auto lLevels = cBench.levels(lFrames);
    ASSERT_EQ(lLevels.size(), 8u);
    model::Characterization cModel;
    cModel.muLength = 4;
    for (size_t i = 0; i < 8; ++i)
        expectTraces(lLevels[i], cModel.add(lFrames[i].mlPoints));
    EXPECT_EQ(lLevels[4].mlTraces[1], lFrames[4].mlPoints);
    EXPECT_EQ(lLevels[4].mcExtras, extras(false, false, false)) << "told by no flag";
}

TEST(TracesOfSpectra, AreClearedForOneFrameEach) {
    struct Case {
        const char* mpKey;
        bool mbAverage, mbMax, mbMin;
        const char* mpLog;
    };
    const Case aCases[] = {
        {"ClearAverageTrace", true, false, false, "Clearing Average Hold :::::::::::::::::::::::::::"},
        {"ClearMaxHoldTrace", false, true, false, "Clearing Max Hold :::::::::::::::::::::::::::"},
        {"ClearMinHoldTrace", false, false, true, "Clearing Min Hold :::::::::::::::::::::::::::"}};
    for (const Case& c : aCases) {
        SCOPED_TRACE(c.mpKey);
        Bench cBench("SpectrumCharacterization", "{\"Average\":3}", Kind::spectrum);
        const auto lFirst = spectra(5, 30), lSecond = spectra(4, 30, 77);
        model::Characterization cModel;
        cModel.muLength = 3;
        for (const Spectrum& cFrame : lFirst)
            cModel.add(cFrame.mlPoints);
        ASSERT_EQ(cBench.levels(lFirst).size(), 5u);
        ASSERT_EQ(cBench.mcProcessor.set(std::string("{\"") + c.mpKey + "\":true}"), 0);
        EXPECT_EQ(flagOf(cBench.mcProcessor, c.mpKey), 1);
        takeLog();
        const auto lLevels = cBench.levels(lSecond);
        EXPECT_EQ(countOf(takeLog(), c.mpLog), 1u);
        ASSERT_EQ(lLevels.size(), 4u);
        for (size_t i = 0; i < 4; ++i) {
            model::Traces cExpected = cModel.add(lSecond[i].mlPoints);
            if (i == 0) {
                if (c.mbAverage)
                    cModel.clearAverage(lSecond[0].mlPoints);
                if (c.mbMax)
                    cModel.clearMax(lSecond[0].mlPoints);
                if (c.mbMin)
                    cModel.clearMin(lSecond[0].mlPoints);
                const std::vector<float>& l = lSecond[0].mlPoints;
                cExpected = {c.mbMin ? l : cExpected.mlMin, c.mbMax ? l : cExpected.mlMax,
                             c.mbAverage ? std::vector<double>(l.begin(), l.end()) : cExpected.mlAverage};
            }
            expectTraces(lLevels[i], cExpected);
            EXPECT_EQ(lLevels[i].mcExtras,
                      i == 0 ? extras(c.mbAverage, c.mbMax, c.mbMin) : extras(false, false, false));
        }
        EXPECT_EQ(flagOf(cBench.mcProcessor, c.mpKey), 0);
    }
}

TEST(TracesOfSpectra, AnotherLengthOfTheAverageForgetsWhatWasAveraged) {
    for (const size_t uLength : {0u, 1u, 2u, 6u}) {
        SCOPED_TRACE(uLength);
        Bench cBench("SpectrumCharacterization", "{\"Average\":4}", Kind::spectrum);
        const auto lFirst = spectra(6, 30), lSecond = spectra(8, 30, 5);
        model::Characterization cModel;
        cModel.muLength = 4;
        for (const Spectrum& cFrame : lFirst)
            cModel.add(cFrame.mlPoints);
        ASSERT_EQ(cBench.levels(lFirst).size(), 6u);
        ASSERT_EQ(cBench.mcProcessor.set("{\"Average\":" + std::to_string(uLength) + "}"), 0);
        const auto lLevels = cBench.levels(lSecond);
        ASSERT_EQ(lLevels.size(), 8u);
        cModel.muLength = uLength;
        for (size_t i = 0; i < 8; ++i)
            expectTraces(lLevels[i], cModel.add(lSecond[i].mlPoints));
    }
}

TEST(TracesOfSpectra, StandBehindThoseTheSpectrumHasAlready) {
    const Folder cFolder;
    const auto lFrames = spectra(6, 20);
    writePair(cFolder, "x", lFrames);
    Stream cStream(Kind::spectrum);
    Processor cFirst("SpectrumCharacterization"), cSecond("SpectrumCharacterization");
    Output cBetween(cFirst), cEnd(cSecond);
    for (const Processor* pProcessor : {&cFirst, &cSecond})
        ASSERT_EQ(pProcessor->set(kQueueAll), 0);
    ASSERT_EQ(cSecond.set("{\"ClearMaxHoldTrace\":true}"), 0);
    ASSERT_EQ(cSecond.attach(cBetween), 0);
    ASSERT_EQ(cFirst.attach(cStream.handle()), 0);
    ASSERT_EQ(cStream.play(cFolder.name("x")), 0);
    const auto lEnd = readAll<Levels, HeldSpectrum>(cEnd), lBetween = readAll<Levels, HeldSpectrum>(cBetween);
    ASSERT_EQ(lEnd.size(), 6u);
    ASSERT_EQ(lBetween.size(), 6u);
    for (size_t i = 0; i < 6; ++i) {
        EXPECT_EQ(lBetween[i].mlTraces.size(), 3u) << "what stands in front is left alone";
        EXPECT_EQ(lBetween[i].mcExtras, extras(false, false, false));
        ASSERT_EQ(lEnd[i].mlTraces.size(), 6u);
        for (size_t k = 0; k < 3; ++k) {
            EXPECT_EQ(lEnd[i].mlTraces[k], lBetween[i].mlTraces[k]);
            EXPECT_EQ(lEnd[i].mlTraces[k + 3], lBetween[i].mlTraces[k]) << "the same work once more";
        }
        EXPECT_EQ(lEnd[i].mcExtras, extras(false, i == 0, false, 3));
    }
}

TEST(TracesOfSpectra, KeepWhatElseTheSpectrumTells) {
    const Folder cFolder;
    writePair(cFolder, "x", cut(noisyTones(3000), {1000, 1000, 1000}, 4), kWide);
    Stream cStream;
    Processor cMaker("IQToSpectrum"), cTraces("SpectrumCharacterization");
    Output cSpectra(cMaker), cTraced(cTraces);
    ASSERT_EQ(cMaker.set("{\"FollowIQ\":true}"), 0);
    ASSERT_EQ(cTraces.attach(cSpectra), 0);
    ASSERT_EQ(cMaker.attach(cStream.handle()), 0);
    ASSERT_EQ(cStream.play(cFolder.name("x")), 0);
    const auto lTraced = readAll<Levels, HeldSpectrum>(cTraced),
               lSpectra = readAll<Levels, HeldSpectrum>(cSpectra);
    ASSERT_EQ(lTraced.size(), 3u);
    ASSERT_EQ(lSpectra.size(), 3u);
    for (size_t i = 0; i < 3; ++i) {
        const std::string match = "\"MatchIQ\":" + std::to_string(4 + i);
        std::string expected = extras(false, false, false);
        expected.insert(expected.find("\"averageIndex\""), match + ",");
        EXPECT_EQ(lTraced[i].mcExtras, expected);
        EXPECT_EQ(lSpectra[i].mcExtras, "{" + match + "}") << "the spectrum in front is not written to";
        EXPECT_EQ(lTraced[i].mfMinHz, lSpectra[i].mfMinHz);
        EXPECT_EQ(lTraced[i].mfMaxHz, lSpectra[i].mfMaxHz);
        EXPECT_EQ(lTraced[i].mfRBWHz, lSpectra[i].mfRBWHz);
        EXPECT_EQ(lTraced[i].muTime, lSpectra[i].muTime);
        EXPECT_EQ(lTraced[i].muDuration, lSpectra[i].muDuration);
    }
}

TEST(TracesOfSpectra, AreNotRecorded) {
    Bench cBench("SpectrumCharacterization", "{}", Kind::spectrum);
    ASSERT_EQ(vnkSetStreamOutputFile(cBench.mcOutput, cBench.mcFolder.name("out").c_str()), 0);
    const auto lFrames = spectra(3, 25);
    ASSERT_EQ(cBench.levels(lFrames).size(), 3u);
    ASSERT_EQ(vnkSetStreamOutputFile(cBench.mcOutput, nullptr), 0);
    EXPECT_EQ(readFile(cBench.mcFolder.native("out.data")), bytesOf(lFrames));
}

TEST(TracesOfSpectra, AFrameThatStartsATraceAnewIsNotLost) {
    for (const char* pSet : {"{\"ClearMaxHoldTrace\":true}", "{\"ClearMinHoldTrace\":true}",
                             "{\"ClearAverageTrace\":true}", "{\"Average\":7}"}) {
        SCOPED_TRACE(pSet);
        const Folder cFolder;
        writePair(cFolder, "x", spectra(40, 10));
        Stream cStream(Kind::spectrum);
        Processor cProcessor("SpectrumCharacterization");
        // The first is told of each frame before the other one holds it up.
        Output cTold(cProcessor), cUnread(cProcessor);
        ASSERT_EQ(vnkAllowDiscarding(cTold, 1), 0);
        cTold.set(kQueueAll);
        ASSERT_EQ(cProcessor.set(kQueueAll), 0);
        ASSERT_EQ(cProcessor.set(pSet), 0);
        ASSERT_EQ(cProcessor.attach(cStream.handle()), 0);
        ASSERT_EQ(cStream.play(cFolder.name("x")), 0);
        HeldSpectrum cRecord;
        for (uint32_t i = 0; i <= 10; ++i) {
            ASSERT_TRUE(cTold.next(cRecord));
            ASSERT_EQ(cRecord->sequence, i);
        }
        EXPECT_NE(cTold.read(cRecord, 300), 0) << "held up by the queue that is full";
        ASSERT_TRUE(cUnread.next(cRecord));
        EXPECT_EQ(cRecord->sequence, 0u);
        for (uint32_t i = 11; i < 40; ++i)
            ASSERT_TRUE(cTold.next(cRecord)) << "goes on";
    }
}

// Attaching and leaving.

TEST(ProcessorInput, IsLeftWithTheStatusOfWhatWasThere) {
    const Folder cFolder;
    writePair(cFolder, "x", cut(noisyTones(1000), {1000}));
    auto cStream = std::make_unique<Stream>();
    Processor cProcessor("FMDemodulator");
    Output cAudio(cProcessor);
    EXPECT_EQ(cProcessor.detach(), -76);
    ASSERT_EQ(cProcessor.attach(cStream->handle()), 0);
    EXPECT_EQ(cProcessor.attach(cStream->handle()), 0) << "the same once more";
    ASSERT_EQ(cStream->play(cFolder.name("x")), 0);
    EXPECT_EQ(cAudio.readToEnd<HeldBaseband>(), 1u);
    ASSERT_TRUE(vnktest::waitUntil([&] { return cStream->isAttached() == 5; }));
    EXPECT_EQ(cProcessor.detach(), 0) << "a stream that has ended is still a stream";
    EXPECT_EQ(cProcessor.detach(), -76);
    ASSERT_EQ(cProcessor.attach(cStream->handle()), 0);
    EXPECT_EQ(vnkDetachStream(cStream->handle()), -44) << "nothing feeds the stream";
    EXPECT_EQ(cStream->close(), 0);
    EXPECT_EQ(cProcessor.detach(), -76) << "closed streams let go";
    EXPECT_EQ(vnkIsAttached(cAudio), 0);
    EXPECT_EQ(vnkDetachStream(cAudio), 0);
    EXPECT_EQ(vnkIsAttached(cAudio), 5);
    EXPECT_EQ(vnkDetachStream(cAudio), -44);
    uint32_t uProcessor = cProcessor;
    EXPECT_EQ(cProcessor.close(), 0);
    EXPECT_EQ(vnkDetachProcessor(uProcessor), -73);
    EXPECT_EQ(vnkClose(&uProcessor), -21);
}

TEST(ProcessorInput, IsTheLastStreamAlone) {
    const Folder cFolder;
    writePair(cFolder, "one", cut(noisyTones(1000), {1000}, 111));
    writePair(cFolder, "two", cut(noisyTones(1000), {1000}, 222));
    Stream cOne, cTwo;
    Processor cProcessor("FMDemodulator");
    Output cAudio(cProcessor);
    ASSERT_EQ(cProcessor.attach(cOne.handle()), 0);
    ASSERT_EQ(cProcessor.attach(cTwo.handle()), 0);
    ASSERT_EQ(cOne.play(cFolder.name("one")), 0);
    ASSERT_EQ(readIQ(cOne).size(), 1u);
    ASSERT_EQ(cTwo.play(cFolder.name("two")), 0);
    const auto lAudio = readAll<Audio, HeldBaseband>(cAudio);
    ASSERT_EQ(lAudio.size(), 1u);
    EXPECT_EQ(lAudio[0].muSequence, 222u);
}

TEST(ProcessorOutput, OfALaterStreamHasTheFramesFromThenOn) {
    Bench cBench("FMDemodulator");
    const auto lFrames = cut(noisyTones(4000), {1000, 1000, 1000, 1000});
    EXPECT_EQ(cBench.audio({lFrames[0], lFrames[1]}).size(), 2u);
    Output cLater(cBench.mcProcessor);
    HeldBaseband cRecord;
    EXPECT_EQ(cLater.read(cRecord), 3);
    const auto lFirst = cBench.audio({lFrames[2], lFrames[3]});
    const auto lLater = readAll<Audio, HeldBaseband>(cLater);
    ASSERT_EQ(lLater.size(), 2u);
    EXPECT_EQ(lLater[0].muSequence, 2u);
    EXPECT_EQ(joined(lLater), joined(lFirst));
}

TEST(ProcessorOutput, ThatNobodyReadsKeepsItsNewestFramesAndTheEnd) {
    Processor cProcessor("FMDemodulator");
    Output cUnread(cProcessor), cSeconds(cProcessor), cFlushed(cProcessor), cRead(cProcessor);
    ASSERT_EQ(cProcessor.set(kQueueAll), 0);
    ASSERT_EQ(cSeconds.set("{\"bufferSec\":0.001}"), 0);
    ASSERT_EQ(cRead.set(kQueueAll), 0);
    const Folder cFolder;
    writePair(cFolder, "x", cut(noisyTones(5000), std::vector<size_t>(50, 100)));
    Stream cStream;
    ASSERT_EQ(cProcessor.attach(cStream.handle()), 0);
    takeLog();
    ASSERT_EQ(cStream.play(cFolder.name("x")), 0);
    // Streams are served in the order in which they were made: the last one's end is the end of all.
    EXPECT_EQ((readAll<Audio, HeldBaseband>(cRead).size()), 50u);
    EXPECT_THAT(takeLog(), HasSubstr("FRAME DISCARD: 1 frames dropped (initial,final:(11,10), limit:10, "
                                     "0.00sec, disc.prop:0.0)"));
    const auto lUnread = readAll<Audio, HeldBaseband>(cUnread);
    ASSERT_EQ(lUnread.size(), 9u) << "the end takes a place";
    EXPECT_EQ(lUnread.front().muSequence, 41u);
    EXPECT_EQ((readAll<Audio, HeldBaseband>(cSeconds).size()), 50u) << "audio has no length in seconds";
    EXPECT_EQ(vnkFlushStream(cFlushed), 0);
    HeldBaseband cRecord;
    EXPECT_EQ(cFlushed.read(cRecord), 2);
    EXPECT_EQ(vnkDetachStream(cUnread), 0);
    EXPECT_EQ(cUnread.read(cRecord), 2) << "ended, and detached behind that";
}

// Recordings that tell nonsense.

namespace {

/// Plays `lBad`, each frame of which may end the processor's thread, and then `lGood` until that has come
/// through.
template <typename Result, typename Record>
std::vector<Result> goesOn(Bench& cBench, const std::vector<IQ>& lBad, const Tuning& cBad,
                           const std::vector<IQ>& lGood, const Tuning& cGood) {
    takeLog();
    cBench.play(lBad, cBad);
    EXPECT_TRUE(vnktest::waitUntil([&] { return cBench.mcStream.isAttached() == 5; }));
    std::vector<Result> lResults;
    for (size_t i = 0; i <= lBad.size(); ++i) {
        EXPECT_EQ(cBench.mcProcessor.detach(), 0);
        EXPECT_EQ(cBench.mcProcessor.attach(cBench.mcStream.handle()), 0);
        cBench.play(lGood, cGood);
        lResults.clear();
        Record cRecord;
        bool bThrown = false;
        EXPECT_TRUE(vnktest::waitUntil([&] {
            int32_t iStatus = 0;
            while ((iStatus = cBench.mcOutput.read(cRecord, 200)) == 0)
                lResults.push_back(copyOf(cRecord));
            bThrown = takeLog().find("raised an exception") != std::string::npos;
            return iStatus == 2 || bThrown;
        }));
        if (!bThrown)
            break;
    }
    return lResults;
}

}  // namespace

TEST(NonsenseRates, EndInSpectraThatGoOnBehindThem) {
    const auto lFrames = cut(noisyTones(2000), {1000, 1000});
    for (const char* pFollow : {"true", "false"})
        for (const float fRate : {0.0f, -1e6f, std::numeric_limits<float>::denorm_min(), 1e-30f}) {
            SCOPED_TRACE(testing::Message() << pFollow << ' ' << fRate);
            Bench cBench("IQToSpectrum", std::string("{\"RBWHz\":8000.0,\"FollowIQ\":") + pFollow + "}");
            const auto lLevels =
                goesOn<Levels, HeldSpectrum>(cBench, lFrames, tuned(fRate, 800e3f), lFrames, kWide);
            ASSERT_GE(lLevels.size(), 2u);
            EXPECT_EQ(lLevels.back().mcExtras, "{\"MatchIQ\":1}");
        }
}

TEST(NonsenseRates, EndInAudioThatGoesOnBehindThem) {
    const auto lFrames = cut(noisyTones(9000), {4500, 4500});
    for (const char* pType : {"AMDemodulator", "FMDemodulator"})
        for (const char* pSet : {"{}", "{\"OutputSampleRate\":16000.0}"})
            for (const float fRate : {0.0f, -48e3f, 1e30f, 1e-30f}) {
                SCOPED_TRACE(testing::Message() << pType << pSet << ' ' << fRate);
                Bench cBench(pType, pSet);
                // A number of its own, so that filters are made anew.
                auto lGood = lFrames;
                lGood[0].muSequence = 100;
                lGood[1].muSequence = 101;
                const auto lAudio = goesOn<Audio, HeldBaseband>(cBench, lFrames, tuned(fRate, 800e3f), lGood,
                                                                tuned(48e3f, 20e3f));
                ASSERT_FALSE(lAudio.empty());
                EXPECT_EQ(lAudio.back().mfRateHz, pSet[1] == '}' ? 48e3f : 16e3f);
                EXPECT_TRUE(std::isfinite(lAudio.back().mlSamples.back()));
            }
}

TEST(TracesOfSpectra, AnAverageOfNonsenseLengthLeavesTheOthers) {
    for (const char* pLength : {"-5.0", "1000000000000000000000000000000.0", "0.4", "4294967296", "0.0"}) {
        SCOPED_TRACE(pLength);
        Bench cBench("SpectrumCharacterization", std::string("{\"Average\":") + pLength + "}",
                     Kind::spectrum);
        const auto lFrames = spectra(6, 20);
        const auto lLevels = cBench.levels(lFrames);
        ASSERT_EQ(lLevels.size(), 6u);
        model::Characterization cModel;
        for (size_t i = 0; i < 6; ++i) {
            const model::Traces& cExpected = cModel.add(lFrames[i].mlPoints);
            ASSERT_EQ(lLevels[i].mlTraces.size(), 3u);
            EXPECT_EQ(lLevels[i].mlTraces[0], cExpected.mlMin);
            EXPECT_EQ(lLevels[i].mlTraces[1], cExpected.mlMax);
        }
    }
}

TEST(TracesOfSpectra, OfSpectraWithoutPointsHaveNoneAndOthersFollow) {
    const Folder cFolder;
    const auto lFrames = cut(noisyTones(1024), {512, 512});
    writePair(cFolder, "none", lFrames, tuned(1.024e6f, 0.0f));
    writePair(cFolder, "some", cut(noisyTones(1024), {512, 512}, 2), kWide);
    Stream cStream;
    Processor cMaker("IQToSpectrum"), cTraces("SpectrumCharacterization");
    Output cSpectra(cMaker), cTraced(cTraces);
    ASSERT_EQ(cMaker.set("{\"FollowIQ\":true}"), 0);
    ASSERT_EQ(cTraces.set("{\"ClearMinHoldTrace\":true}"), 0);
    ASSERT_EQ(cTraces.attach(cSpectra), 0);
    ASSERT_EQ(cMaker.attach(cStream.handle()), 0);
    ASSERT_EQ(cStream.play(cFolder.name("none")), 0);
    auto lTraced = readAll<Levels, HeldSpectrum>(cTraced);
    ASSERT_EQ(lTraced.size(), 2u);
    for (const Levels& c : lTraced) {
        EXPECT_TRUE(c.mlPoints.empty());
        EXPECT_EQ(c.mlTraces.size(), 3u);
        EXPECT_EQ(c.mfMinHz, 100e6);
        EXPECT_EQ(c.mfMaxHz, 100e6);
    }
    ASSERT_TRUE(vnktest::waitUntil([&] { return cStream.isAttached() == 5; }));
    ASSERT_EQ(cStream.play(cFolder.name("some")), 0);
    lTraced = readAll<Levels, HeldSpectrum>(cTraced);
    ASSERT_EQ(lTraced.size(), 2u);
    EXPECT_EQ(lTraced[0].mlPoints.size(), 400u);
    EXPECT_EQ(lTraced[0].mlTraces[0], lTraced[0].mlPoints);
    EXPECT_EQ(lTraced[1].mlTraces[2], lTraced[1].mlPoints);
}

TEST(SpectraOfIQ, FollowTheFramesFromTheMomentThatIsSet) {
    const auto lSamples = noisyTones(2000);
    const auto lFrames = cut(lSamples, {300, 300, 600, 600});
    Bench cBench("IQToSpectrum", "{\"WindowFn\":\"hann\",\"RBWHz\":8000.0,\"FFTOverlap\":0.0}");
    EXPECT_EQ(cBench.levels(std::vector<IQ>{lFrames[0]}, kWide).size(), 1u);
    ASSERT_EQ(cBench.mcProcessor.set("{\"FollowIQ\":true}"), 0);
    auto lLevels = cBench.levels(std::vector<IQ>{lFrames[1]}, kWide);
    ASSERT_EQ(lLevels.size(), 1u);
    EXPECT_EQ(lLevels[0].muSequence, 1u);
    expectLevels(lLevels[0].mlPoints, model::levels(&lSamples[300], 256, 200, "hann"));
    ASSERT_EQ(cBench.mcProcessor.set("{\"FollowIQ\":false}"), 0);
    lLevels = cBench.levels(std::vector<IQ>{lFrames[2], lFrames[3]}, kWide);
    ASSERT_EQ(lLevels.size(), 4u);
    EXPECT_EQ(lLevels[0].muSequence, 0u);
    EXPECT_EQ(lLevels[3].mcExtras, "{\"MatchIQ\":3}");
    expectLevels(lLevels[3].mlPoints, model::levels(&lSamples[600 + 3 * 256], 256, 200, "hann"));
}

TEST(ProcessorInput, IsSharedByAllProcessorsOfAStreamAndItsReader) {
    const Folder cFolder;
    const auto lFrames = cut(noisyTones(8000), std::vector<size_t>(8, 1000));
    writePair(cFolder, "x", lFrames);
    Stream cStream;
    Processor cAM("AMDemodulator"), cFM("FMDemodulator"), cMaker("IQToSpectrum");
    Output cAMAudio(cAM), cFMAudio(cFM), cSpectra(cMaker);
    ASSERT_EQ(cMaker.set("{\"FollowIQ\":true}"), 0);
    for (const Processor* pProcessor : {&cAM, &cFM, &cMaker})
        ASSERT_EQ(pProcessor->attach(cStream.handle()), 0);
    ASSERT_EQ(cStream.play(cFolder.name("x")), 0);
    EXPECT_EQ((readAll<Audio, HeldBaseband>(cAMAudio).size()), 8u);
    EXPECT_EQ((readAll<Audio, HeldBaseband>(cFMAudio).size()), 8u);
    EXPECT_EQ((readAll<Levels, HeldSpectrum>(cSpectra).size()), 8u);
    const auto lRead = readIQ(cStream);
    ASSERT_EQ(lRead.size(), 8u);
    for (size_t i = 0; i < 8; ++i)
        EXPECT_EQ(lRead[i].mlSamples, lFrames[i].mlSamples) << "filters work on copies";
}

TEST(SpectraOfIQ, ABandwidthAboveTheRateRepeatsTheSpectrumAtItsEnds) {
    const auto lSamples = noisyTones(256);
    Bench cBench("IQToSpectrum", "{\"WindowFn\":\"hann\",\"RBWHz\":8000.0,\"FFTOverlap\":0.0}");
    const auto lLevels = cBench.levels(cut(lSamples, {256}), tuned(1.024e6f, 1.6e6f));
    ASSERT_EQ(lLevels.size(), 1u);
    EXPECT_EQ(lLevels[0].mlPoints.size(), 400u);
    EXPECT_EQ(lLevels[0].mfMinHz, 99.2e6);
    EXPECT_EQ(lLevels[0].mfMaxHz, 100.8e6);
    expectLevels(lLevels[0].mlPoints, model::levels(lSamples.data(), 256, 400, "hann"));
}
