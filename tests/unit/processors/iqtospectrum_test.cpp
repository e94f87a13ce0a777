#include "processors/iqtospectrum.h"

#include <gmock/gmock.h>
#include <sys/resource.h>

#include <bit>
#include <fstream>
#include <limits>
#include <random>
#include <sstream>

#include "flows/iqframesink.h"
#include "live/measure.h"
#include "support/errorlog.h"
#include "support/loopback.h"
#include "unit/flows/flowsupport.h"
#include "unit/processors/spectrumsupport.h"
#include "unit/zelvar/spectrumreference.h"

namespace {

using namespace vnktest;
using Spectra = std::vector<ReferencePtr<SpectrumFrame>>;
using Bench = DirectBench<IQToSpectrum>;

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfinity = std::numeric_limits<float>::infinity();

class IQToSpectrumTest : public FlowTest {
 protected:
    void pass(const Samples& lSamples, uint32_t uSequence, const Tuning& cTuning = {}, uint64_t uTime = 0) {
        for (auto& cFrame : mcBench.process(framed(lSamples, uSequence, cTuning, uTime)))
            mlSpectra.push_back(cFrame);
    }
    std::vector<uint32_t> sequences() const {
        std::vector<uint32_t> lSequences;
        for (const auto& cFrame : mlSpectra)
            lSequences.push_back(cFrame->sequence());
        return lSequences;
    }
    utils::VariantRecord parameters() { return mcBench.mcProcessor->getParameters(); }
    float number(const char* pKey) { return parameters().getNumber(pKey).value_or(-1.0f); }

    Bench mcBench;
    Spectra mlSpectra;
};

using testing::ElementsAre;
using testing::IsEmpty;

Samples constant(size_t uCount, std::complex<float> cValue = 1.0f) {
    return Samples(uCount, cValue);
}

Samples tone(size_t uCount, double cycles, double amplitude) {
    Samples lSamples(uCount);
    for (size_t i = 0; i < uCount; ++i)
        lSamples[i] = std::complex<float>(
            std::polar(amplitude, 2 * std::numbers::pi * std::fmod(cycles * static_cast<double>(i), 1.0)));
    return lSamples;
}

Samples noise(size_t uCount, uint32_t uSeed, float fDeviation) {
    std::mt19937 cRandom(uSeed);
    std::normal_distribution<float> cPart(0.0f, fDeviation);
    Samples lSamples(uCount);
    for (auto& cSample : lSamples)
        cSample = {cPart(cRandom), cPart(cRandom)};
    return lSamples;
}

size_t binOf(const SpectrumFrame& cFrame, double hz) {
    const double bin = double{cFrame.bandwidth()} / static_cast<double>(levelsOf(cFrame).size());
    return static_cast<size_t>(
        std::lround((hz - (double{cFrame.centreFrequency()} - double{cFrame.bandwidth()} / 2)) / bin));
}

uint32_t matchOf(const SpectrumFrame& cFrame) {
    const auto cExtras = cFrame.peekExtras();
    const utils::Variant* pMatch = cExtras ? cExtras->find("MatchIQ") : nullptr;
    EXPECT_TRUE(pMatch && pMatch->getType() == utils::Variant::kUnsigned32);
    return pMatch ? pMatch->getUnsigned32() : 0;
}

}  // namespace

// Against spectra computed independently.

namespace {

/// The same numbers as the script's: a congruential generator and a tone at a quarter of the rate.
class Generator {
 public:
    Generator(uint32_t uSeed, float fNoise, float fTone) : muState(uSeed), mfNoise(fNoise), mfTone(fTone) {}
    Samples take(size_t uCount) {
        Samples lSamples(uCount);
        for (auto& cSample : lSamples) {
            float fReal = value(), fImaginary = value();
            const uint32_t uTurn = muPlace++ % 4;
            (uTurn % 2 == 0 ? fReal : fImaginary) += uTurn < 2 ? mfTone : -mfTone;
            cSample = {fReal, fImaginary};
        }
        return lSamples;
    }

 private:
    float value() {
        muState = muState * 1664525u + 1013904223u;
        return static_cast<float>(static_cast<double>(muState >> 8) / 8388608.0 - 1.0) * mfNoise;
    }
    uint32_t muState;
    float mfNoise;
    float mfTone;
    uint32_t muPlace = 0;
};

float floatOf(const std::string& bits) {
    return std::bit_cast<float>(static_cast<uint32_t>(std::stoul(bits, nullptr, 16)));
}

/// Reads the cases and holds what comes against what was told.
class Told {
 public:
    void run() {
        std::ifstream cFile(std::string(VNK_TEST_DATA) + "/iq_spectra.txt");
        for (std::string line; std::getline(cFile, line) && !testing::Test::HasFatalFailure();) {
            std::istringstream cLine(line);
            std::string kind;
            cLine >> kind;
            if (kind == "case")
                begin(cLine);
            else if (kind == "P")
                set(cLine);
            else if (kind == "F")
                frame(cLine);
            else if (kind == "C")
                configuration(cLine);
            else
                spectrum(cLine);
        }
        EXPECT_TRUE(mlPending.empty()) << mcName;
    }
    size_t muCases = 0, muSpectra = 0, muLevels = 0;
    std::set<std::string> mlWindows;

