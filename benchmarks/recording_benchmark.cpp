// Recording and playing through the library, beside a plain write() and read() of the same bytes in the same
// run: the limit that the file system sets. All count the bytes of the data file, which lies in the folder
// for temporary files (TMPDIR).

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "flows/iqframe.h"
#include "flows/spectrumframe.h"
#include "foundations/clock.h"
#include "streams/streaminputfile.h"
#include "streams/streamoutputfile.h"

namespace {

constexpr uint64_t kBytes = uint64_t{256} << 20;
/// Frames that take turns: what waits to be written stays far below where the oldest are dropped.
constexpr uint64_t kPoolBytes = uint64_t{32} << 20;

enum Kind : int64_t { kLargeIQ, kSmallIQ, kSpectrum };
constexpr const char* kKindNames[] = {"IQ, 65504 samples", "IQ, 1024 samples", "spectra, 4096 points"};

ReferencePtr<Frame> makeIQ(uint32_t uSamples) {
    auto cSamples = makeReference<ComplexArray>(uSamples);
    for (uint32_t i = 0; i < uSamples; ++i)
        cSamples->getData()[i] = Complex<float>{static_cast<float>(i), -1.0f};
    return makeReference<IQFrame>(0u, uint64_t{0}, uint64_t{1}, uint32_t{kNanoseconds}, 1e8f, 1e6f, 2e6f,
                                  -30.0f, cSamples, std::string(kUnitsSqrtMilliwatt));
}

ReferencePtr<Frame> makeSpectrum(uint32_t uPoints) {
    auto cPoints = makeReference<FloatArray>(uPoints);
    for (uint32_t i = 0; i < uPoints; ++i)
        cPoints->getData()[i] = static_cast<float>(i);
    return makeReference<SpectrumFrame>(0u, uint64_t{1}, uint64_t{1000}, uint32_t{kNanoseconds}, 1e8f, 2e8f,
                                        1e3f, -30.0f, std::string("hann"), cPoints, std::string("dBm"));
}

ReferencePtr<Frame> makeFrame(int64_t iKind) {
    if (iKind == kSpectrum)
        return makeSpectrum(4096);
    return makeIQ(iKind == kLargeIQ ? 65504 : 1024);
}

std::string bytesOf(const Frame& cFrame) {
    std::ostringstream cStream;
    cFrame.writeTo(cStream);
    return cStream.str();
}

/// A folder that goes with the run.
class Folder {
 public:
    Folder() : mcPath((std::filesystem::temp_directory_path() / "vnk-benchmark-XXXXXX").string()) {
        if (!::mkdtemp(mcPath.data()))
            std::abort();
    }
    ~Folder() {
        std::error_code cIgnored;
        std::filesystem::remove_all(mcPath, cIgnored);
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    std::string recording() const { return mcPath + "\\x.json"; }
    std::string file(const char* pName) const { return mcPath + "/" + pName; }
    void clear() const {
        for (const auto& cEntry : std::filesystem::directory_iterator(mcPath))
            std::filesystem::remove(cEntry.path());
    }

 private:
    std::string mcPath;
};

/// Sizes of one kind, and its share of the run's bytes in whole frames.
struct Load {
    explicit Load(int64_t iKind)
        : mcFrame(makeFrame(iKind)), mcBytes(bytesOf(*mcFrame)), muFrames(kBytes / mcBytes.size()) {}
    uint64_t total() const { return muFrames * mcBytes.size(); }
    ReferencePtr<Frame> mcFrame;
    std::string mcBytes;
    uint64_t muFrames;
};

void finish(benchmark::State& cState, const Load& cLoad) {
    cState.SetBytesProcessed(static_cast<int64_t>(cLoad.total()) * static_cast<int64_t>(cState.iterations()));
    cState.SetItemsProcessed(static_cast<int64_t>(cLoad.muFrames) *
                             static_cast<int64_t>(cState.iterations()));
    cState.SetLabel(kKindNames[cState.range(0)]);
}

bool hasWritten(const Folder& cFolder, const Load& cLoad) {
    std::error_code cIgnored;
    return std::filesystem::file_size(cFolder.file("x.data"), cIgnored) == cLoad.total();
}

// Writing.

void writePlain(const Folder& cFolder, const Load& cLoad) {
    const int iFile = ::open(cFolder.file("x.data").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    for (uint64_t i = 0; i < cLoad.muFrames; ++i)
        if (::write(iFile, cLoad.mcBytes.data(), cLoad.mcBytes.size()) < 0)
            break;
    ::close(iFile);
}

void plainWrite(benchmark::State& cState) {
    const Folder cFolder;
    const Load cLoad(cState.range(0));
    for (auto _ : cState) {
        writePlain(cFolder, cLoad);
        cState.PauseTiming();
        if (!hasWritten(cFolder, cLoad))
            cState.SkipWithError("not all bytes were written");
        cFolder.clear();
        cState.ResumeTiming();
    }
    finish(cState, cLoad);
}

void recordAll(const Folder& cFolder, const Load& cLoad, const std::vector<ReferencePtr<Frame>>& lPool) {
    const auto cFile = makeReference<StreamOutputFile>(cFolder.recording(), nullptr);
    for (uint64_t i = 0; i < cLoad.muFrames; ++i) {
        const ReferencePtr<Frame>& cFrame = lPool[i % lPool.size()];
        // Its last turn must be on the disk.
        while (cFrame->referenceCount() > 1)
            std::this_thread::yield();
        cFile->addFrame(cFrame);
    }
}

void recording(benchmark::State& cState) {
    const Folder cFolder;
    const Load cLoad(cState.range(0));
    std::vector<ReferencePtr<Frame>> lPool(kPoolBytes / cLoad.mcBytes.size());
    for (ReferencePtr<Frame>& cFrame : lPool)
        cFrame = makeFrame(cState.range(0));
    for (auto _ : cState) {
        recordAll(cFolder, cLoad, lPool);
        cState.PauseTiming();
        if (!hasWritten(cFolder, cLoad))
            cState.SkipWithError("not all frames were recorded");
        cFolder.clear();
        cState.ResumeTiming();
    }
    finish(cState, cLoad);
}

// Reading.

void makeRecording(const Folder& cFolder, const Load& cLoad) {
    const std::string name = cLoad.mcFrame->getTypeName();
    std::ofstream(cFolder.file("x.json"), std::ios::binary)
        << "{\"DataType\":\"" << name << "\",\"Sampling\":{},\"" << name
        << "\":{\"TimeResolution\":\"ns\",\"Samples\":" << kBytes << "}}";
    writePlain(cFolder, cLoad);
}

void plainRead(benchmark::State& cState) {
    const Folder cFolder;
    const Load cLoad(cState.range(0));
    makeRecording(cFolder, cLoad);
    std::string buffer(cLoad.mcBytes.size(), '\0');
    for (auto _ : cState) {
        const int iFile = ::open(cFolder.file("x.data").c_str(), O_RDONLY | O_CLOEXEC);
        uint64_t uTotal = 0;
        for (ssize_t iRead; (iRead = ::read(iFile, buffer.data(), buffer.size())) > 0;)
            uTotal += static_cast<uint64_t>(iRead);
        ::close(iFile);
        if (uTotal != cLoad.total())
            cState.SkipWithError("not all bytes were read");
    }
    finish(cState, cLoad);
}

class Counting : public FrameSink {
 public:
    void receiveFrame(ReferencePtr<Frame> cFrame, bool) override {
        if (cFrame)
            muFrames.fetch_add(1, std::memory_order_relaxed);
        else
            mbEnded.store(true, std::memory_order_release);
    }
    std::atomic<uint64_t> muFrames{0};
    std::atomic<bool> mbEnded{false};
};

void playing(benchmark::State& cState) {
    const Folder cFolder;
    const Load cLoad(cState.range(0));
    makeRecording(cFolder, cLoad);
    for (auto _ : cState) {
        const auto cFile = makeReference<StreamInputFile>(cFolder.recording());
        const auto cSink = makeReference<Counting>();
        ErrorList lErrors;
        cFile->setPaced(false);
        cFile->attachFrameSink(cSink, lErrors);
        cFile->play();
        while (!cSink->mbEnded.load(std::memory_order_acquire))
            utils::sleepMs(1);
        if (cSink->muFrames != cLoad.muFrames)
            cState.SkipWithError("not all frames were played");
    }
    finish(cState, cLoad);
}

BENCHMARK(plainWrite)->DenseRange(kLargeIQ, kSpectrum)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(recording)->DenseRange(kLargeIQ, kSpectrum)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(plainRead)->DenseRange(kLargeIQ, kSpectrum)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(playing)->DenseRange(kLargeIQ, kSpectrum)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace
