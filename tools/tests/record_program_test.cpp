// `vnk record` against simulated units: names, endings, what stands on disk afterwards.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include <nlohmann/json.hpp>

#include "libvnk.h"
#include "program.h"
#include "recordings.h"
#include "simulator/unit.h"
#include "support/loopback.h"

using vnktest::contents;
using vnktest::fileExists;
using vnktest::Program;
using vnktest::Ran;
using vnktest::runVnk;

namespace {

class VnkRecord : public ::testing::Test {
 protected:
    VnkRecord() {
        vnksim::UnitOptions options;
        options.address = mcAddress;
        vnksim::Scene scene;
        scene.noise(-130).tone(98.12e6, -40);
        mpUnit = std::make_unique<vnksim::Unit>(options, scene);
        mpUnit->start();
    }

    std::vector<std::string> command(const std::string& name, std::vector<std::string> further) const {
        std::vector<std::string> arguments{"record", mcAddress, "iq", "--fcentre", "98.1M",
                                           "--ifbw", "200k",    "-o", name};
        arguments.insert(arguments.end(), further.begin(), further.end());
        return arguments;
    }

    /// The recording's description, which must be there.
    static nlohmann::json description(const std::string& stem) {
        return nlohmann::json::parse(contents(stem + ".json"));
    }

