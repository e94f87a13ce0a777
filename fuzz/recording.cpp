// A recording: the text of its description, a zero byte, and its data.
//
// Each input becomes a pair of files in a folder of this process, which is played to its end without a thread
// and without waiting. What is delivered must be what the data hold, frame by frame from the first on.

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "streams/streaminputfile.h"

namespace {

constexpr size_t kPasses = 3;
constexpr size_t kMostFrames = 10000;

void require(bool bHolds, const char* pWhat) {
    if (bHolds)
        return;
    std::fprintf(stderr, "does not hold: %s\n", pWhat);
    std::abort();
}

/// Backed by memory where the system has such a place.
class Folder {
 public:
    Folder() {
        mcNative = ::access("/dev/shm", W_OK) == 0 ? "/dev/shm/vnk-fuzz-XXXXXX" : "/tmp/vnk-fuzz-XXXXXX";
        require(::mkdtemp(mcNative.data()) != nullptr, "a folder can be made");
    }
    ~Folder() {
        ::unlink(file("x.json").c_str());
        ::unlink(file("x.data").c_str());
        ::rmdir(mcNative.c_str());
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    std::string path(const char* pName) const { return mcNative + "\\" + pName; }
    void write(const char* pName, const std::string& bytes) const {
        std::ofstream cFile(file(pName), std::ios::binary);
        cFile.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    }

 private:
    std::string file(const char* pName) const { return mcNative + "/" + pName; }
    std::string mcNative;
};

/// Plays on the caller's thread; its clock moves by its waits alone.
class Player : public StreamInputFile {
 public:
    using StreamInputFile::run;
    using StreamInputFile::StreamInputFile;

 protected:
    uint64_t tickCount() const override { return muTicks; }
    void pause(uint64_t uMicroseconds) override { muTicks += uMicroseconds * 10; }

 private:
    uint64_t muTicks = 0;
};

/// Stores the frames again, which reads every byte of them.
class Reader : public FrameSink {
 public:
    void receiveFrame(ReferencePtr<Frame> cFrame, bool bLast) override {
        if (cFrame) {
            ++muFrames;
            cFrame->writeTo(mcBytes);
            mcParameters = cFrame->getParameters(false).toCompactText();
            cFrame->getEndTime(kNanoseconds);
            cFrame->getDurationSec();
        } else {
            ++muEnds;
        }
        if (mpPlayer && muFrames >= muEnough)
            mpPlayer->setLooping(false);
        if (bLast)
            detachFromSource();
    }

    StreamInputFile* mpPlayer = nullptr;
    size_t muEnough = 0;
    size_t muFrames = 0;
    size_t muEnds = 0;
    std::ostringstream mcBytes;
    std::string mcParameters;
};

bool isRepetition(const std::string& whole, const std::string& part) {
    for (size_t i = 0; i < whole.size(); i += part.size())
        if (whole.compare(i, part.size(), part) != 0)
            return false;
    return true;
}

/// What one player delivers; looping until so many frames have come.
std::string played(const std::string& path, size_t uLoopFrames, size_t& uFrames) {
    const auto cPlayer = makeReference<Player>(path);
    const auto cReader = makeReference<Reader>();
    ErrorList lErrors;
    require(cPlayer->attachFrameSink(cReader, lErrors), "a sink can be attached");
    cReader->mpPlayer = cPlayer.get();
    cReader->muEnough = uLoopFrames;
    cPlayer->setLooping(uLoopFrames != 0);
    cPlayer->run();
    require(cPlayer->isExhausted(), "the file is at its end");
    require(cReader->muEnds == 1, "one end is seen");
    require(!cReader->isAttached(), "the sink is let go");
    uFrames = cReader->muFrames;
    return cReader->mcBytes.str();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t uSize) {
    static const Folder cFolder;
    const std::string input(reinterpret_cast<const char*>(pData), uSize);
    const size_t uText = std::min(input.find('\0'), uSize);
    const std::string data = input.substr(std::min(uText + 1, uSize));
    cFolder.write("x.json", input.substr(0, uText));
    cFolder.write("x.data", data);
    const std::string path = cFolder.path("x.json");
    const auto cFile = makeReference<StreamInputFile>(path);
    require(cFile->isExhausted() != cFile->isOpen(), "what is open has not ended");
    cFile->getSampling().toPrettyText();
    if (!cFile->isOpen())
        return 0;
    size_t uFrames = 0;
    const std::string once = played(path, 0, uFrames);
    require(data.compare(0, once.size(), once) == 0, "frames are what the data hold");
    if (uFrames == 0 || uFrames > kMostFrames)
        return 0;
    size_t uLooped = 0;
    const std::string looped = played(path, kPasses * uFrames, uLooped);
    require(uLooped == kPasses * uFrames, "each pass gives the same frames");
    require(looped.size() == kPasses * once.size() && isRepetition(looped, once),
            "each pass gives the same bytes");
    return 0;
}
