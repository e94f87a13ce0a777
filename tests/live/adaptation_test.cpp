#include <array>
#include <cmath>
#include <optional>
#include <thread>

#include "live/spectra.h"

// A stream with adaptFull finds its reference level by measuring. What it must find is computed here from the
// level on the air and what the unit's gains and attenuators do to it.

namespace {

using namespace std::chrono_literals;

constexpr double kCentreHz = 400e6;
constexpr const char* kListStart = "SWEEP:LIST:START";

/// Peak of a tone on the digitizer in dB of full scale. Real samples show twice the amplitude, and full scale is
/// the most that they can show.
double peakdB(double levelDbm, double referenceDbm) {
    return std::min(levelDbm - referenceDbm - 12.7678 + 6.0206, 0.0);
}

/// The reference level that stands for the setting which brings the tone closest below the limit. `bStages`:
/// the unit has named gain stages, which a trial leaves as they are.
double expectedLevel(double levelDbm, bool bStages, double unitGaindB) {
    struct Setting {
        double mfAttenuation;
        double mfReference;   // 0: no row of the model's table has it
    };
    // With stages: high without attenuation, then low with 10, 20 and 30 dB; of a tie the first one counts.
    const std::array<Setting, 4> kStages = {{{0, -20}, {10, 10}, {20, 0}, {30, 0}}};
    const std::array<Setting, 4> kPlain = {{{0, -20}, {10, -10}, {20, 0}, {30, 10}}};
    constexpr double kLimit = -3;
    double best = -1000;
    double chosen = bStages ? 0 : -20;   // none below the limit: low without attenuation
    for (const Setting& cSetting : bStages ? kStages : kPlain) {
        const double peak = peakdB(levelDbm, -20 + unitGaindB + cSetting.mfAttenuation);
        if (peak > best && peak <= kLimit) {
            best = peak;
            chosen = cSetting.mfReference;
        }
    }
    return chosen;
}

class Adaptation : public testing::Test {
 protected:
    static std::unique_ptr<live::Radio> make(const std::string& model) {
        auto cOptions = live::sweepOptions(model);
        cOptions.pace = vnksim::Pace::realTime;
        return std::make_unique<live::Radio>(cOptions);
    }
    void open(const std::string& model) { mpRadio = make(model); }
    void setTone(double levelDbm) {
        mpRadio->unit().setScene(vnksim::Scene().tone(kCentreHz + 10e3, levelDbm));
    }
    void change(const std::function<void(vnksim::FaultSettings&)>& edit) {
        mpRadio->unit().faults().change(edit);
    }
    /// Lost gain of the unit's stages as they stand.
    static double lostGain(live::Radio& cRadio) {
        const vnksim::UnitState cState = cRadio.unit().state();
        return (cState.gain1 ? 0 : 10) + (cState.gain2 ? 0 : 10);
    }
    static double secondsOf(const std::function<void()>& action) {
        const auto begin = std::chrono::steady_clock::now();
        action();
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    }
    /// One stream, from the attach to its first frame.
    static void adapt(live::Radio& cRadio, double levelDbm, bool bStages) {
        cRadio.unit().setScene(vnksim::Scene().tone(kCentreHz + 10e3, levelDbm));
        const double expected = expectedLevel(levelDbm, bStages, bStages ? lostGain(cRadio) : 0);
        live::Stream cStream(kCentreHz, 100e3, -55);
        ASSERT_EQ(cStream.set("{\"adaptFull\":true}"), 0);
        ASSERT_EQ(cStream.attach(cRadio.device()), 0);
        live::Frame cFrame;
        ASSERT_TRUE(cStream.next(cFrame)) << levelDbm << live::log();
        EXPECT_EQ(cFrame->sequence, 0u);
        EXPECT_FLOAT_EQ(cStream.number("RefdBm"), static_cast<float>(expected)) << levelDbm;
        double sum = 0;
        for (uint32_t i = 0; i < cFrame->sampleCount; ++i)
            sum += std::norm(cFrame.samples()[i]);
        // What the unit stands at now, by the level that it was given for the capture.
        const vnksim::UnitState cState = cRadio.unit().state();
        const double reference = vnksim::referenceLevelDbm(cRadio.unit().options().model, cState.gain1,
                                                           cState.gain2, cState.attenuation);
        if (levelDbm - reference < 12.0 && levelDbm - reference > -50) {
            EXPECT_NEAR(10 * std::log10(sum / cFrame->sampleCount), levelDbm, 0.2);
        }
    }
    /// Twenty levels, two on each of ten units at once: a trial takes its time whatever the machine does.
    static void adaptAtTwentyLevels(const char* pModel, bool bStages) {
        std::vector<std::unique_ptr<live::Radio>> lRadios;
        for (int i = 0; i < 10; ++i)
            lRadios.push_back(make(pModel));
        std::vector<std::thread> lThreads;
        for (int i = 0; i < 10; ++i)
            lThreads.emplace_back([&, i] {
                for (const int iLevel : {i, i + 10})
                    adapt(*lRadios[static_cast<size_t>(i)], -60.5 + 4 * iLevel, bStages);
            });
        for (std::thread& cThread : lThreads)
            cThread.join();
    }

    std::unique_ptr<live::Radio> mpRadio;
};

}  // namespace

