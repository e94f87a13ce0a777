// WAV files: what is in them byte by byte, large ones, and disks that fail.
#include "tools/audiofile.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "recordings.h"
#include "tools/audiooutput.h"
#include "tools/exitcodes.h"

using vnktest::contents;

namespace {

template <typename T>
T numberAt(const std::string& bytes, size_t at) {
    T value{};
    if (at + sizeof value <= bytes.size())
        std::memcpy(&value, bytes.data() + at, sizeof value);
    return value;
}

/// Where the content of a chunk begins.
size_t chunk(const std::string& bytes, const std::string& name) {
    const auto uAt = bytes.find(name);
    return uAt == std::string::npos ? bytes.size() : uAt + 8;
}

/// Keeps the beginning and forgets the rest.
class ForgetfulStore : public cli::WavStore {
 public:
    explicit ForgetfulStore(std::string& head) : mcHead(head) {}
    int64_t write(const void* data, int64_t bytes) override {
        const auto* pBytes = static_cast<const char*>(data);
        for (int64_t i = 0; i < bytes && miAt + i < 1024; ++i) {
            mcHead.resize(std::max<size_t>(mcHead.size(), static_cast<size_t>(miAt + i + 1)));
            mcHead[static_cast<size_t>(miAt + i)] = pBytes[i];
        }
        miAt += bytes;
        miSize = std::max(miSize, miAt);
        return bytes;
    }
    int64_t read(void*, int64_t) override { return 0; }
    int64_t seek(int64_t position) override { return miAt = position; }
    int64_t position() const override { return miAt; }
    int64_t size() const override { return miSize; }
    std::string failure() const override { return {}; }
    void close() override {}

 private:
    std::string& mcHead;
    int64_t miAt = 0, miSize = 0;
};

cli::Exit codeOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const cli::Failure& failure) {
        return failure.code();
    }
    return cli::Exit::done;
}

}  // namespace

TEST(WavFile, HoldsItsSamplesAndTellsRateAndChannels) {
    const vnktest::ScratchFolder folder;
    const std::string path = folder / "x.wav";
    cli::WavFile file(path, 47368.421, 2);
    const std::vector<int16_t> samples{1, -2, 32767, -32768, 5, 6};
    file.write(samples.data(), 4);
    file.write(samples.data() + 4, 2);
    file.close();
    const std::string bytes = contents(path);
    EXPECT_EQ(file.bytes(), bytes.size());
    EXPECT_EQ(bytes.substr(0, 4), "RIFF");
    EXPECT_EQ(numberAt<uint32_t>(bytes, 4), bytes.size() - 8);
    EXPECT_EQ(bytes.substr(8, 4), "WAVE");
    const size_t uFormat = chunk(bytes, "fmt ");
    // The extensible form, which tells of PCM further behind.
    EXPECT_EQ(numberAt<uint16_t>(bytes, uFormat), 0xFFFE);
    EXPECT_EQ(numberAt<uint16_t>(bytes, uFormat + 24), 1);
    EXPECT_EQ(numberAt<uint16_t>(bytes, uFormat + 2), 2);
    EXPECT_EQ(numberAt<uint32_t>(bytes, uFormat + 4), 47368u);
    EXPECT_EQ(numberAt<uint16_t>(bytes, uFormat + 14), 16);
    const size_t uData = chunk(bytes, "data");
    EXPECT_EQ(numberAt<uint32_t>(bytes, uData - 4), 12u);
    EXPECT_EQ(bytes.size(), uData + 12);
    for (size_t i = 0; i < samples.size(); ++i)
        EXPECT_EQ(numberAt<int16_t>(bytes, uData + 2 * i), samples[i]) << i;
}

TEST(WavFile, CanBePlayedWhenTheProgramWasKilled) {
    const vnktest::ScratchFolder folder;
    cli::WavFile file(folder / "x.wav", 8000, 1);
    const std::vector<int16_t> second(8000, 7);
    file.write(second.data(), second.size());
    // Not closed.
    const std::string bytes = contents(folder / "x.wav");
    EXPECT_EQ(bytes.substr(0, 4), "RIFF");
    EXPECT_EQ(numberAt<uint32_t>(bytes, chunk(bytes, "data") - 4), 16000u);
}

TEST(WavFile, BecomesRf64BeyondFourGigabytes) {
    std::string head;
    cli::WavFile file(std::make_unique<ForgetfulStore>(head), "large", 48000, 1);
    const std::vector<int16_t> block(1 << 20, 1);
    constexpr uint64_t kBlocks = 2049;
    for (uint64_t u = 0; u < kBlocks; ++u)
        file.write(block.data(), block.size());
    file.close();
    const uint64_t uData = kBlocks * block.size() * 2;
    ASSERT_GT(uData, uint64_t{1} << 32);
    EXPECT_EQ(head.substr(0, 4), "RF64");
    EXPECT_EQ(numberAt<uint32_t>(head, 4), 0xFFFFFFFFu);
    const size_t uSizes = chunk(head, "ds64");
    EXPECT_EQ(numberAt<uint64_t>(head, uSizes), file.bytes() - 8);
    EXPECT_EQ(numberAt<uint64_t>(head, uSizes + 8), uData);
    EXPECT_EQ(numberAt<uint64_t>(head, uSizes + 16), uData / 2);
    EXPECT_EQ(numberAt<uint32_t>(head, chunk(head, "data") - 4), 0xFFFFFFFFu);
}

TEST(WavFile, WhatCannotBeWrittenIsAFileFailure) {
    const vnktest::ScratchFolder folder;
    const std::string pipe = folder / "pipe";
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    for (const std::string& path : {std::string("/nowhere/at/all.wav"), folder.path(), pipe})
        EXPECT_EQ(codeOf([&] { cli::WavFile(path, 8000, 1); }), cli::Exit::file) << path;
    EXPECT_EQ(codeOf([] {
                  cli::WavFile file("/dev/full", 8000, 1);
                  const std::vector<int16_t> samples(8000, 1);
                  file.write(samples.data(), samples.size());
                  file.close();
              }),
              cli::Exit::file);
}

TEST(AudioOutput, TellsWhatItWroteAndOfARateThatIsNotWhole) {
    const vnktest::ScratchFolder folder;
    cli::AudioOutput whole(folder / "a.wav", 48000), part(folder / "b.wav", 47368.421), none("", 48000);
    for (cli::AudioOutput* pOutput : {&whole, &part, &none}) {
        EXPECT_TRUE(pOutput->write({1, 2, 3}));
        pOutput->close();
    }
    ASSERT_EQ(whole.lines().size(), 1u);
    EXPECT_EQ(whole.lines()[0].find("rate"), std::string::npos) << whole.lines()[0];
    EXPECT_NE(part.lines()[0].find("told as 47.368 kS/s"), std::string::npos) << part.lines()[0];
    EXPECT_TRUE(none.lines().empty());
    EXPECT_EQ(none.bytes(), 0u);
}