 private:
    void begin(std::istream& cLine) {
        EXPECT_TRUE(mlPending.empty()) << mcName << ": more spectra than were told";
        uint32_t uSeed = 0;
        std::string noise, tone;
        cLine >> mcName >> uSeed >> noise >> tone;
        mcBench = std::make_unique<Bench>();
        mcGenerator = std::make_unique<Generator>(uSeed, floatOf(noise), floatOf(tone));
        ++muCases;
    }
    void set(std::istream& cLine) {
        std::string rbw, overlap, window;
        bool bFollow = false;
        cLine >> rbw >> overlap >> window >> bFollow;
        ErrorList lErrors;
        utils::VariantRecord cRecord;
        cRecord.set("RBWHz", floatOf(rbw));
        cRecord.set("FFTOverlap", floatOf(overlap));
        cRecord.set("WindowFn", window);
        cRecord.set("FollowIQ", bFollow);
        ASSERT_TRUE(mcBench->mcProcessor->setSinkParameters(cRecord, lErrors, true));
        mlWindows.insert(window);
    }
    void frame(std::istream& cLine) {
        ASSERT_TRUE(mlPending.empty()) << mcName << ": more spectra than were told";
        uint32_t uSequence = 0;
        uint64_t uTime = 0;
        size_t uCount = 0;
        std::string centre, rate, bandwidth, reference, units;
        cLine >> uSequence >> uTime >> uCount >> centre >> rate >> bandwidth >> reference >> units;
        mlPending = mcBench->process(
            framed(mcGenerator->take(uCount), uSequence,
                   {floatOf(centre), floatOf(rate), floatOf(bandwidth), floatOf(reference), units}, uTime));
    }
    void configuration(std::istream& cLine) {
        cLine >> muSize >> muBins >> mcRBW >> mcMin >> mcMax >> mcWindow >> mcUnits;
    }
    void spectrum(std::istream& cLine) {
        uint32_t uSequence = 0, uMatch = 0;
        uint64_t uTime = 0, uDuration = 0;
        std::string reference, bar;
        double mean = 0;
        cLine >> uSequence >> uTime >> uDuration >> uMatch >> reference >> mean;
        SCOPED_TRACE(mcName + " " + std::to_string(uSequence));
        ASSERT_FALSE(mlPending.empty()) << "fewer spectra than were told";
        const ReferencePtr<SpectrumFrame> cFrame = mlPending.front();
        mlPending.erase(mlPending.begin());
        ++muSpectra;
        ASSERT_EQ(cFrame->sequence(), uSequence);
        ASSERT_EQ(cFrame->timestamp(), uTime);
        ASSERT_EQ(cFrame->timeResolution(), 3u);
        ASSERT_EQ(cFrame->duration(), uDuration);
        ASSERT_EQ(matchOf(*cFrame), uMatch);
        ASSERT_EQ(cFrame->referenceLevel(), floatOf(reference));
        ASSERT_EQ(cFrame->rbw(), floatOf(mcRBW));
        ASSERT_EQ(cFrame->windowName(), mcWindow);
        ASSERT_EQ(cFrame->getUnits(), mcUnits);
        ASSERT_EQ(cFrame->centreFrequency(), (floatOf(mcMin) + floatOf(mcMax)) * 0.5f);
        ASSERT_EQ(cFrame->bandwidth(), floatOf(mcMax) - floatOf(mcMin));
        const std::vector<float> lLevels = levelsOf(*cFrame);
        ASSERT_EQ(lLevels.size(), muBins);
        double sum = 0;
        for (const float fLevel : lLevels)
            sum += static_cast<double>(fLevel);
        if (muBins > 0) {
            ASSERT_NEAR(sum / static_cast<double>(muBins), mean, 0.01);
        }
        if (!(cLine >> bar))
            return;
        for (const float fLevel : lLevels) {
            double told = 0;
            ASSERT_TRUE(cLine >> told);
            if (told <= -140)
                continue;
            ASSERT_NEAR(fLevel, told, 0.01);
            ++muLevels;
        }
    }

    std::string mcName;
    std::unique_ptr<Bench> mcBench;
    std::unique_ptr<Generator> mcGenerator;
    Spectra mlPending;
    uint32_t muSize = 0, muBins = 0;
    std::string mcRBW, mcMin, mcMax, mcWindow, mcUnits;
};

}  // namespace

TEST_F(IQToSpectrumTest, SpectraAreThoseComputedIndependently) {
    Told cTold;
    cTold.run();
    EXPECT_GT(cTold.muCases, 40u);
    EXPECT_GT(cTold.muSpectra, 600u);
    EXPECT_GT(cTold.muLevels, 10000u);
    EXPECT_EQ(cTold.mlWindows.size(), 12u);
}

namespace {

/// What the processor is told to do, step by step in double precision; only the sizes come from the frames made.
class Model {
 public:
    float mfRBW = 1000.0f, mfOverlap = 0.5f;
    std::string window = "nuttall";
    bool mbFollow = false;
    uint32_t muSequence = 0;

    struct Spectrum {
        uint32_t muSequence, muMatch;
        uint64_t muTime;
        std::vector<double> mlLevels;
    };
    std::vector<Spectrum> process(const Samples& lSamples, uint32_t uInput, const Tuning& cTuning, uint64_t uTime) {
        if (uInput != muNext) {
            ++muSequence;
            mlFill.clear();
            muTime = uTime;
        }
        muNext = uInput + 1;
        const auto key = std::tuple(mfRBW, window, mbFollow, cTuning.mfRateHz, mbFollow ? lSamples.size() : 0);
        if (key != mcKey || lLengths.empty())
            configure(cTuning, lSamples.size(), uTime);
        mcKey = key;
        std::vector<Spectrum> lSpectra;
        if (mbFollow) {
            muTime = uTime;
            if (muSize >= 2) {
                mlFill.assign(lSamples.begin(), lSamples.begin() + muSize);
                lSpectra.push_back({uInput, uInput, muTime, levels()});
                mlFill.clear();
                muTime += static_cast<uint64_t>(std::llround(static_cast<double>(muSize) * double{cTuning.mfRateHz}));
            }
            return lSpectra;
        }
        const auto hop =
            static_cast<uint32_t>(std::lround((1.0 - static_cast<double>(mfOverlap)) * static_cast<double>(muSize)));
        for (const auto& cSample : lSamples) {
            mlFill.emplace_back(cSample);
            if (mlFill.size() < muSize)
                continue;
            lSpectra.push_back({muSequence++, uInput, muTime, levels()});
            mlFill.erase(mlFill.begin(), mlFill.begin() + std::max(hop, 1u));
            muTime += static_cast<uint64_t>(
                std::llround(static_cast<double>(std::max(hop, 1u)) * static_cast<double>(cTuning.mfRateHz)));
        }
        return lSpectra;
    }

 private:
    void configure(const Tuning& cTuning, size_t uCount, uint64_t uTime) {
        const double e = noiseBandwidth(window);
        lLengths.assign(1, 1);
        if (mbFollow) {
            for (muSize = 1; muSize * 2 <= uCount;)
                muSize *= 2;
        } else {
            const double c = std::round(double{cTuning.mfRateHz} / double{mfRBW} * e);
            for (muSize = 2; muSize < c;)
                muSize *= 2;
        }
        const double v = std::round(muSize * double{cTuning.mfBandwidthHz} / double{cTuning.mfRateHz});
        muBins = 2 * static_cast<uint32_t>(v / 2);
        correction = 10 * std::log10(e);
        mlFill.clear();
        muTime = uTime;
        muSequence = 0;
    }
    std::vector<double> levels() const {
        const std::vector<double> lWindow = scaledWindow(window, muSize);
        std::vector<std::complex<double>> x(mlFill);
        for (uint32_t i = 0; i < muSize; ++i)
            x[i] *= lWindow[i] / muSize;
        x = measure::transform(std::move(x));
        std::vector<double> lLevels;
        for (uint32_t i = 0; i < muBins; ++i)
            lLevels.push_back(10 * std::log10(std::norm(x[(i + muSize - muBins / 2) % muSize])) - correction);
        return lLevels;
    }