    std::string mcAddress = vnktest::uniqueLoopback();
    std::unique_ptr<vnksim::Unit> mpUnit;
    vnktest::ScratchFolder mcFolder;
};

bool holds(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

/// Waits until the file has this size.
bool waitForSize(const std::string& path, size_t bytes) {
    return vnktest::waitUntil([&] {
        struct stat status {};
        return ::stat(path.c_str(), &status) == 0 && static_cast<size_t>(status.st_size) >= bytes;
    });
}

/// Plays a recording into a stream that records again, through the library.
void recordAgain(const std::string& libraryPath, const std::string& libraryCopy) {
    uint32_t uStream = 0;
    ASSERT_EQ(vnkCreateIQStream(&uStream, 1e6f, 0.0f, 0.0f), 0);
    ASSERT_EQ(vnkSetStreamOutputFile(uStream, libraryCopy.c_str()), 0);
    ASSERT_EQ(vnkAttachStreamToFile(uStream, libraryPath.c_str()), 0);
    int32_t iStatus = 0;
    while (iStatus != 2) {
        vnkIQRecord* pRecord = nullptr;
        iStatus = vnkGetNextIQ(uStream, &pRecord, 1000);
        ASSERT_GE(iStatus, 0);
        if (iStatus == 0)
            vnkFreeIQ(&pRecord);
    }
    EXPECT_EQ(vnkClose(&uStream), 0);
}

}  // namespace

TEST_F(VnkRecord, MakesAPairThatIsWholeAndPlays) {
    const Ran ran = runVnk(command(mcFolder / "radio", {"--seconds", "0.5"}));
    ASSERT_EQ(ran.code, 0) << ran.err;
    EXPECT_EQ(ran.out, "");
    EXPECT_TRUE(holds(ran.err, "Recording to " + (mcFolder / "radio.json") + " and .data, room for "))
        << ran.err;
    EXPECT_TRUE(holds(ran.err, "(complete), 0 gaps")) << ran.err;
    EXPECT_TRUE(holds(ran.err, "Play it with:  vnk play " + (mcFolder / "radio"))) << ran.err;
    const Ran file = runVnk({"file", mcFolder / "radio", "--json"});
    ASSERT_EQ(file.code, 0) << file.err;
    const auto found = nlohmann::json::parse(file.out);
    EXPECT_EQ(found["agree"], true) << file.out;
    EXPECT_EQ(found["held"]["sequenceGaps"], 0);
    EXPECT_EQ(found["held"]["timeGaps"], 0);
    EXPECT_GE(found["recorded"]["seconds"], 0.5);
    EXPECT_EQ(found["recorded"]["centreHz"], 98.1e6);

    const Ran play = runVnk({"play", mcFolder / "radio.data", "-q", "--json", "-o", mcFolder / "radio.cf32"});
    ASSERT_EQ(play.code, 0) << play.err;
    const auto played = nlohmann::json::parse(play.out);
    EXPECT_EQ(played["samples"], found["held"]["samples"]);
    EXPECT_EQ(played["gaps"], 0);
    EXPECT_NEAR(played["spectrum"]["peakHz"].get<double>(), 98.12e6, 1000);
    EXPECT_NEAR(played["spectrum"]["peakdBm"].get<double>(), -40, 0.5);
    EXPECT_EQ(contents(mcFolder / "radio.cf32"), vnktest::iqSamples(contents(mcFolder / "radio.data")));
}

TEST_F(VnkRecord, WhatIsPlayedAndRecordedAgainIsTheSame) {
    ASSERT_EQ(runVnk(command(mcFolder / "first", {"--seconds", "0.3", "-q"})).code, 0);
    recordAgain(mcFolder.path() + "\\first.json", mcFolder.path() + "\\again.json");
    EXPECT_EQ(contents(mcFolder / "again.data"), contents(mcFolder / "first.data"));
    auto expected = description(mcFolder / "first");
    // A player does not take the level from the file.
    expected["Sampling"]["RefdBm"] = 0.0;
    EXPECT_EQ(description(mcFolder / "again"), expected);
}

TEST_F(VnkRecord, ANameThatIsTakenIsNumberedAndNothingOverwritten) {
    vnktest::writeFile(mcFolder / "x.data", "precious");
    vnktest::writeFile(mcFolder / "x-1.json", "also precious");
    ASSERT_EQ(::mkfifo((mcFolder / "x-2.data").c_str(), 0600), 0);
    const Ran ran = runVnk(command(mcFolder / "x.json", {"--seconds", "0.1", "--json"}));
    ASSERT_EQ(ran.code, 0) << ran.err;
    EXPECT_TRUE(
        holds(ran.err, (mcFolder / "x.data") + " is there already: the recording is " + (mcFolder / "x-3")))
        << ran.err;
    EXPECT_EQ(nlohmann::json::parse(ran.out)["recording"]["data"], mcFolder / "x-3.data");
    EXPECT_EQ(contents(mcFolder / "x.data"), "precious");
    EXPECT_EQ(contents(mcFolder / "x-1.json"), "also precious");
    EXPECT_EQ(description(mcFolder / "x-3")["DataType"], "IQ");
}

TEST_F(VnkRecord, NamesWithDotsBracketsAndBlanksAreTakenAsTheyAre) {
    std::filesystem::create_directory(mcFolder / "a.b(c");
    const std::string stem = mcFolder / "a.b(c/98.1 MHz (2)";
    for (const char* pTaken : {"", "-1"}) {
        const Ran ran = runVnk(command(stem, {"--seconds", "0.1", "-q"}));
        ASSERT_EQ(ran.code, 0) << ran.err;
        EXPECT_EQ(description(stem + pTaken)["DataType"], "IQ");
        EXPECT_EQ(runVnk({"file", stem + pTaken}).code, 0);
        EXPECT_EQ(runVnk({"play", stem + pTaken, "-q"}).code, 0);
    }
}

TEST_F(VnkRecord, InterruptedItEndsInGoodOrder) {
    for (const int iSignal : {SIGINT, SIGTERM, SIGHUP}) {
        const std::string stem = mcFolder / ("x" + std::to_string(iSignal));
        Program program(VNK_PROGRAM, command(stem, {"--seconds", "0", "--json"}));
        ASSERT_TRUE(waitForSize(stem + ".data", 1000)) << program.err();
        program.signal(iSignal);
        EXPECT_EQ(program.finish(), 0) << program.err();
        EXPECT_EQ(nlohmann::json::parse(program.out())["ending"], "interrupted");
        EXPECT_EQ(runVnk({"file", stem}).code, 0) << "the description is there";
    }
    EXPECT_TRUE(mpUnit->waitForMode("BLOCK", std::chrono::seconds(10))) << "the unit is left idle";
}

TEST_F(VnkRecord, KilledItLosesOnlyTheDescriptionWhichRecoverRebuilds) {
    const std::string stem = mcFolder / "killed";
    Program program(VNK_PROGRAM, command(stem, {"--seconds", "0", "-q"}));
    ASSERT_TRUE(waitForSize(stem + ".data", 300000));
    const Ran during = runVnk({"recover", stem});
    program.signal(SIGKILL);
    EXPECT_EQ(program.finish(), -SIGKILL);
    EXPECT_EQ(during.code, 7) << during.out << during.err;
    EXPECT_TRUE(holds(during.err, "is being written")) << during.err;
    ASSERT_EQ(contents(stem + ".json"), "");

    const Ran play = runVnk({"play", stem});
    EXPECT_EQ(play.code, 7);
    EXPECT_TRUE(holds(play.err, "vnk recover " + stem + ".data")) << play.err;
    const Ran recover = runVnk({"recover", stem + ".data", "--fcentre", "98.1M", "--bandwidth", "200k"});
    ASSERT_EQ(recover.code, 0) << recover.err;
    EXPECT_TRUE(holds(recover.out, "sample rate: 244.14")) << recover.out;
    const Ran again = runVnk({"play", stem, "-q", "--json", "-o", stem + ".cf32"});
    ASSERT_EQ(again.code, 0) << again.err;
    EXPECT_NEAR(nlohmann::json::parse(again.out)["spectrum"]["peakHz"].get<double>(), 98.12e6, 1000);
    EXPECT_EQ(contents(stem + ".cf32"), vnktest::iqSamples(contents(stem + ".data")));
}

TEST_F(VnkRecord, ARecoveredDescriptionIsTheOneThatWasLost) {
    const std::string stem = mcFolder / "x";
    ASSERT_EQ(runVnk(command(stem, {"--seconds", "0.3", "-q"})).code, 0);
    const std::string lost = contents(stem + ".json");
    vnktest::writeFile(stem + ".json", "");
    const Ran told = runVnk({"recover", stem, "--fcentre", "98.1M", "--bandwidth", "200k", "--ref", "-30",
                             "--rate", "244140.625"});
    ASSERT_EQ(told.code, 0) << told.err;
    EXPECT_EQ(contents(stem + ".json"), lost);
    ASSERT_EQ(runVnk(command(mcFolder / "other", {"--seconds", "0.1", "-q"})).code, 0);
    std::filesystem::remove(stem + ".json");
    ASSERT_EQ(runVnk({"recover", stem, "--like", mcFolder / "other"}).code, 0);
    EXPECT_EQ(contents(stem + ".json"), lost);
}

TEST_F(VnkRecord, ALostLinkLeavesTheRecordingWhole) {
    const std::string stem = mcFolder / "x";
    Program program(VNK_PROGRAM, command(stem, {"--seconds", "0", "-q"}));
    ASSERT_TRUE(waitForSize(stem + ".data", 100000));
    mpUnit->stop();
    EXPECT_EQ(program.finish(), 5) << program.err();
    EXPECT_EQ(runVnk({"file", stem}).code, 0);
}

TEST_F(VnkRecord, WithoutSamplesNoFileIsLeft) {
    mpUnit->faults().change([](vnksim::FaultSettings& faults) { faults.identifierMissing = true; });
    const Ran ran = runVnk(command(mcFolder / "x", {"--seconds", "1"}));
    EXPECT_EQ(ran.code, 1) << ran.err;
    EXPECT_TRUE(holds(ran.err, "Nothing was recorded")) << ran.err;
    EXPECT_TRUE(std::filesystem::is_empty(mcFolder.path()));
}

TEST_F(VnkRecord, ADiskThatIsTooSmallIsRefusedBeforeAnythingIsMade) {
    const Ran ran = runVnk(command(mcFolder / "x", {"--seconds", "100000h"}));
    EXPECT_EQ(ran.code, 7);
    EXPECT_TRUE(holds(ran.err, "need 703 TB, the disk has room for ")) << ran.err;
    EXPECT_TRUE(std::filesystem::is_empty(mcFolder.path()));
}

TEST_F(VnkRecord, FileTroubleIsExitCode7BeforeTheUnitIsAsked) {
    const Ran missing = runVnk(command(mcFolder / "no/x", {}));
    EXPECT_EQ(missing.code, 7);
    EXPECT_TRUE(holds(missing.err, "no/x.data: No such file or directory")) << missing.err;
    EXPECT_EQ(runVnk(command("/proc/x", {})).code, 7);
}

namespace {

/// Records onto a file system of its own, of this size, and brings what came to it into `copies`.
class VnkRecordOnSmallDisk : public VnkRecord {
 protected:
    void SetUp() override {
        Program probe("/usr/bin/unshare", {"-m", "true"});
        if (::geteuid() != 0 || probe.finish() != 0)
            GTEST_SKIP() << "a file system of its own needs root";
        for (const char* pName : {"disk", "copies"})
            std::filesystem::create_directory(mcFolder / pName);
    }

