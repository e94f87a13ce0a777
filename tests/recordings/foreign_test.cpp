// Recordings between the library and a program in another language that knows nothing but their format.
#include <cstdio>
#include <string>

#include "live/session.h"
#include "recordings/player.h"

namespace {

using namespace recordings;

std::string quoted(const std::string& text) {
    return "'" + text + "'";
}

struct Output {
    std::string mcText;
    bool mbGood = false;
};

Output runPython(const std::string& arguments) {
    Output cOutput;
    FILE* const pPipe = ::popen((quoted(VNK_PYTHON) + " " + arguments + " 2>&1").c_str(), "r");
    if (!pPipe)
        return cOutput;
    char bytes[65536];
    for (size_t uCount = 0; (uCount = std::fread(bytes, 1, sizeof bytes, pPipe)) > 0;)
        cOutput.mcText.append(bytes, uCount);
    cOutput.mbGood = ::pclose(pPipe) == 0;
    return cOutput;
}

Output script(const std::string& arguments) {
    return runPython(quoted(VNK_RECORDING_SCRIPT) + " " + arguments);
}

#define VNK_NEED_PYTHON()                       \
    if (!runPython("-c 'import numpy'").mbGood) \
    GTEST_SKIP() << "python3 with numpy is not installed"

// The lines that the script describes frames with.

std::string bits(float fValue) {
    char text[9];
    std::snprintf(text, sizeof text, "%08x", std::bit_cast<uint32_t>(fValue));
    return text;
}

std::string hex(const void* pBytes, size_t uCount) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    text.reserve(uCount * 2);
    for (const uint8_t* p = static_cast<const uint8_t*>(pBytes); uCount > 0; --uCount, ++p)
        text.append({kDigits[*p >> 4], kDigits[*p & 15]});
    return text;
}

template <typename... T>
std::string line(const T&... cParts) {
    std::string text;
    ((text += text.empty() ? cParts : " " + cParts), ...);
    return text + "\n";
}

std::string headOf(const vnkIQRecord& c) {
    return line(std::string("IQ"), bits(static_cast<float>(c.centreHz)), bits(c.bandwidthHz),
                bits(c.sampleRateHz));
}

std::string lineOf(const vnkIQRecord& c) {
    return line(std::to_string(c.sequence), std::to_string(c.sequenceGap), std::to_string(c.timestamp),
                std::to_string(c.sampleCount), hex(c.samples, size_t{c.sampleCount} * 8));
}

std::string headOf(const vnkSpectrumRecord& c) {
    EXPECT_EQ(static_cast<double>(static_cast<float>(c.minimumHz)), c.minimumHz);
    EXPECT_EQ(static_cast<double>(static_cast<float>(c.maximumHz)), c.maximumHz);
    return line(std::string("Spectrum"), bits(static_cast<float>(c.minimumHz)),
                bits(static_cast<float>(c.maximumHz)), bits(c.rbwHz));
}

std::string lineOf(const vnkSpectrumRecord& c) {
    return line(std::to_string(c.sequence), std::to_string(c.timestamp), std::to_string(c.duration),
                std::to_string(c.pointCount), hex(c.points, size_t{c.pointCount} * 4));
}

/// What a stream delivers, to its end, in the script's lines.
template <typename Held>
std::string linesOf(Stream& cStream) {
    std::string lines;
    Held cRecord;
    EXPECT_TRUE(vnktest::waitUntil([&] {
        int32_t iStatus = 0;
        while ((iStatus = cStream.read(cRecord, 200)) == 0) {
            if (lines.empty())
                lines = headOf(*cRecord.operator->());
            lines += lineOf(*cRecord.operator->());
        }
        return iStatus == 2;
    }));
    return lines;
}

template <typename Held>
std::string playLines(Kind eKind, const std::string& path, const std::string& recordTo = {}) {
    Stream cStream(eKind);
    cStream.queueAll();
    if (!recordTo.empty()) {
        EXPECT_EQ(cStream.record(recordTo), 0);
    }
    EXPECT_EQ(cStream.play(path), 0);
    return linesOf<Held>(cStream);
}

}  // namespace