    std::tuple<float, std::string, bool, float, size_t> mcKey;
    std::vector<int> lLengths;
    uint32_t muSize = 0, muBins = 0, muNext = 0;
    uint64_t muTime = 0;
    double correction = 0;
    std::vector<std::complex<double>> mlFill;
};

}  // namespace

TEST_F(IQToSpectrumTest, RandomStreamsGiveWhatALiteralModelGives) {
    std::mt19937 cRandom(20261122);
    const auto below = [&cRandom](uint32_t uLimit) { return static_cast<uint32_t>(cRandom() % uLimit); };
    const auto names = WindowFunctions::listWindowNames();
    const std::vector<std::string> lWindows(names.begin(), names.end());
    size_t uSpectra = 0, uFollowed = 0;
    for (uint32_t uRun = 0; uRun < 60; ++uRun) {
        Bench cBench;
        Model cModel;
        Tuning cTuning;
        uint32_t uSequence = below(3);
        uint64_t uTime = 1000 + below(100000);
        for (uint32_t uStep = 0; uStep < 12; ++uStep) {
            SCOPED_TRACE(testing::Message() << "run " << uRun << " step " << uStep);
            if (uStep == 0 || below(4) == 0) {
                cModel.window = lWindows[below(12)];
                // Sixteenths and a little: no product lies at a half.
                cModel.mfOverlap = static_cast<float>(below(13)) / 16.0f + 0.003f;
                cModel.mfRBW = 1000.0f * static_cast<float>(5 + below(60)) + 0.37f;
                cModel.mbFollow = below(4) == 0;
                utils::VariantRecord cRecord;
                cRecord.set("WindowFn", cModel.window);
                cRecord.set("FFTOverlap", cModel.mfOverlap);
                cRecord.set("RBWHz", cModel.mfRBW);
                cRecord.set("FollowIQ", cModel.mbFollow);
                ErrorList lErrors;
                ASSERT_TRUE(cBench.mcProcessor->setSinkParameters(cRecord, lErrors, true));
            }
            const bool bGap = below(6) == 0;
            if (bGap)
                uSequence += 1 + below(5);
            else if (below(6) == 0)
                cTuning.mfRateHz = 1e6f + 1e5f * static_cast<float>(below(10));
            static constexpr uint32_t kSizes[] = {1, 7, 64, 333, 1000, 4099, 0};
            const Samples lSamples = noise(kSizes[below(7)], below(1u << 31), 0.01f);
            const auto lTold = cModel.process(lSamples, uSequence, cTuning, uTime);
            const Spectra lGot = cBench.process(framed(lSamples, uSequence, cTuning, uTime));
            ASSERT_EQ(lGot.size(), lTold.size());
            for (size_t i = 0; i < lGot.size(); ++i) {
                ASSERT_EQ(lGot[i]->sequence(), lTold[i].muSequence);
                ASSERT_EQ(matchOf(*lGot[i]), lTold[i].muMatch);
                ASSERT_EQ(lGot[i]->timestamp(), lTold[i].muTime);
                const std::vector<float> lLevels = levelsOf(*lGot[i]);
                ASSERT_EQ(lLevels.size(), lTold[i].mlLevels.size());
                for (size_t k = 0; k < lLevels.size(); ++k)
                    if (lTold[i].mlLevels[k] > -140) {
                        ASSERT_NEAR(lLevels[k], lTold[i].mlLevels[k], 0.01) << "bin " << k;
                    }
            }
            uSpectra += lGot.size();
            uFollowed += cModel.mbFollow ? lGot.size() : 0;
            uTime += lSamples.size() * 1000;
            ++uSequence;
        }
    }
    EXPECT_GT(uSpectra, 5000u);
    EXPECT_GT(uFollowed, 50u);
}

// What goes in at a frequency and a level comes out there.

TEST_F(IQToSpectrumTest, ToneStandsAtItsFrequencyAndLevelWithEveryWindow) {
    for (const std::string& name : WindowFunctions::listWindowNames()) {
        SCOPED_TRACE(name);
        Bench cBench;
        cBench.set("{\"RBWHz\":1000,\"WindowFn\":\"" + name + "\"}");
        const double e = 10 * std::log10(noiseBandwidth(name));
        for (const double offset : {-300e3, -976.5625 * 5, 0.0, 976.5625, 125e3, 390625.0}) {
            // A unit tone has 0 dBm; what is taken off is the noise bandwidth of the window.
            const uint32_t uSize = planSpectrum(1000.0f, name, false, {1e8f, 8e5f, 1e6f, 0}).muFFTSize;
            const double cycles = std::round(offset / 1e6 * uSize) / uSize;
            cBench.set("{\"FollowIQ\":true}");
            cBench.set("{\"FollowIQ\":false}");
            const Spectra lSpectra = cBench.process(framed(tone(uSize, cycles, 0.1), 0));
            if (lSpectra.empty()) {
                ADD_FAILURE();
                continue;
            }
            const std::vector<float> lLevels = levelsOf(*lSpectra.back());
            const auto itPeak = std::max_element(lLevels.begin(), lLevels.end());
            EXPECT_EQ(static_cast<size_t>(itPeak - lLevels.begin()), binOf(*lSpectra.back(), 100e6 + cycles * 1e6));
            EXPECT_NEAR(*itPeak, -20 - e, 0.01) << offset;
        }
    }
}

