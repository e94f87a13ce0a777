#include "tools/report.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

using namespace cli;

namespace {

CaptureRequest request() {
    CaptureRequest asked;
    asked.address = "127.0.0.1";
    asked.centreHz = 98.1e6;
    asked.bandwidthHz = 200e3;
    asked.seconds = 2;
    return asked;
}

CaptureResult result() {
    CaptureResult got;
    got.ending = Ending::complete;
    got.centreHz = 98.1e6;
    got.bandwidthHz = 200e3;
    got.sampleRateHz = 244140.625;
    got.referenceDbm = -30;
    got.elapsedSeconds = 2.05;
    got.samples = 488282;
    got.frames = 20;
    got.peakDbm = -45.25;
    got.meanDbm = -50.5;
    got.peakDbfs = -14.26;
    return got;
}

std::string joined(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines)
        text += line + "\n";
    return text;
}

}  // namespace

TEST(Report, ProgressLine) {
    EXPECT_EQ(progressLine(result()),
              "   2.0 s    0.238 Msps      3.9 MB  0 gaps  peak -14.3 dBFS, good (-20 to -10)");
    CaptureResult lossy = result();
    lossy.gaps = 1;
    lossy.peakDbfs = -5;
    EXPECT_NE(progressLine(lossy).find("1 gap  peak -5.0 dBFS, high (-20 to -10)"), std::string::npos);
    lossy.sampleRateHz = 125e6;
    EXPECT_NE(progressLine(lossy).find("good (-13 to -3)"), std::string::npos);
    EXPECT_NE(progressLine(CaptureResult{}).find("peak not yet known"), std::string::npos);
}

TEST(Report, TheRateLeavesOutTheFrameThatStartedTheClock) {
    CaptureResult got = result();
    got.firstSamples = 100000;
    got.samples = 600000;
    got.elapsedSeconds = 2;
    EXPECT_NE(progressLine(got).find("0.250 Msps"), std::string::npos) << progressLine(got);
    got.samples = got.firstSamples;
    got.elapsedSeconds = 1e-4;
    EXPECT_NE(progressLine(got).find("0.000 Msps"), std::string::npos) << progressLine(got);
}

TEST(Report, SettingsShowAskedBesideRealised) {
    const std::string table = joined(settingsTable(request(), result()));
    EXPECT_NE(table.find("centre        98.1 MHz          98.1 MHz"), std::string::npos) << table;
    EXPECT_NE(table.find("244.140625 kS/s"), std::string::npos) << table;
    EXPECT_NE(table.find("-30 dBm           -30 dBm"), std::string::npos) << table;
}

TEST(Report, SummaryTellsWhatWentWrong) {
    EXPECT_NE(joined(summaryLines(request(), result())).find("2.000 s (complete), 0 gaps\n"),
              std::string::npos);
    CaptureResult bad = result();
    bad.ending = Ending::linkLost;
    bad.gaps = 2;
    bad.overflows = 1;
    bad.invalids = 3;
    bad.peakDbfs = -35;
    const std::string text = joined(summaryLines(request(), bad));
    EXPECT_NE(text.find("(link lost), 2 gaps, 1 overflow, 3 invalid frames"), std::string::npos) << text;
    EXPECT_NE(text.find("low (-20 to -10): a lower --ref"), std::string::npos) << text;
}

TEST(Report, NothingCapturedIsOneLine) {
    EXPECT_EQ(summaryLines(request(), CaptureResult{}).size(), 1u);
}

TEST(Report, JsonHoldsTheSameFacts) {
    CaptureRequest asked = request();
    asked.path = "out.cf32";
    CaptureResult got = result();
    got.bytesWritten = 488282 * 8;
    const auto json = nlohmann::json::parse(toJson(asked, got).dump());
    EXPECT_EQ(json["asked"]["centreHz"], 98.1e6);
    EXPECT_EQ(json["realised"]["sampleRateHz"], 244140.625);
    EXPECT_EQ(json["samples"], 488282);
    EXPECT_EQ(json["gaps"], 0);
    EXPECT_EQ(json["ending"], "complete");
    EXPECT_EQ(json["level"]["peakdBm"], -45.25);
    EXPECT_EQ(json["level"]["judgement"], "good");
    EXPECT_EQ(json["bytes"], 488282 * 8);
    EXPECT_FALSE(json.contains("detected"));
    EXPECT_FALSE(json.contains("spectrum"));
}

