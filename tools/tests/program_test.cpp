// What a user gets from `vnk` at the shell: verbs, outputs and exit codes. The samples are in
// iq_program_test.cpp.
#include "program.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "recordings.h"
#include "simulator/unit.h"
#include "support/loopback.h"

using vnktest::Ran;
using vnktest::runVnk;

namespace {

class VnkProgram : public ::testing::Test {
 protected:
    VnkProgram() {
        vnksim::UnitOptions options;
        options.address = mcAddress;
        options.model = "ZV350-C";
        options.serial = "TOOL0001";
        mpUnit = std::make_unique<vnksim::Unit>(options);
        mpUnit->start();
    }
    std::string mcAddress = vnktest::uniqueLoopback();
    std::unique_ptr<vnksim::Unit> mpUnit;
};

bool holds(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

}  // namespace

TEST(VnkUsage, HelpAndVersionGoToStandardOutput) {
    const Ran help = runVnk({"--help"});
    EXPECT_EQ(help.code, 0);
    for (const char* pVerb :
         {"find", "info", "scpi", "params", "iq", "record", "play", "file", "recover", "Exit codes"})
        EXPECT_TRUE(holds(help.out, pVerb)) << pVerb;
    EXPECT_EQ(help.err, "");
    EXPECT_EQ(runVnk({"iq", "--help"}).code, 0);
    const Ran version = runVnk({"--version"});
    EXPECT_EQ(version.code, 0);
    EXPECT_EQ(version.out.rfind("libVNK - ", 0), 0u) << version.out;
}

TEST(VnkUsage, WhatIsNotUnderstoodIsExitCode2) {
    const std::vector<std::vector<std::string>> wrong{
        {},
        {"tune"},
        {"info"},
        {"scpi", "127.0.0.1"},
        {"params", "127.0.0.1", "novalue"},
        {"iq", "127.0.0.1"},
        {"iq", "127.0.0.1", "--fcentre", "98.1m", "--ifbw", "200k"},
        {"iq", "127.0.0.1", "--fcentre", "-1M", "--ifbw", "200k"},
        {"iq", "127.0.0.1", "--fcentre", "98.1M", "--ifbw", "200k", "--ref", "loud"},
        {"iq", "127.0.0.1", "--fcentre", "98.1M", "--ifbw", "200k", "--detect", "fm"},
        {"iq", "127.0.0.1", "--fcentre", "1M", "--ifbw", "4M"},
        {"iq", "127.0.0.1", "--fcentre", "98.1M", "--ifbw", "200k", "--finite", "--seconds", "0"},
        {"iq", "127.0.0.1", "--fcentre", "98.1M", "--ifbw", "200k", "--json", "-o", "-"},
        {"record"},
        {"record", "127.0.0.1"},
        {"record", "127.0.0.1", "iq", "--fcentre", "98.1M", "--ifbw", "200k"},
        {"record", "127.0.0.1", "iq", "--fcentre", "98.1M", "-o", "x"},
        {"record", "127.0.0.1", "spectrum", "--fcentre", "98.1M", "--ifbw", "200k", "-o", "x"},
        {"record", "127.0.0.1", "iq", "--fcentre", "1M", "--ifbw", "4M", "-o", "x"},
        {"record", "127.0.0.1", "iq", "--fcentre", "98.1M", "--ifbw", "200k", "-o", "a\\b"},
        {"record", "127.0.0.1", "iq", "--fcentre", "98.1M", "--ifbw", "200k", "-o", "folder/"},
        {"record", "127.0.0.1", "iq", "--fcentre", "98.1M", "--ifbw", "200k", "-o", "-"},
        {"play"},
        {"play", "x", "--json", "-o", "-"},
        {"play", "x", "--detect", "fm"},
        {"play", "a\\b"},
        {"file"},
        {"file", "x", "y"},
        {"recover"},
        {"recover", "x", "--rate", "fast"},
        {"recover", "x", "--units", "a\"b"},
        {"recover", "x", "--resolution", "m"}};
    for (const auto& arguments : wrong) {
        const Ran ran = runVnk(arguments);
        EXPECT_EQ(ran.code, 2) << ::testing::PrintToString(arguments) << ran.err;
        EXPECT_EQ(ran.out, "") << ::testing::PrintToString(arguments);
        EXPECT_NE(ran.err, "") << ::testing::PrintToString(arguments);
    }
}

TEST(VnkUsage, AnAddressWhereNothingAnswersIsExitCode4) {
    const vnktest::ScratchFolder folder;
    const std::string address = vnktest::uniqueLoopback();
    const std::vector<std::vector<std::string>> verbs{
        {"info", address},
        {"scpi", address, "*IDN?"},
        {"params", address},
        {"iq", address, "--fcentre", "98.1M", "--ifbw", "200k", "--seconds", "1"},
        {"record", address, "iq", "--fcentre", "98.1M", "--ifbw", "200k", "-o", folder / "x"}};
    for (const auto& arguments : verbs) {
        const Ran ran = runVnk(arguments);
        EXPECT_EQ(ran.code, 4) << ::testing::PrintToString(arguments);
        EXPECT_TRUE(holds(ran.err, "Cannot open SCPI connection to " + address)) << ran.err;
    }
    EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

TEST(VnkUsage, FindWithoutAnyUnitIsExitCode3) {
    const Ran ran = runVnk({"find", "--no-broadcast", vnktest::uniqueLoopback()});
    EXPECT_EQ(ran.code, 3);
    EXPECT_EQ(ran.out, "");
    EXPECT_TRUE(holds(ran.err, "no unit found")) << ran.err;
    EXPECT_EQ(runVnk({"find", "--no-broadcast", "--json", vnktest::uniqueLoopback()}).out, "[]\n");
}

TEST_F(VnkProgram, FindAsksGivenAddresses) {
    const Ran ran = runVnk({"find", "--no-broadcast", mcAddress, vnktest::uniqueLoopback(), mcAddress});
    EXPECT_EQ(ran.code, 0) << ran.err;
    EXPECT_TRUE(holds(ran.out, mcAddress) && holds(ran.out, "ZV350-C") && holds(ran.out, "TOOL0001"))
        << ran.out;
    EXPECT_EQ(std::count(ran.out.begin(), ran.out.end(), '\n'), 1);
    const auto json = nlohmann::json::parse(runVnk({"find", "--no-broadcast", "--json", mcAddress}).out);
    ASSERT_EQ(json.size(), 1u);
    EXPECT_EQ(json[0]["address"], mcAddress);
    EXPECT_EQ(json[0]["serial"], "TOOL0001");
}

TEST_F(VnkProgram, InfoShowsIdentityAndState) {
    const Ran ran = runVnk({"info", mcAddress});
    EXPECT_EQ(ran.code, 0) << ran.err;
    EXPECT_EQ(ran.err, "");
    for (const char* part : {"ZV350-C", "TOOL0001", "RxSampleRate", "deviceTemperature", "pllSource"})
        EXPECT_TRUE(holds(ran.out, part)) << part << "\n" << ran.out;
    const auto json = nlohmann::json::parse(runVnk({"info", "--json", mcAddress}).out);
    EXPECT_EQ(json["type"], "ZV350-C");
    EXPECT_EQ(json["parameters"]["RxSampleRate"], 125e6);
}

TEST_F(VnkProgram, ScpiRepliesGoToStandardOutput) {
    const Ran ran = runVnk({"scpi", mcAddress, "*IDN?", ":SYSTem:CAPTure:MODE?"});
    EXPECT_EQ(ran.code, 0) << ran.err;
    EXPECT_TRUE(holds(ran.out, "ZV350-C")) << ran.out;
    EXPECT_TRUE(holds(ran.out, "\nBLOCK\n")) << ran.out;
    EXPECT_EQ(ran.err, "");
}

TEST_F(VnkProgram, ScpiCommandsReachTheUnit) {
    EXPECT_EQ(runVnk({"scpi", mcAddress, "SYSTEM:COMMUNICATE:NTP 192.168.7.7", "*IDN?"}).code, 0);
    EXPECT_EQ(mpUnit->state().ntpServers, "192.168.7.7");
}

TEST_F(VnkProgram, AQueryWithoutReplyIsExitCode1) {
    mpUnit->faults().change([](vnksim::FaultSettings& faults) { faults.noReplyTo = "NONSENSE"; });
    const Ran ran = runVnk({"scpi", mcAddress, "NONSENSE?"});
    EXPECT_EQ(ran.code, 1) << ran.err;
    EXPECT_TRUE(holds(ran.err, "NONSENSE?: Attempt to execute SCPI query failed.")) << ran.err;
}

TEST_F(VnkProgram, ParamsAreSetAndShownWithTheirMeaning) {
    const Ran ran = runVnk({"params", mcAddress, "pllSource=external", "SCPIQueryTimeout=1500"});
    EXPECT_EQ(ran.code, 0) << ran.err;
    EXPECT_TRUE(holds(ran.out, "pllSource=external")) << ran.out;
    EXPECT_TRUE(holds(ran.out, "PLL disciplining source\n")) << ran.out;
    EXPECT_TRUE(holds(ran.out, "SCPIQueryTimeout=1500 ")) << ran.out;
    EXPECT_EQ(mpUnit->state().pll, "EXT");
    const auto json = nlohmann::json::parse(runVnk({"params", "--json", mcAddress}).out);
    EXPECT_EQ(json["RxSampleRate"]["value"], 125e6);
}

TEST_F(VnkProgram, WholeNumbersReachIntegerParameters) {
    EXPECT_EQ(runVnk({"params", mcAddress, "GNSSAntDelay=25"}).code, 0);
    EXPECT_EQ(mpUnit->state().antennaDelay, 25);
}

TEST_F(VnkProgram, ARefusedParameterIsExitCode1WithItsReason) {
    const Ran value = runVnk({"params", mcAddress, "pllSource=moon"});
    EXPECT_EQ(value.code, 1);
    EXPECT_TRUE(holds(value.err, "PLLSource 'moon' is not valid")) << value.err;
    const Ran key = runVnk({"params", mcAddress, "colour=red"});
    EXPECT_EQ(key.code, 1);
    EXPECT_TRUE(holds(key.err, "Unknown parameter 'colour'")) << key.err;
}