    Ran recordOn(const std::string& size, std::vector<std::string> further) {
        const char* const pScript =
            "disk=$1 copies=$2 size=$3; shift 3; mount -t tmpfs -o size=$size none \"$disk\" || exit 99; "
            "\"$0\" \"$@\"; code=$?; cp \"$disk\"/* \"$copies\" 2>/dev/null; exit $code";
        std::vector<std::string> arguments{
            "-m", "sh", "-c", pScript, VNK_PROGRAM, mcFolder / "disk", mcFolder / "copies", size};
        for (const std::string& argument : command(mcFolder / "disk/x", std::move(further)))
            arguments.push_back(argument);
        Program program("/usr/bin/unshare", arguments);
        Ran ran;
        ran.code = program.finish();
        ran.out = program.out();
        ran.err = program.err();
        return ran;
    }
};

}  // namespace

TEST_F(VnkRecordOnSmallDisk, AFullDiskEndsItAndWhatWasWrittenIsTold) {
    const Ran ran = recordOn("1m", {"--seconds", "0", "--force", "--json"});
    EXPECT_EQ(ran.code, 7) << ran.err;
    EXPECT_TRUE(holds(ran.err, "No space left on device")) << ran.err;
    EXPECT_TRUE(holds(ran.err, "vnk: writing failed")) << ran.err;
    const auto json = nlohmann::json::parse(ran.out);
    const std::string samples = vnktest::iqSamples(contents(mcFolder / "copies/x.data"));
    EXPECT_EQ(json["samples"], samples.size() / 8);
    EXPECT_GT(samples.size(), 500000u);
    std::filesystem::remove(mcFolder / "copies/x.json");
    ASSERT_EQ(runVnk({"recover", mcFolder / "copies/x"}).code, 0);
    ASSERT_EQ(runVnk({"play", mcFolder / "copies/x", "-q", "-o", mcFolder / "x.cf32"}).code, 0);
    EXPECT_EQ(contents(mcFolder / "x.cf32"), samples);
}

TEST_F(VnkRecordOnSmallDisk, BeforeTheDiskIsFullItEndsInGoodOrder) {
    const Ran ran = recordOn("10m", {"--seconds", "0", "--json"});
    EXPECT_EQ(ran.code, 7) << ran.err;
    EXPECT_TRUE(holds(ran.err, "vnk: too little room left on the disk")) << ran.err;
    const Ran file = runVnk({"file", mcFolder / "copies/x", "--json"});
    EXPECT_EQ(file.code, 0) << file.out << file.err;
    EXPECT_EQ(nlohmann::json::parse(file.out)["agree"], true) << file.out;
}

TEST_F(VnkRecordOnSmallDisk, WithoutRoomItDoesNotBegin) {
    const Ran ran = recordOn("1m", {"--seconds", "0"});
    EXPECT_EQ(ran.code, 7) << ran.err;
    EXPECT_TRUE(holds(ran.err, "--force records until it is full")) << ran.err;
    EXPECT_TRUE(std::filesystem::is_empty(mcFolder / "copies"));
}