TEST_F(Adaptation, FindsTheSettingOfAModelWithGainStagesAtTwentyLevels) {
    adaptAtTwentyLevels("ZV150-C", true);
}

TEST_F(Adaptation, FindsTheSettingOfAModelWithoutGainStagesAtTwentyLevels) {
    adaptAtTwentyLevels("ZV100-A", false);
}

TEST_F(Adaptation, MeasuresInTheDirectRangeToo) {
    open("ZV100-A");
    mpRadio->unit().setScene(vnksim::Scene().tone(10e6, -10));
    live::Stream cStream(10e6, 100e3, -55);
    ASSERT_EQ(cStream.set("{\"adaptFull\":true}"), 0);
    ASSERT_EQ(cStream.attach(mpRadio->device()), 0);
    live::Frame cFrame;
    ASSERT_TRUE(cStream.next(cFrame)) << live::log();
    EXPECT_FLOAT_EQ(cStream.number("RefdBm"), static_cast<float>(expectedLevel(-10, false, 0)));
    EXPECT_GE(mpRadio->journal().count(":sweep:entry:mode DD"), 1u);
}

TEST_F(Adaptation, NoFrameComesBeforeItIsFinishedAndTheFirstOneHasTheNewLevel) {
    open("ZV150-C");
    setTone(-10);
    change([](auto& f) { f.dropEvery = 1; });
    live::Stream cStream(kCentreHz, 100e3, -55);
    ASSERT_EQ(cStream.set("{\"adaptFull\":true}"), 0);
    ASSERT_EQ(cStream.attach(mpRadio->device()), 0);
    ASSERT_TRUE(mpRadio->journal().waitFor("SWEEP:LIST:START 1", 20s));
    live::Frame cFrame;
    EXPECT_EQ(cStream.read(cFrame, 500), 3);
    EXPECT_FLOAT_EQ(cStream.number("RefdBm"), -55);
    EXPECT_EQ(mpRadio->journal().count(":TRACe:STReam:STARt"), 0u);
    EXPECT_EQ(mpRadio->journal().count(":INPut:GAIN"), 0u) << "gains stay as they are";
    cStream.detach();
    change([](auto& f) { f = {}; });
    ASSERT_EQ(cStream.attach(mpRadio->device()), 0);
    ASSERT_TRUE(cStream.next(cFrame)) << live::log();
    EXPECT_EQ(cFrame->sequence, 0u);
    EXPECT_FLOAT_EQ(cStream.number("RefdBm"), 10) << "low with 10 dB";
    EXPECT_EQ(mpRadio->unit().state().attenuation, 10u);
}

TEST_F(Adaptation, ADetachWithNoPacketsOrTooFewOfThemEndsItInBoundedTime) {
    for (const char* pModel : {"ZV150-C", "ZV100-A"})
        for (const unsigned uEvery : {1u, 2u}) {
            open(pModel);
            change([&](auto& f) { f.dropEvery = uEvery; });
            const double seconds = secondsOf([&] {
                live::Stream cStream(kCentreHz, 100e3, -55);
                ASSERT_EQ(cStream.set("{\"adaptFull\":true}"), 0);
                ASSERT_EQ(cStream.attach(mpRadio->device()), 0);
                ASSERT_TRUE(mpRadio->journal().waitFor(kListStart, 20s));
                live::Frame cFrame;
                EXPECT_EQ(cStream.read(cFrame, 200), 3);
                cStream.detach();
                EXPECT_EQ(vnkIsAttached(cStream.handle()), 5);
            });
            EXPECT_LT(seconds, 12.0) << pModel << " " << uEvery;
            change([](auto& f) { f = {}; });
            live::Stream cNext(kCentreHz, 100e3, -20);
            live::Frame cFrame;
            ASSERT_EQ(cNext.attach(mpRadio->device()), 0);
            EXPECT_TRUE(cNext.next(cFrame)) << live::log();
        }
}

TEST_F(Adaptation, ADetachWhileATrialWaitsForItsStartEndsInBoundedTime) {
    open("ZV150-C");
    change([](auto& f) { f.identifierMissing = true; });
    live::Stream cStream(kCentreHz, 100e3, -55);
    ASSERT_EQ(cStream.set("{\"adaptFull\":true}"), 0);
    ASSERT_EQ(cStream.attach(mpRadio->device()), 0);
    ASSERT_TRUE(mpRadio->journal().waitFor(kListStart, 20s));
    EXPECT_LT(secondsOf([&] { cStream.detach(); }), 12.0);
    EXPECT_LT(secondsOf([&] { mpRadio->device().close(); }), 12.0);
}

TEST_F(Adaptation, PacketsTooManyStillEndItWithALevelOfTheTable) {
    for (const char* pModel : {"ZV150-C", "ZV100-A"}) {
        open(pModel);
        setTone(-30);
        change([](auto& f) { f.repeatBlockEvery = 1; });
        live::Stream cStream(kCentreHz, 100e3, -55);
        ASSERT_EQ(cStream.set("{\"adaptFull\":true}"), 0);
        ASSERT_EQ(cStream.attach(mpRadio->device()), 0);
        live::Frame cFrame;
        ASSERT_TRUE(cStream.next(cFrame)) << live::log();
        EXPECT_FLOAT_EQ(cStream.number("RefdBm"), -20) << "far below the limit without attenuation";
    }
}
