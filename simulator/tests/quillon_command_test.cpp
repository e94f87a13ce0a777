#include "simulator/tests/quillon.h"

namespace simtest {
namespace {

using QuillonCommands = QuillonTest;

const char* const kNone = "0,\"No error\"";
const char* const kRange = "-222,\"Data out of range\"";
const char* const kUndefined = "-113,\"Undefined header\"";

TEST_F(QuillonCommands, modelsStandBehindThoseOfTheFirstFamilyAndIdentifyThemselves) {
    const auto all = vnksim::modelNames();
    const auto own = vnksim::modelNames(vnksim::Family::second);
    ASSERT_EQ(all.size(), 13u + own.size());
    EXPECT_EQ(std::vector<std::string>(all.begin() + 13, all.end()), own);
    for (const char* name : {"Quillon", "Dravik", "unknown"}) {
        EXPECT_NE(std::find(own.begin(), own.end(), name), own.end()) << name;
    }
    for (const std::string& model : own) {
        EXPECT_EQ(vnksim::familyOf(model), vnksim::Family::second);
        startQuillon({}, model);
        EXPECT_EQ(mpScpi->ask("*IDN?"), "Varnik," + model + " 1.0,SIM00001,2.8.1");
    }
    EXPECT_EQ(vnksim::familyOf("ZV150-C"), vnksim::Family::first);
    EXPECT_THROW(vnksim::familyOf("ZV150"), std::invalid_argument);
}

TEST_F(QuillonCommands, theUnitTellsItsTunableRangeAndHoldsToIt) {
    mcOptions.lowestHz = 20e6;
    mcOptions.highestHz = 6.2e9;
    startQuillon();
    EXPECT_EQ(std::stof(mpScpi->ask(":sense:freq:center? min").value_or("")), 20e6f);
    EXPECT_EQ(std::stof(mpScpi->ask(":sense:freq:center? max").value_or("")), 6.2e9f);
    EXPECT_EQ(mpScpi->errorAfter("FREQ:CENT 20000000 Hz"), kNone);
    EXPECT_EQ(mpScpi->errorAfter("FREQ:CENT 6200000000 Hz"), kNone);
    EXPECT_EQ(mpScpi->ask("FREQ:CENT?"), "6200000000");
    EXPECT_EQ(mpScpi->errorAfter("FREQ:CENT 6200000001 Hz"), kRange);
    EXPECT_EQ(mpScpi->errorAfter("FREQ:CENT 19999999 Hz"), kRange);
    EXPECT_EQ(mpScpi->errorAfter(":sweep:entry:freq:cent 30000000, 6200000001"), kRange);
    EXPECT_EQ(mpScpi->errorAfter(":sense:freq:center? middle"), "-224,\"Illegal parameter value\"");
    EXPECT_EQ(mpScpi->errorAfter("*RST"), kNone);
    EXPECT_EQ(mpUnit->state().centreHz, 100e6);
}

TEST_F(QuillonCommands, aRangeUpsideDownIsRefused) {
    mcOptions.lowestHz = 2e9;
    mcOptions.highestHz = 1e9;
    mcOptions.model = "Quillon";
    EXPECT_THROW(vnksim::Unit unit(mcOptions), std::invalid_argument);
}

TEST_F(QuillonCommands, continuousSetupIsTakenInOneLine) {
    startQuillon();
    EXPECT_EQ(mpScpi->errorAfter(":TRACe:SPPacket 32768;:SENSE:DEC 1;FREQ:CENT 98100000 Hz;"
                                 ":DEBUG:REFERENCE:LEVEL -25"),
              kNone);
    const auto state = mpUnit->state();
    EXPECT_EQ(state.samplesPerPacket, 32768u);
    EXPECT_EQ(state.decimation, 1u);
    EXPECT_EQ(state.centreHz, 98.1e6);
    EXPECT_EQ(state.referenceLevelDbm, -25);
    EXPECT_EQ(mpScpi->ask(":DEBUG:REFERENCE:LEVEL?;:SENSE:DEC?;:TRACe:SPPacket?"), "-25;1;32768");
}

TEST_F(QuillonCommands, theReferenceLevelIsAWholeNumberWithinItsLimits) {
    startQuillon();
    for (int level : {-40, 0, 10}) {
        EXPECT_EQ(mpScpi->errorAfter(":DEBUG:REFERENCE:LEVEL " + std::to_string(level)), kNone);
        EXPECT_EQ(mpUnit->state().referenceLevelDbm, level);
    }
    EXPECT_EQ(mpScpi->errorAfter(":DEBUG:REFERENCE:LEVEL -41"), kRange);
    EXPECT_EQ(mpScpi->errorAfter(":DEBUG:REFERENCE:LEVEL 11"), kRange);
    EXPECT_EQ(mpScpi->errorAfter(":DEBUG:REFERENCE:LEVEL -20.5"), "-104,\"Data type error\"");
    EXPECT_EQ(mpScpi->errorAfter(":DEBUG:REFERENCE:LEVEL"), "-109,\"Missing parameter\"");
    EXPECT_EQ(mpUnit->state().referenceLevelDbm, 10);
    mpScpi->send("*RST");
    EXPECT_EQ(mpScpi->ask(":DEBUG:REFERENCE:LEVEL?"), "0");
}

TEST_F(QuillonCommands, decimationsArePowersOfTwoAndPacketsHaveTheirOwnLimit) {
    startQuillon();
    for (const std::string header : {":SENSE:DEC ", ":sweep:entry:dec "}) {
        for (unsigned decimation = 1; decimation <= 1024; decimation *= 2) {
            EXPECT_EQ(mpScpi->errorAfter(header + std::to_string(decimation)), kNone) << decimation;
        }
        for (const char* wrong : {"0", "3", "100", "1023", "2048", "-4"}) {
            EXPECT_EQ(mpScpi->errorAfter(header + wrong), kRange) << wrong;
        }
        EXPECT_EQ(mpScpi->errorAfter(header + "OFF"), "-104,\"Data type error\"");
    }
    for (const std::string header : {":TRACe:SPPacket ", ":sweep:entry:spp "}) {
        EXPECT_EQ(mpScpi->errorAfter(header + "256"), kNone);
        EXPECT_EQ(mpScpi->errorAfter(header + "32768"), kNone);
        EXPECT_EQ(mpScpi->errorAfter(header + "32800"), kRange);
        EXPECT_EQ(mpScpi->errorAfter(header + "224"), kRange);
        EXPECT_EQ(mpScpi->errorAfter(header + "1000"), kRange);
    }
}

TEST_F(QuillonCommands, whatTheOtherFamilyHasIsUnknown) {
    startQuillon();
    for (const char* command :
         {"INPUT:MODE SH", ":INPut:GAIN 1 1", ":INPut:ATTenuator 10", ":INPut:ATTenuator:VARiable 10",
          ":sweep:entry:mode SH", ":sweep:entry:att 10", ":sweep:entry:att:var 10"}) {
        EXPECT_EQ(mpScpi->errorAfter(command), kUndefined) << command;
    }
    EXPECT_EQ(mpScpi->errorAfter(":GNSS:ADELay 5"), "-241,\"Hardware missing\"");
    EXPECT_EQ(mpScpi->errorAfter(":SOURce:REFerence:PLL GNSS"), "-241,\"Hardware missing\"");
    startUnit({}, "ZV150-C");
    EXPECT_EQ(mpScpi->errorAfter(":DEBUG:REFERENCE:LEVEL 0"), kUndefined);
    EXPECT_EQ(mpScpi->errorAfter("DATA:CORrection::SIGNAL:READ? 48, 6"), kUndefined);
    EXPECT_EQ(mpScpi->ask(":sense:freq:center? min;:sense:freq:center? max"), "9000;27000000512");
}

TEST_F(QuillonCommands, whatBothFamiliesHaveWorksAsInTheFirst) {
    startQuillon();
    EXPECT_EQ(mpScpi->ask("SYST:LOCK:REQ? ACQ;:SYSTem:CAPTure:MODE?;SYSTEM:OPTIONS?"), "1;BLOCK;000");
    EXPECT_EQ(mpScpi->errorAfter(":SOURce:REFerence:PLL INT;:SYSTem:TIME:SYNC NTP,ONCE;:SYSTEM:FLUSH"),
              kNone);
    mpScpi->send(":TRACe:STReam:STARt 5");
    EXPECT_EQ(mpScpi->ask(":SYSTem:CAPTure:MODE?"), "STREAMING");
    mpScpi->send(":SYSTEM:ABORT");
    EXPECT_EQ(mpScpi->ask(":SYSTem:CAPTure:MODE?"), "BLOCK");
    mpScpi->send(":sweep:entry:new;:sweep:entry:save;:sweep:list:iter 0;SWEEP:LIST:START 6");
    EXPECT_EQ(mpScpi->ask(":SYSTem:CAPTure:MODE?;:SWEEP:LIST:STATUS?"), "SWEEPING;RUNNING");
    mpScpi->send("*RST");
    EXPECT_EQ(mpScpi->ask(":SYSTem:CAPTure:MODE?;:SWEEP:LIST:STATUS?"), "BLOCK;STOPPED");
}

TEST_F(QuillonCommands, sweepListIsBuiltEntryByEntry) {
    startQuillon();
    EXPECT_EQ(mpScpi->errorAfter(":DEBUG:REFERENCE:LEVEL -10"), kNone);
    EXPECT_EQ(
        mpScpi->errorAfter(":sweep:entry:delete all;:sweep:entry:new;:sweep:list:iter 0;"
                           ":sweep:entry:freq:step 98000000;:sweep:entry:freq:cent 118000000, 314000000;"
                           ":sweep:entry:spp 32768;:sweep:entry:ppb 4;:sweep:entry:dec 1;:sweep:entry:save"),
        kNone);
    const auto state = mpUnit->state();
    EXPECT_EQ(state.iterations, 0u);
    ASSERT_EQ(state.list.size(), 1u);
    EXPECT_EQ(state.list[0].centreFirst, 118000000u);
    EXPECT_EQ(state.list[0].centreLast, 314000000u);
    EXPECT_EQ(state.list[0].centreStep, 98000000u);
    EXPECT_EQ(state.list[0].packetsPerBlock, 4u);
    EXPECT_EQ(state.list[0].samplesPerPacket, 32768u);
}

TEST_F(QuillonCommands, correctionDataComeByTheirCommandsWithEitherColon) {
    mcOptions.corrections.signal = vnksim::makeCorrectionSet({{60000, 0}, {200000, 1}}, {{1, 2}, {3, 4}});
    mcOptions.corrections.noise = vnksim::makeCorrectionSet({{70000, 0}}, {{5}});
    startQuillon();
    EXPECT_EQ(mpScpi->ask("DATA:CORRECTION:SIGNAL:SIZE?"), std::to_string(48 + 2 * 6 + 2 * 10));
    EXPECT_EQ(mpScpi->ask("DATA:CORrection:NOISe:SIZE?"), std::to_string(48 + 6 + 6));
    const auto read = [this](const std::string& query, size_t size) {
        mpScpi->send(query);
        const std::string prefix = "#" + std::to_string(std::to_string(size).size()) + std::to_string(size);
        const auto bytes = mpScpi->receive(prefix.size() + size + 1);
        EXPECT_EQ(std::string(bytes.begin(), bytes.begin() + static_cast<long>(prefix.size())), prefix);
        return std::vector<uint8_t>(bytes.begin() + static_cast<long>(prefix.size()), bytes.end() - 1);
    };
    const auto& signal = mcOptions.corrections.signal;
    const auto& noise = mcOptions.corrections.noise;
    const auto part = [](const std::vector<uint8_t>& all, long from, long size) {
        return std::vector<uint8_t>(all.begin() + from, all.begin() + from + size);
    };
    EXPECT_EQ(read("DATA:CORrection:SIGNAL:READ? 0, 48", 48), part(signal, 0, 48));
    EXPECT_EQ(read("DATA:CORrection::SIGNAL:READ? 48, 12", 12), part(signal, 48, 12));
    EXPECT_EQ(read("DATA:CORRECTION:SIGNAL:READ? 70, 10", 10), part(signal, 70, 10));
    EXPECT_EQ(read("DATA:CORrection:NOISe:READ? 0, 48", 48), part(noise, 0, 48));
    EXPECT_EQ(read("DATA:CORrection::NOISe:READ? 48, 6", 6), part(noise, 48, 6));
    EXPECT_EQ(read("DATA:CORRECTION:NOISe:READ? 54, 6", 6), part(noise, 54, 6));
}

}  // namespace
}  // namespace simtest
