#include "quillon/tuning.h"

#include <gmock/gmock.h>

#include "support/logs.h"
#include "unit/quillon/quillonpackets.h"

using Quillon::readTuning;
using testing::ElementsAre;
using namespace vnktest;

TEST(QuillonTuning, AContextTellsFrequencyAndLevelAndIsLogged) {
    takeLogTexts();
    const Quillon::Tuning cTuning = readTuning(*rawTuning(uint64_t{98100000} << 20, -20 * 128 - 32));
    EXPECT_EQ(cTuning.mcFrequencyHz, 98100000u);
    EXPECT_EQ(cTuning.mcReferenceLevel, -20.25f);
    EXPECT_THAT(takeLogTexts(), ElementsAre("IFContext FCentre:9.8100e+07Hz, ref level -20.2500"));
}

TEST(QuillonTuning, WhatIsNotToldIsEmpty) {
    takeLogTexts();
    const Quillon::Tuning cFrequency = readTuning(*tunedTo(1000000));
    EXPECT_EQ(cFrequency.mcFrequencyHz, 1000000u);
    EXPECT_FALSE(cFrequency.mcReferenceLevel);
    const Quillon::Tuning cLevel = readTuning(*levelOf(5));
    EXPECT_FALSE(cLevel.mcFrequencyHz);
    EXPECT_EQ(cLevel.mcReferenceLevel, 5.0f);
    const Quillon::Tuning cNothing = readTuning(*rawTuning({}, {}));
    EXPECT_FALSE(cNothing.mcFrequencyHz);
    EXPECT_FALSE(cNothing.mcReferenceLevel);
    EXPECT_THAT(takeLogTexts(), ElementsAre("IFContext FCentre:1.0000e+06Hz, ref level 0.0000",
                                            "IFContext FCentre:0.0000e+00Hz, ref level 5.0000",
                                            "IFContext FCentre:0.0000e+00Hz, ref level 0.0000"));
}

TEST(QuillonTuning, EveryLevelOfTheFieldIsTakenZeroToo) {
    for (const int iLevel : {0, -128, -128 * 128, 32767, -32768, 1, -1})
        EXPECT_EQ(readTuning(*rawTuning({}, iLevel)).mcReferenceLevel, static_cast<float>(iLevel) / 128.0f) << iLevel;
}

TEST(QuillonTuning, AHighFrequencyIsExactAndAFractionOfAHertzIsRounded) {
    EXPECT_EQ(readTuning(*tunedTo(19999999999)).mcFrequencyHz, 19999999999u);
    constexpr uint64_t kHalf = 1u << 19;
    constexpr uint64_t kExact = uint64_t{1234567890} << 20;
    EXPECT_EQ(readTuning(*rawTuning(kExact + kHalf, {})).mcFrequencyHz, 1234567891u);
    EXPECT_EQ(readTuning(*rawTuning(kExact + kHalf - 1, {})).mcFrequencyHz, 1234567890u);
    EXPECT_EQ(readTuning(*rawTuning(kExact - kHalf, {})).mcFrequencyHz, 1234567890u);
}