TEST(ForeignReader, ReadsWhatTheLibraryRecords) {
    VNK_NEED_PYTHON();
    const Folder cFolder;
    auto lIQ = makeIQ(8, 300, 1000);
    for (size_t i = 0; i < lIQ.size(); ++i) {
        lIQ[i].mlSamples.resize(1 + 37 * i);
        lIQ[i].muSequence = i < 3 ? 0xFFFFFFFC + static_cast<uint32_t>(i) : static_cast<uint32_t>(i * i);
    }
    auto lSpectra = makeSpectra(8, 300, 1000);
    for (size_t i = 0; i < lSpectra.size(); ++i)
        lSpectra[i].mlPoints.resize(300 - 37 * i);
    writePair(cFolder, "iq", lIQ);
    writePair(cFolder, "spectra", lSpectra);
    const std::string iq = playLines<HeldIQ>(Kind::iq, cFolder.name("iq"), cFolder.name("iq2"));
    const std::string spectra =
        playLines<HeldSpectrum>(Kind::spectrum, cFolder.name("spectra"), cFolder.name("spectra2"));
    EXPECT_EQ(countOf(iq, "\n"), 9u);
    EXPECT_EQ(script("read " + quoted(cFolder.native("iq2"))).mcText, iq);
    EXPECT_EQ(countOf(spectra, "\n"), 9u);
    EXPECT_EQ(script("read " + quoted(cFolder.native("spectra2"))).mcText, spectra);
}

TEST(ForeignReader, ReadsWhatTheLibraryRecordsOfAUnit) {
    VNK_NEED_PYTHON();
    const Folder cFolder;
    vnksim::Unit cUnit(live::options(), vnksim::Scene().tone(100.01e6, -40));
    cUnit.start();
    live::Device cDevice(cUnit.options().address);
    ASSERT_EQ(cDevice.status(), 0) << live::log();
    live::Stream cStream(100e6, 100e3);
    ASSERT_EQ(cStream.set("{\"bufferFrames\":1000}"), 0);
    ASSERT_EQ(vnkSetStreamOutputFile(cStream.handle(), cFolder.name("unit").c_str()), 0);
    ASSERT_EQ(cStream.attach(cDevice), 0);
    live::Frame cFrame;
    ASSERT_TRUE(cStream.next(cFrame));
    std::string expected = headOf(*cFrame.operator->()) + lineOf(*cFrame.operator->());
    ASSERT_TRUE(cStream.next(cFrame));
    expected += lineOf(*cFrame.operator->());
    ASSERT_EQ(cStream.detach(), 0);
    while (cStream.read(cFrame, 0) == 0)
        expected += lineOf(*cFrame.operator->());
    ASSERT_EQ(cStream.close(), 0);
    EXPECT_EQ(script("read " + quoted(cFolder.native("unit"))).mcText, expected);
}

TEST(ForeignReader, FindsFaultWithARecordingThatHasOne) {
    VNK_NEED_PYTHON();
    const Folder cFolder;
    const auto lFrames = makeIQ(3, 10);
    const std::string good = describe(lFrames).pretty(), data = bytesOf(lFrames);
    const auto reads = [&](const std::string& text, const std::string& bytes) {
        writeFile(cFolder.native("x.json"), text);
        writeFile(cFolder.native("x.data"), bytes);
        return script("read " + quoted(cFolder.native("x"))).mbGood;
    };
    EXPECT_TRUE(reads(good, data));
    EXPECT_FALSE(reads(good, data.substr(1)));
    EXPECT_FALSE(reads(good, data.substr(0, data.size() - 1)));
    EXPECT_FALSE(reads(good, data + bytesOf(lFrames)));
    EXPECT_FALSE(reads(describe(lFrames).compact(), data));
    EXPECT_FALSE(reads(describe(makeIQ(2, 10)).pretty(), data));
    EXPECT_FALSE(reads("", data));
}

TEST(ForeignWriter, WritesWhatTheLibraryPlays) {
    VNK_NEED_PYTHON();
    constexpr int kPairs = 80;
    const Folder cFolder;
    const Output cOutput = script("write " + quoted(cFolder.path()) + " 43 " + std::to_string(kPairs));
    ASSERT_TRUE(cOutput.mbGood) << cOutput.mcText;
    for (int i = 0; i < kPairs; ++i) {
        const std::string stem = "p" + std::to_string(i);
        const std::string expected = readFile(cFolder.native(stem + ".txt"));
        ASSERT_FALSE(expected.empty());
        const std::string played = i % 2 == 0 ? playLines<HeldIQ>(Kind::iq, cFolder.name(stem))
                                              : playLines<HeldSpectrum>(Kind::spectrum, cFolder.name(stem));
        ASSERT_EQ(played, expected) << readFile(cFolder.native(stem + ".json"));
    }
}