TEST_F(IQToSpectrumTest, NoiseHasTheLevelOfItsDensity) {
    // Of complex noise of power P each bin has P / size, whatever the window: that is what the correction is for.
    for (const char* pName : {"rectangular", "hann", "nuttall", "flattop"}) {
        Bench cBench;
        cBench.set(std::string("{\"RBWHz\":4000,\"FFTOverlap\":0,\"WindowFn\":\"") + pName + "\"}");
        const Spectra lSpectra = cBench.process(framed(noise(1 << 19, 9, 0.01f), 0));
        ASSERT_FALSE(lSpectra.empty());
        const double size = 1e6 * noiseBandwidth(pName) / double{lSpectra[0]->rbw()};
        double sum = 0;
        size_t uValues = 0;
        for (const auto& cFrame : lSpectra)
            for (const float fLevel : levelsOf(*cFrame)) {
                sum += std::pow(10.0, static_cast<double>(fLevel) / 10);
                ++uValues;
            }
        ASSERT_GT(uValues, 300000u);
        // Neighbouring bins of a wide window are not independent: a tenth of them is, at the least.
        const double deviations = 5 * 4.34 / std::sqrt(static_cast<double>(uValues) / 10);
        EXPECT_NEAR(10 * std::log10(sum / static_cast<double>(uValues)), 10 * std::log10(2e-4 / size), deviations)
            << pName;
    }
}

TEST_F(IQToSpectrumTest, LowestFrequencyComesFirst) {
    mcBench.set("{\"FollowIQ\":true,\"WindowFn\":\"hann\"}");
    pass(tone(256, -64.0 / 256, 1.0), 0, {100e6f, 1e6f, 1e6f, -30, "sqrt-mw"});
    ASSERT_EQ(mlSpectra.size(), 1u);
    const std::vector<float> lLevels = levelsOf(*mlSpectra[0]);
    ASSERT_EQ(lLevels.size(), 256u);
    EXPECT_EQ(std::max_element(lLevels.begin(), lLevels.end()) - lLevels.begin(), 64);
    EXPECT_EQ(mlSpectra[0]->centreFrequency() - mlSpectra[0]->bandwidth() / 2, 99.5e6f);
}

// The stream in blocks.

TEST_F(IQToSpectrumTest, MegahertzAtAKilohertzTakesBlocksOf2048) {
    pass(constant(2047), 0);
    EXPECT_THAT(sequences(), IsEmpty());
    pass(constant(1), 1);
    EXPECT_THAT(sequences(), ElementsAre(0));
    EXPECT_EQ(mlSpectra[0]->duration(), 2'047'000u);
    EXPECT_EQ(matchOf(*mlSpectra[0]), 1u);
}

TEST_F(IQToSpectrumTest, OverlapOfAHalfGivesASpectrumEvery512Of1024Samples) {
    mcBench.set("{\"RBWHz\":2000}");
    pass(constant(1024 + 511), 0);
    EXPECT_THAT(sequences(), ElementsAre(0));
    pass(constant(1), 1);
    EXPECT_THAT(sequences(), ElementsAre(0, 1));
    pass(constant(1024), 2);
    EXPECT_THAT(sequences(), ElementsAre(0, 1, 2, 3));
}

