#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <random>
#include <thread>

#include "recordings/player.h"

namespace {

using namespace recordings;

/// A process that plays a recording in a loop and records it, until it is killed.
class Recorder {
 public:
    Recorder(const std::string& source, const std::string& output) {
        int iPipe[2] = {-1, -1};
        if (::pipe2(iPipe, O_CLOEXEC) != 0)
            throw std::runtime_error("no pipe");
        posix_spawn_file_actions_t cActions;
        posix_spawn_file_actions_init(&cActions);
        posix_spawn_file_actions_adddup2(&cActions, iPipe[1], STDOUT_FILENO);
        std::string program = VNK_RECORDER, from = source, to = output;
        char* const ppArguments[] = {program.data(), from.data(), to.data(), nullptr};
        if (::posix_spawn(&miProcess, program.c_str(), &cActions, nullptr, ppArguments, environ) != 0)
            miProcess = -1;
        posix_spawn_file_actions_destroy(&cActions);
        ::close(iPipe[1]);
        miOutput = iPipe[0];
    }
    ~Recorder() {
        kill();
        ::close(miOutput);
    }
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    /// It has read so many frames; at most two are told of.
    bool waitForFrames(unsigned uFrames) {
        char cByte = 0;
        for (unsigned i = 0; i < uFrames; ++i)
            if (::read(miOutput, &cByte, 1) != 1)
                return false;
        return miProcess > 0;
    }
    /// Whether it was alive until then.
    bool kill() {
        if (miProcess <= 0)
            return false;
        int iStatus = 0;
        ::kill(miProcess, SIGKILL);
        ::waitpid(miProcess, &iStatus, 0);
        miProcess = -1;
        return WIFSIGNALED(iStatus) && WTERMSIG(iStatus) == SIGKILL;
    }

 private:
    pid_t miProcess = -1;
    int miOutput = -1;
};

/// Frames of many sizes, from one sample to some hundred thousand bytes, half a millisecond apart.
std::vector<IQ> sourceFrames(std::mt19937& cRandom) {
    std::vector<IQ> lFrames = makeIQ(40, 0, 500'000);
    for (IQ& cFrame : lFrames) {
        cFrame.mlSamples.resize(1 + cRandom() % (1u << (cRandom() % 15)));
        for (std::complex<float>& cSample : cFrame.mlSamples)
            cSample = {static_cast<float>(cRandom()), static_cast<float>(cRandom())};
    }
    return lFrames;
}

/// Whether the data are the source's, round and round.
bool repeats(const std::string& data, const std::string& source) {
    for (size_t uAt = 0; uAt < data.size(); uAt += source.size())
        if (data.compare(uAt, source.size(), source, 0, std::min(source.size(), data.size() - uAt)) != 0)
            return false;
    return true;
}

/// The data of a recording that was killed play as soon as a description stands beside them.
void expectPlays(const Folder& cFolder, const std::string& stem, const std::vector<IQ>& lFrames) {
    writeFile(cFolder.native(stem + ".json"), describe(lFrames).pretty());
    Stream cStream;
    cStream.queueAll();
    ASSERT_EQ(cStream.play(cFolder.name(stem)), 0);
    EXPECT_EQ(bytesOf(readIQ(cStream)), bytesOf(lFrames));
}

}  // namespace

TEST(KilledRecordings, HoldWholeFramesBitForBitWheneverTheProcessWasKilled) {
    std::mt19937 cRandom(68);
    const Folder cFolder;
    const std::vector<IQ> lSource = sourceFrames(cRandom);
    const std::string source = bytesOf(lSource);
    writePair(cFolder, "source", lSource);
    size_t uFrames = 0, uCut = 0, uEmpty = 0;
    for (int iRound = 0; iRound < 100; ++iRound) {
        const std::string stem = "k" + std::to_string(iRound);
        Recorder cRecorder(cFolder.name("source"), cFolder.name(stem));
        ASSERT_TRUE(cRecorder.waitForFrames(1));
        // The moment of the kill, which is what varies here; nothing waits for anything to be ready.
        std::this_thread::sleep_for(std::chrono::microseconds(cRandom() % 40'000));
        ASSERT_TRUE(cRecorder.kill());
        ASSERT_TRUE(cFolder.has(stem + ".json"));
        EXPECT_EQ(readFile(cFolder.native(stem + ".json")), "");
        const std::string data = readFile(cFolder.native(stem + ".data"));
        ASSERT_TRUE(repeats(data, source)) << "round " << iRound;
        std::string rest;
        const std::vector<IQ> lFrames = parseIQ(data, &rest);
        uFrames += lFrames.size();
        uCut += rest.empty() ? 0u : 1u;
        uEmpty += lFrames.empty() ? 1u : 0u;
        if (iRound % 10 == 0 && !lFrames.empty())
            expectPlays(cFolder, stem, lFrames);
        std::filesystem::remove(cFolder.native(stem + ".data"));
    }
    std::cout << uFrames << " frames, " << uCut << " recordings with a frame cut at their end, " << uEmpty
              << " without a frame\n";
    EXPECT_GT(uFrames, 1000u);
    EXPECT_LT(uEmpty, 50u);
}

TEST(KilledRecordings, AFrameIsInTheFileBeforeTheNextOneComes) {
    const Folder cFolder;
    // The third frame is ages ahead: nothing pushes the first two out.
    const std::vector<IQ> lSource = makeIQ(3, 3, 100'000'000'000);
    writePair(cFolder, "source", lSource);
    Recorder cRecorder(cFolder.name("source"), cFolder.name("x"));
    ASSERT_TRUE(cRecorder.waitForFrames(2));
    const std::string expected = bytesOf(std::vector<IQ>(lSource.begin(), lSource.begin() + 2));
    EXPECT_TRUE(vnktest::waitUntil([&] { return readFile(cFolder.native("x.data")) == expected; }));
    ASSERT_TRUE(cRecorder.kill());
    EXPECT_EQ(readFile(cFolder.native("x.data")), expected);
}