TEST(Report, UnknownLevelsAreNullInJson) {
    const auto json = toJson(request(), CaptureResult{});
    EXPECT_TRUE(json["level"]["peakdBm"].is_null());
    EXPECT_TRUE(json["level"]["peakdBFS"].is_null());
    EXPECT_TRUE(json["realised"]["referencedBm"].is_null());
}

TEST(Report, TonesInWordsAndInJson) {
    CaptureRequest asked = request();
    asked.detect = Detect::am;
    CaptureResult got = result();
    got.tones = {{9960, 0.3, 1100}, {30, 0.111, 0}};
    const std::string text = joined(detectionLines(asked, got));
    EXPECT_NE(text.find("9960 Hz    30.0 % of the carrier, 1100 Hz wide"), std::string::npos) << text;
    EXPECT_NE(text.find("30.00 Hz    11.1 % of the carrier\n"), std::string::npos) << text;
    EXPECT_EQ(toJson(asked, got)["detected"]["tones"][1]["frequencyHz"], 30.0);
    got.tones.clear();
    EXPECT_NE(joined(detectionLines(asked, got)).find("none"), std::string::npos);
}

TEST(Report, ModeSInWordsAndInJson) {
    CaptureRequest asked = request();
    asked.detect = Detect::modes;
    CaptureResult got = result();
    EXPECT_EQ(detectionLines(asked, got).size(), 1u);
    ModeSFrame frame;
    frame.bytes = {0x8F, 0x4D, 0x20, 0x23, 0x58, 0x7F, 0x34, 0x5E, 0x35, 0x83, 0x7E, 0x22, 0x18, 0xB2};
    frame.length = 14;
    frame.seconds = 0.001;
    got.modeS.assign(5, frame);
    const std::string text = joined(detectionLines(asked, got));
    EXPECT_NE(text.find("5 frames with right parity, 5 of format 17, 0 of format 11"), std::string::npos)
        << text;
    EXPECT_NE(text.find("aircraft 4D2023: 5 frames"), std::string::npos) << text;
    EXPECT_NE(text.find("1.000 ms  8F4D2023587F345E35837E2218B2"), std::string::npos) << text;
    const auto json = toJson(asked, got);
    EXPECT_EQ(json["detected"]["format17"], 5);
    EXPECT_EQ(json["detected"]["aircraft"][0]["address"], "4D2023");
}

TEST(Report, NothingIsDetectedUnasked) {
    EXPECT_TRUE(detectionLines(request(), result()).empty());
}

TEST(Report, OfARecordingTheFullScaleIsNotKnown) {
    CaptureResult played = result();
    played.peakDbfs = -1000;
    played.passes = 3;
    EXPECT_NE(progressLine(played).find("0 gaps  peak -45.2 dBm"), std::string::npos) << progressLine(played);
    const std::string summary = joined(summaryLines(request(), played, "Played"));
    EXPECT_EQ(summary.rfind("Played 488282 samples, 2.000 s (complete), 0 gaps, 3 passes\n", 0), 0u)
        << summary;
    EXPECT_NE(summary.find("mean power -50.5 dBm\n"), std::string::npos) << summary;
}

TEST(Report, EndingsAndTheirExitCodes) {
    EXPECT_EQ(exitFor(Ending::complete), Exit::done);
    EXPECT_EQ(exitFor(Ending::interrupted), Exit::done);
    EXPECT_EQ(exitFor(Ending::readerGone), Exit::done);
    EXPECT_EQ(exitFor(Ending::linkLost), Exit::linkLost);
    EXPECT_EQ(exitFor(Ending::diskFull), Exit::file);
    EXPECT_EQ(exitFor(Ending::writeFailed), Exit::file);
    EXPECT_EQ(exitFor(Ending::ended), Exit::failure);
    EXPECT_EQ(exitFor(Ending::noData), Exit::failure);
}