TEST_F(IQToSpectrumTest, TimesAdvanceByHopTimesRate) {
    mcBench.set("{\"RBWHz\":2000}");
    pass(constant(2048), 0, {}, 5000);
    ASSERT_EQ(mlSpectra.size(), 3u);
    EXPECT_EQ(mlSpectra[0]->timestamp(), 5000u);
    EXPECT_EQ(mlSpectra[1]->timestamp(), 5000u + 512'000'000u);
    EXPECT_EQ(mlSpectra[2]->timestamp(), 5000u + 1'024'000'000u);
}

TEST_F(IQToSpectrumTest, TimesOfOtherResolutionsAreTakenInNanoseconds) {
    mcBench.set("{\"FollowIQ\":true}");
    auto cFrame = framed(constant(8), 0, {}, 7);
    cFrame->setTimeResolution(kMicroseconds);
    const Spectra lSpectra = mcBench.process(cFrame);
    ASSERT_EQ(lSpectra.size(), 1u);
    EXPECT_EQ(lSpectra[0]->timestamp(), cFrame->getTimestamp(kNanoseconds));
    EXPECT_EQ(lSpectra[0]->timeResolution(), 3u);
}

TEST_F(IQToSpectrumTest, InputGapShowsInTheSequenceOfSpectra) {
    mcBench.set("{\"RBWHz\":2000}");
    pass(constant(1024), 0, {}, 5000);
    pass(constant(1024), 5, {}, 9000);
    EXPECT_THAT(sequences(), ElementsAre(0, 2)) << "and the samples before the gap are gone";
    EXPECT_EQ(mlSpectra[1]->timestamp(), 9000u);
}

TEST_F(IQToSpectrumTest, GapKeepsTheConfigurationAndTakesTheLabelsOfItsFrame) {
    mcBench.set("{\"RBWHz\":2000}");
    pass(constant(1024), 0);
    const Tuning cOther{200e6f, 2e6f, 400e3f, 3.0f, "sqrt-mw"};
    pass(constant(1024), 5, cOther);
    ASSERT_EQ(mlSpectra.size(), 2u);
    EXPECT_EQ(mlSpectra[1]->centreFrequency(), 100e6f);
    EXPECT_EQ(levelsOf(*mlSpectra[1]).size(), levelsOf(*mlSpectra[0]).size());
    EXPECT_EQ(mlSpectra[1]->referenceLevel(), 3.0f);
    EXPECT_EQ(mlSpectra[1]->duration(), 511'500u) << "at the rate of the gap's frame";
    pass(constant(512), 6, cOther);
    EXPECT_EQ(mlSpectra.back()->centreFrequency(), 100e6f) << "nothing differs from the gap's frame";
}

TEST_F(IQToSpectrumTest, FrameWhoseMemoryFailedLeavesNoSamplesToTheNext) {
    class FailingSink : public SpectrumFrameSink {
     public:
        void receiveFrame(ReferencePtr<Frame>, bool) override {
            if (mbFailing)
                throw std::bad_alloc();
        }
        bool mbFailing = true;
    };
    const auto cFailing = makeReference<FailingSink>();
    ASSERT_TRUE(mcBench.mcProcessor->attachFrameSink(cFailing, mlErrors));
    mcBench.set("{\"RBWHz\":2000}");
    // The second half of the first block is kept for the next spectrum.
    EXPECT_THROW(pass(constant(1500, 1e-3f), 0, {}, 5000), std::bad_alloc);
    mcBench.mcSink->take();
    cFailing->mbFailing = false;
    pass(noise(1024, 4, 0.1f), 1, {}, 9000);
    EXPECT_THAT(sequences(), ElementsAre(2)) << "0 and a gap";
    EXPECT_EQ(mlSpectra.at(0)->timestamp(), 9000u);
    Bench cFresh;
    cFresh.set("{\"RBWHz\":2000}");
    EXPECT_EQ(levelsOf(*mlSpectra.at(0)), levelsOf(*cFresh.process(framed(noise(1024, 4, 0.1f), 1)).at(0)));
    pass(noise(512, 5, 0.1f), 2);
    EXPECT_THAT(sequences(), ElementsAre(2, 3)) << "and that was the only gap";
    cFailing->detachFromSource();
}

TEST_F(IQToSpectrumTest, ChangeOfTuningBeginsAnew) {
    mcBench.set("{\"RBWHz\":2000}");
    pass(constant(1500), 0);
    pass(constant(1024), 1, {200e6f, 1e6f, 800e3f, -30, "sqrt-mw"}, 9000);
    EXPECT_THAT(sequences(), ElementsAre(0, 0));
    EXPECT_EQ(mlSpectra[1]->centreFrequency(), 200e6f);
    EXPECT_EQ(mlSpectra[1]->timestamp(), 9000u);
}

TEST_F(IQToSpectrumTest, ParametersTakeEffectAtTheNextFrame) {
    mcBench.set("{\"RBWHz\":2000}");
    pass(constant(1024), 0);
    mcBench.set("{\"RBWHz\":4000}");
    pass(constant(512), 1);
    EXPECT_THAT(sequences(), ElementsAre(0, 0)) << "what was gathered for the other size is dropped";
    EXPECT_EQ(mlSpectra[1]->duration(), 511'000u);
    mcBench.set("{\"WindowFn\":\"hann\"}");
    pass(constant(512), 2);
    EXPECT_EQ(mlSpectra.back()->windowName(), "hann");
    EXPECT_EQ(mlSpectra.back()->sequence(), 0u);
}

TEST_F(IQToSpectrumTest, OverlapTakesEffectWithoutABeginning) {
    mcBench.set("{\"RBWHz\":2000}");
    pass(constant(1024), 0);
    mcBench.set("{\"FFTOverlap\":0}");
    pass(constant(512), 1);
    pass(constant(1023), 2);
    EXPECT_THAT(sequences(), ElementsAre(0, 1));
    pass(constant(1), 3);
    EXPECT_THAT(sequences(), ElementsAre(0, 1, 2));
}

TEST_F(IQToSpectrumTest, BandwidthOfTheRateGivesAllBins) {
    mcBench.set("{\"RBWHz\":2000}");
    pass(constant(1024), 0, {100e6f, 1e6f, 1e6f, -30, "sqrt-mw"});
    ASSERT_EQ(mlSpectra.size(), 1u);
    EXPECT_EQ(levelsOf(*mlSpectra[0]).size(), 1024u);
}

TEST_F(IQToSpectrumTest, UnitsAreDecibelsWhereTheSamplesHaveOthers) {
    mcBench.set("{\"FollowIQ\":true}");
    pass(constant(8), 0);
    pass(constant(4), 1, {100e6f, 1e6f, 800e3f, -30, "volts"});
    ASSERT_EQ(mlSpectra.size(), 2u);
    EXPECT_EQ(mlSpectra[0]->getUnits(), "dBm");
    EXPECT_EQ(mlSpectra[1]->getUnits(), "dB");
}

// One spectrum of each frame.

TEST_F(IQToSpectrumTest, FollowedFrameOfAThousandGivesASpectrumOf512) {
    mcBench.set("{\"FollowIQ\":true,\"WindowFn\":\"rectangular\"}");
    Samples lSamples = constant(512, 0.1f);
    lSamples.resize(1000, 100.0f);
    pass(lSamples, 0);
    pass(lSamples, 1);
    EXPECT_THAT(sequences(), ElementsAre(0, 1));
    for (const auto& cFrame : mlSpectra) {
        const std::vector<float> lLevels = levelsOf(*cFrame);
        ASSERT_EQ(lLevels.size(), 410u);
        EXPECT_NEAR(lLevels[205], -20.0f, 0.01f) << "the 488 samples behind have no part in it";
    }
}

TEST_F(IQToSpectrumTest, FollowedSpectraHaveTheSequencesAndTimesOfTheirFrames) {
    mcBench.set("{\"FollowIQ\":true}");
    pass(constant(8), 4, {}, 100);
    pass(constant(8), 5, {}, 200);
    pass(constant(8), 9, {}, 300);
    EXPECT_THAT(sequences(), ElementsAre(4, 5, 9));
    EXPECT_EQ(mlSpectra[1]->timestamp(), 200u);
    EXPECT_EQ(mlSpectra[2]->timestamp(), 300u);
    EXPECT_EQ(matchOf(*mlSpectra[2]), 9u);
}

TEST_F(IQToSpectrumTest, ShorterFollowedFrameReconfiguresAtOnce) {
    mcBench.set("{\"FollowIQ\":true}");
    pass(constant(1024), 0);
    pass(constant(300), 1);
    pass(constant(1024), 2);
    ASSERT_EQ(mlSpectra.size(), 3u);
    EXPECT_EQ(mlSpectra[1]->duration(), 255'000u);
    EXPECT_EQ(mlSpectra[2]->duration(), 1'023'000u);
}

TEST_F(IQToSpectrumTest, FollowedFrameOfOneSampleGivesNoSpectrum) {
    mcBench.set("{\"FollowIQ\":true}");
    pass(constant(1), 0);
    pass(constant(1), 1);
    pass({}, 2);
    EXPECT_THAT(sequences(), IsEmpty());
    pass(constant(2), 3);
    EXPECT_THAT(sequences(), ElementsAre(3));
}

TEST_F(IQToSpectrumTest, EmptyFramesKeepTheStreamTogether) {
    mcBench.set("{\"RBWHz\":2000}");
    pass(constant(1000), 0);
    pass({}, 1);
    pass(constant(24), 2);
    EXPECT_THAT(sequences(), ElementsAre(0));
    mcBench.process(makeReference<IQFrame>(3u, uint64_t{0}, uint64_t{0}, uint32_t{kNanoseconds}, 100e6f, 800e3f, 1e6f,
                                           -30.0f, ReferencePtr<ComplexArray>(), std::string("sqrt-mw")));
    pass(constant(512), 4);
    EXPECT_THAT(sequences(), ElementsAre(0, 1)) << "a frame without an array has no samples";
}

// Values from outside that no unit has.

TEST_F(IQToSpectrumTest, FileThatClaimsAHugeRateTakesNoMemoryForIt) {
    // What is only reserved counts as well: not every system gives what it may not have.
    const auto reservedBytes = [] {
        std::ifstream cFile("/proc/self/statm");
        uint64_t uPages = 0;
        cFile >> uPages;
        return uPages * 4096;
    };
    mcBench.set("{\"RBWHz\":1}");
    for (const float fRate : {1e30f, 4e8f, kInfinity}) {
        const uint64_t uBefore = reservedBytes();
        for (uint32_t i = 0; i < 20; ++i)
            pass(constant(1000), i, {100e6f, fRate, 800e3f, -30, "sqrt-mw"});
        EXPECT_LT(reservedBytes(), uBefore + (400u << 20)) << fRate;
    }
    EXPECT_THAT(sequences(), IsEmpty()) << "the block is never full";
}

TEST_F(IQToSpectrumTest, LabelsThatAreNoNumbersEndInNothingWorse) {
    const float lValues[] = {0.0f, -1.0f, -1e30f, 1e-30f, 1e30f, kNaN, kInfinity, -kInfinity, 1e6f};
    uint32_t uSequence = 0;
    for (const bool bFollow : {false, true}) {
        mcBench.set(bFollow ? "{\"FollowIQ\":true}" : "{\"FollowIQ\":false,\"FFTOverlap\":0.8}");
        for (const float fRate : lValues)
            for (const float fBandwidth : lValues)
                for (const float fCentre : {1e8f, kNaN})
                    pass(constant(20, {fCentre, kNaN}), uSequence++, {fCentre, fRate, fBandwidth, kNaN, ""});
    }
    for (const auto& cFrame : mlSpectra)
        ASSERT_LE(levelsOf(*cFrame).size(), 32u);
}

TEST_F(IQToSpectrumTest, ShortestBlockAtTheGreatestOverlapComesToAnEnd) {
    mcBench.set("{\"RBWHz\":100000,\"FFTOverlap\":0.8}");
    pass(constant(1000), 0, {100e3f, 20e3f, 20e3f, -30, "sqrt-mw"});
    EXPECT_EQ(mlSpectra.size(), 999u);
}

TEST_F(IQToSpectrumTest, SilenceHasNoLevelAndTheNextBlockHasOne) {
    mcBench.set("{\"FollowIQ\":true}");
    pass(constant(64, 0.0f), 0);
    pass(constant(64, {kNaN, kInfinity}), 1);
    pass(constant(64, 1e-22f), 2);
    pass(constant(64, 0.1f), 3);
    ASSERT_EQ(mlSpectra.size(), 4u);
    for (const float fLevel : levelsOf(*mlSpectra[0]))
        EXPECT_EQ(fLevel, -kInfinity);
    for (const float fLevel : levelsOf(*mlSpectra[1]))
        EXPECT_TRUE(std::isnan(fLevel));
    const double e = 10 * std::log10(noiseBandwidth("nuttall"));
    EXPECT_NEAR(levelsOf(*mlSpectra[2])[25], -440 - e, 0.5) << "of a denormal power";
    // The mean of the window is that of 65 points.
    EXPECT_NEAR(levelsOf(*mlSpectra[3])[25], -20 - e + 20 * std::log10(65.0 / 64), 0.01);
}

TEST_F(IQToSpectrumTest, FrameOfAnotherKindIsLeftAlone) {
    mcBench.set("{\"RBWHz\":2000}");
    pass(constant(1000), 0);
    EXPECT_THAT(mcBench.process(spectrumOf({1, 2, 3}, 9)), IsEmpty());
    EXPECT_EQ(number("RecentFrames"), 1.0f);
    pass(constant(24), 1);
    EXPECT_THAT(sequences(), ElementsAre(0));
    EXPECT_THAT(takeLog(), IsEmpty());
}

TEST_F(IQToSpectrumTest, TakesIQFramesAndTheEnd) {
    EXPECT_TRUE(mcBench.mcProcessor->acceptsFrame(framed(constant(1), 0)));
    EXPECT_TRUE(mcBench.mcProcessor->acceptsFrame(nullptr));
    EXPECT_FALSE(mcBench.mcProcessor->acceptsFrame(spectrumOf({1.0f})));
}

TEST_F(IQToSpectrumTest, AdmitsSinksOfSpectraOnly) {
    EXPECT_FALSE(mcBench.mcProcessor->attachFrameSink(makeReference<IQFrameSink>(), mlErrors));
    EXPECT_THAT(mlErrors, ElementsAre("Attempted to attach a non-spectrum sink to a spectrum-only processor"));
    mlErrors.clear();
    EXPECT_FALSE(mcBench.mcProcessor->attachFrameSink(nullptr, mlErrors));
    EXPECT_THAT(mlErrors, ElementsAre("::attachFrameSink with cNewSink==nullptr"));
    mlErrors.clear();
    const auto cSink = makeReference<SpectrumFrameSink>();
    EXPECT_TRUE(mcBench.mcProcessor->attachFrameSink(cSink, mlErrors));
    cSink->detachFromSource();
}

// Parameters.

TEST_F(IQToSpectrumTest, DescribesItsParameters) {
    const std::string windows =
        "\"rectangular\",\"gaussian\",\"hann\",\"hamming\",\"cosine\",\"lanczos\",\"bartlett\",\"bartletthann\","
        "\"nuttall\",\"blackmanharris\",\"blackmannuttall\",\"flattop\"";
    const utils::VariantRecord cTold(
        ("{\"flowControl\":\"<If set true, limit capture rate to ensure minimal network buffering>\","
         "\"MatchIQ\":{\"description\":\"<most recently processed IQ frame sequence number>\",\"readonly\":true},"
         "\"FollowIQ\":{\"description\":\"<if set, overlap is 0.0 and 1 spectrum frame is generated for each IQ "
         "frame>\",\"values\":[\"true\",\"false\"]},"
         "\"OutputSize\":{\"description\":\"<integer size of output result>\",\"readonly\":true},"
         "\"RBWHz\":{\"description\":\"<programmed resolution bandwidth>\",\"units\":\"Hz\",\"min\":1.0,"
         "\"max\":100000.0,\"default\":1000.0},"
         "\"FFTOverlap\":{\"description\":\"<overlap between FFTs>\",\"min\":0.0,\"max\":0.8,\"default\":0.5},"
         "\"WindowFn\":{\"description\":\"<window function>\",\"values\":[" +
         windows + "]}}")
            .c_str());
    EXPECT_EQ(mcBench.mcProcessor->getParameterInfo().toPrettyText(), cTold.toPrettyText());
}

TEST_F(IQToSpectrumTest, ReportsItsParameters) {
    const utils::VariantRecord cRecord = parameters();
    EXPECT_THAT(cRecord.keys(),
                testing::UnorderedElementsAre("bufferSec", "bufferFrames", "bufferDiscard", "flowControl",
                                              "RecentFrames", "WindowFn", "FollowIQ", "RBWHz", "FFTOverlap"));
    EXPECT_EQ(cRecord.getText("WindowFn"), "nuttall");
    EXPECT_EQ(cRecord.getBool("FollowIQ"), false);
    EXPECT_EQ(cRecord.getNumber("RBWHz"), 1000.0f);
    EXPECT_EQ(cRecord.getNumber("FFTOverlap"), 0.5f);
    EXPECT_EQ(cRecord.find("RecentFrames")->getType(), utils::Variant::kUnsigned32);
    mcBench.set("{\"FollowIQ\":true}");
    EXPECT_THAT(parameters().keys(),
                testing::UnorderedElementsAre("bufferSec", "bufferFrames", "bufferDiscard", "flowControl",
                                              "RecentFrames", "WindowFn", "FollowIQ"));
}

TEST_F(IQToSpectrumTest, CountsTheFramesSinceItWasAskedLast) {
    pass(constant(3), 0);
    pass(constant(3), 7);
    EXPECT_EQ(number("RecentFrames"), 2.0f);
    EXPECT_EQ(number("RecentFrames"), 0.0f);
}

TEST_F(IQToSpectrumTest, ValuesOutOfRangeAreDroppedWithoutAWord) {
    mcBench.set("{\"RBWHz\":2000,\"FFTOverlap\":0.25,\"WindowFn\":\"hann\"}");
    const auto drop = [this](const char* pKey, auto value) {
        utils::VariantRecord cRecord;
        cRecord.set(pKey, value);
        EXPECT_TRUE(mcBench.mcProcessor->setSinkParameters(cRecord, mlErrors, true)) << pKey << value;
        EXPECT_TRUE(cRecord.empty()) << "the key is gone";
    };
    for (const float fRBW : {0.5f, 100001.0f, -5.0f, kNaN, kInfinity})
        drop("RBWHz", fRBW);
    drop("RBWHz", -5);
    for (const float fOverlap : {0.81f, -0.1f, 1.0f, kNaN})
        drop("FFTOverlap", fOverlap);
    drop("WindowFn", "Hann");
    drop("WindowFn", "");
    EXPECT_THAT(mlErrors, IsEmpty());
    EXPECT_THAT(statuses(), IsEmpty());
    EXPECT_EQ(number("RBWHz"), 2000.0f);
    EXPECT_EQ(number("FFTOverlap"), 0.25f);
    EXPECT_EQ(parameters().getText("WindowFn"), "hann");
}

TEST_F(IQToSpectrumTest, EndsOfTheRangesAreTaken) {
    mcBench.set("{\"RBWHz\":1,\"FFTOverlap\":0.8}");
    EXPECT_EQ(number("RBWHz"), 1.0f);
    EXPECT_EQ(number("FFTOverlap"), 0.8f);
    mcBench.set("{\"RBWHz\":100000,\"FFTOverlap\":0}");
    EXPECT_EQ(number("RBWHz"), 100000.0f);
    EXPECT_EQ(number("FFTOverlap"), 0.0f);
}

TEST_F(IQToSpectrumTest, ValuesOfAnotherTypeAreUnknown) {
    utils::VariantRecord cRecord("{\"RBWHz\":\"wide\",\"FollowIQ\":1,\"WindowFn\":3,\"FFTOverlap\":0.25}");
    EXPECT_FALSE(mcBench.mcProcessor->setSinkParameters(cRecord, mlErrors, true));
    EXPECT_THAT(mlErrors, ElementsAre("Attempted to integrate unknown parameter 'FollowIQ'",
                                      "Attempted to integrate unknown parameter 'RBWHz'",
                                      "Attempted to integrate unknown parameter 'WindowFn'"));
    EXPECT_THAT(statuses(), ElementsAre(-33, -33, -33));
    EXPECT_EQ(number("FFTOverlap"), 0.25f) << "a valid value is stored before the rest is looked at";
}

// On its own thread.

namespace {

class IQToSpectrumThreads : public FlowTest {
 protected:
    void SetUp() override {
        FlowTest::SetUp();
        utils::VariantRecord cRecord("{\"bufferFrames\":100000}");
        mcSink->setSinkParameters(cRecord, mlErrors, true);
        ASSERT_TRUE(mcProcessor->attachFrameSink(mcSink, mlErrors));
        ASSERT_TRUE(mcSource->attachFrameSink(mcProcessor, mlErrors));
    }
    void TearDown() override {
        mcProcessor->detachFromSource();
        mcSink->detachFromSource();
    }
    ReferencePtr<CountedSource> mcSource = makeReference<CountedSource>();
    ReferencePtr<IQToSpectrum> mcProcessor = makeReference<IQToSpectrum>();
    ReferencePtr<SpectrumFrameSink> mcSink = makeReference<SpectrumFrameSink>();
};

}  // namespace

TEST_F(IQToSpectrumThreads, ParametersMayChangeAHundredThousandTimesWhileItRuns) {
    std::atomic<bool> bDone{false};
    std::atomic<uint64_t> uTaken{0};
    std::thread cProducer([&] {
        const Samples lSamples = noise(500, 3, 0.1f);
        for (uint32_t i = 0; !bDone; ++i) {
            mcSource->deliverFrame(framed(lSamples, i), false);
            std::this_thread::yield();
        }
    });
    std::thread cConsumer([&] {
        while (!bDone)
            if (mcSink->nextFrame(10, false))
                ++uTaken;
    });
    const auto names = WindowFunctions::listWindowNames();
    const std::vector<std::string> lWindows(names.begin(), names.end());
    for (uint32_t i = 0; i < 100000; ++i) {
        utils::VariantRecord cRecord;
        ErrorList lErrors;
        if (i % 2)
            cRecord.set("RBWHz", 4000.0f + static_cast<float>(i % 5000));
        if (i % 3)
            cRecord.set("WindowFn", lWindows[i % 12]);
        if (i % 5)
            cRecord.set("FFTOverlap", static_cast<float>(i % 9) * 0.1f);
        if (i % 7 == 0)
            cRecord.set("FollowIQ", i % 2 == 0);
        ASSERT_TRUE(mcProcessor->setSinkParameters(cRecord, lErrors, false));
        if (i % 100 == 0)
            mcProcessor->getParameters();
    }
    EXPECT_TRUE(waitUntil([&] { return uTaken > 20; }));
    bDone = true;
    cProducer.join();
    cConsumer.join();
}

TEST_F(IQToSpectrumThreads, EndOfTheStreamComesBehindTheLastSpectrum) {
    mcSource->mbExhausted = true;
    mcSource->deliverFrame(framed(constant(4096), 0), false);
    mcSource->deliverFrame(nullptr, false);
    std::vector<uint32_t> lSequences;
    ASSERT_TRUE(waitUntil([&] {
        while (const auto cFrame = mcSink->nextFrame(0, false))
            lSequences.push_back(cFrame->sequence());
        return mcSink->isExhausted();
    }));
    EXPECT_THAT(lSequences, ElementsAre(0, 1, 2));
}

TEST_F(IQToSpectrumThreads, DetachInAFloodOfSpectraEndsSoon) {
    utils::VariantRecord cRecord("{\"RBWHz\":100000,\"FFTOverlap\":0.8}");
    ASSERT_TRUE(mcProcessor->setSinkParameters(cRecord, mlErrors, true));
    // Two million spectra of one frame.
    mcSource->deliverFrame(framed(constant(1 << 21), 0, {100e3f, 20e3f, 20e3f, -30, "sqrt-mw"}), false);
    ASSERT_TRUE(mcSink->nextFrame(30000, false));
    const auto begin = std::chrono::steady_clock::now();
    mcProcessor->detachFromSource();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
}

TEST_F(IQToSpectrumThreads, FrameThatWasLeftInItsMiddleLeavesNoSamplesToTheNext) {
    /// With room for one spectrum, and none of them may be dropped.
    class NarrowSink : public SpectrumFrameSink {
     public:
        void receiveFrame(ReferencePtr<Frame> cFrame, bool bLast) override {
            if (cFrame)
                cFrame->setDiscardable(false);
            ++muCome;
            SpectrumFrameSink::receiveFrame(std::move(cFrame), bLast);
        }
        std::atomic<uint32_t> muCome{0};
    };
    const auto cNarrow = makeReference<NarrowSink>();
    utils::VariantRecord cRecord("{\"RBWHz\":2000}"), cRoom("{\"bufferFrames\":1}");
    ASSERT_TRUE(mcProcessor->setSinkParameters(cRecord, mlErrors, true));
    ASSERT_TRUE(cNarrow->setSinkParameters(cRoom, mlErrors, true));
    ASSERT_TRUE(mcProcessor->attachFrameSink(cNarrow, mlErrors));
    const auto next = [&] { return dynamicReferenceCast<SpectrumFrame>(cNarrow->nextFrame(30000, false)); };
    // Seven spectra, of which the second waits for room.
    mcSource->deliverFrame(framed(constant(4096, 1e-3f), 0, {}, 5000), false);
    ASSERT_TRUE(waitUntil([&] { return cNarrow->muCome == 2; }));
    EXPECT_TRUE(mcProcessor->detachFromSource());
    ASSERT_TRUE(mcSource->attachFrameSink(mcProcessor, mlErrors));
    mcSource->deliverFrame(framed(noise(1024, 4, 0.1f), 1, {}, 9000), false);
    for (uint32_t uSequence = 0; uSequence < 2; ++uSequence) {
        const auto cFrame = next();
        ASSERT_TRUE(cFrame);
        EXPECT_EQ(cFrame->sequence(), uSequence);
    }
    const auto cFrame = next();
    ASSERT_TRUE(cFrame);
    EXPECT_EQ(matchOf(*cFrame), 1u);
    EXPECT_EQ(cFrame->sequence(), 4u) << "2 was refused, and 3 is the gap";
    EXPECT_EQ(cFrame->timestamp(), 9000u);
    Bench cFresh;
    cFresh.set("{\"RBWHz\":2000}");
    EXPECT_EQ(levelsOf(*cFrame), levelsOf(*cFresh.process(framed(noise(1024, 4, 0.1f), 1)).at(0)));
    cNarrow->detachFromSource();
}

#ifndef VNK_SANITIZED
namespace {

/// With little memory left a block that never ends takes all of it: the thread ends and says so, the process stays,
/// and the processor works again with a block that fits. The exit code tells how far it came.
int runOutOfMemory() {
    const auto cSource = makeReference<CountedSource>();
    const auto cProcessor = makeReference<IQToSpectrum>();
    ErrorList lErrors;
    utils::VariantRecord cFine("{\"RBWHz\":1,\"bufferFrames\":100000}");
    if (!cProcessor->setSinkParameters(cFine, lErrors, true) || !cSource->attachFrameSink(cProcessor, lErrors))
        return 2;
    const auto cLast = framed(constant(1 << 20), 0, {100e6f, 1e9f, 1e6f, -30, "sqrt-mw"});
    std::ifstream cStatus("/proc/self/statm");
    uint64_t uPages = 0;
    cStatus >> uPages;
    const rlimit cLimit{uPages * 4096 + (200u << 20), RLIM_INFINITY};
    if (setrlimit(RLIMIT_AS, &cLimit) != 0)
        return 3;
    for (uint32_t i = 0; i < 200; ++i) {
        const auto cFrame = makeReference<IQFrame>(i, uint64_t{0}, uint64_t{0}, uint32_t{kNanoseconds}, 100e6f, 1e6f,
                                                   1e9f, -30.0f, cLast->getArray(), std::string("sqrt-mw"));
        cSource->deliverFrame(cFrame, false);
    }
    bool bTold = false;
    if (!waitUntil([&] {
            for (const LogLine& cLine : takeLog())
                bTold = bTold || cLine.miCode == -9001;
            return bTold;
        }))
        return 4;
    cProcessor->detachFromSource();
    const auto cSink = makeReference<SpectrumFrameSink>();
    utils::VariantRecord cCoarse("{\"RBWHz\":100000}");
    if (!cProcessor->setSinkParameters(cCoarse, lErrors, true) || !cProcessor->attachFrameSink(cSink, lErrors) ||
        !cSource->attachFrameSink(cProcessor, lErrors))
        return 5;
    cSource->deliverFrame(framed(constant(4096), 0), false);
    return cSink->nextFrame(30000, false) ? 0 : 6;
}

}  // namespace

TEST(IQToSpectrumDeathTest, BlockThatNoMemoryHoldsEndsTheThreadAndNothingElse) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    EXPECT_EXIT(_exit(runOutOfMemory()), testing::ExitedWithCode(0), "");
}
#endif
