#include "streams/wavconversion.h"

#include <array>
#include <cstring>
#include <fstream>

#include "flows/framesink.h"
#include "foundations/clock.h"
#include "streams/recordingpath.h"
#include "streams/streaminputfile.h"

namespace {

constexpr int32_t kNotOpen = -29;
constexpr int32_t kNotBaseband = -79;
constexpr int32_t kNoOutputName = -84;
constexpr uint32_t kPollMs = 10;
constexpr uint32_t kEndLimitMs = 1000;
constexpr uint32_t kUnknownSize = 0xCCCCCCCC;
constexpr uint32_t kHeaderBytes = 44;

using Header = std::array<char, kHeaderBytes>;

template <typename T>
void place(Header& cHeader, size_t uOffset, T cValue) {
    std::memcpy(cHeader.data() + uOffset, &cValue, sizeof cValue);
}

/// RIFF, 16-bit PCM, one channel; numbers are little-endian.
Header makeHeader(uint32_t uSampleRate, uint32_t uRIFFSize, uint32_t uDataSize) {
    Header cHeader{};
    std::memcpy(cHeader.data(), "RIFF", 4);
    place(cHeader, 4, uRIFFSize);
    std::memcpy(cHeader.data() + 8, "WAVEfmt ", 8);
    place(cHeader, 16, uint32_t{16});
    place(cHeader, 20, uint16_t{1});
    place(cHeader, 22, uint16_t{1});
    place(cHeader, 24, uSampleRate);
    place(cHeader, 28, uSampleRate * 2);
    place(cHeader, 32, uint16_t{2});
    place(cHeader, 34, uint16_t{16});
    std::memcpy(cHeader.data() + 36, "data", 4);
    place(cHeader, 40, uDataSize);
    return cHeader;
}

/// Takes the frames of the recording. Nothing writes their samples yet, so that the file is its header alone.
class _WAVFrameSink : public FrameSink {
 public:
    explicit _WAVFrameSink(std::ostream& cOutput) : mpOutput(&cOutput) {}
    uint32_t samplesWritten() const { return muSamplesWritten; }
    uint32_t position() const { return static_cast<uint32_t>(mpOutput->tellp()); }

 private:
    std::ostream* mpOutput;
    uint32_t muSamplesWritten = 0;
};

void writeHeader(std::ostream& cOutput, const Header& cHeader) {
    cOutput.seekp(0);
    cOutput.write(cHeader.data(), kHeaderBytes);
}

void playThrough(StreamInputFile& cFile, const ReferencePtr<FrameSink>& cSink) {
    ErrorList lErrors;
    cFile.attachFrameSink(cSink, lErrors);
    cFile.play();
    while (!cFile.isExhausted())
        utils::sleepMs(kPollMs);
    cFile.stop(kEndLimitMs);
}

}  // namespace

int32_t convertBasebandFileToWavFile(const std::string& recording, const std::string& wavPath) {
    const auto cFile = makeReference<StreamInputFile>(recording);
    if (!cFile->isOpen())
        return kNotOpen;
    if (cFile->dataType() != "Baseband")
        return kNotBaseband;
    const std::string path = RecordingPath::makeUnique(wavPath);
    if (path.empty())
        return kNoOutputName;
    std::fstream cOutput(RecordingPath::nativeForm(path),
                         std::ios::in | std::ios::out | std::ios::trunc | std::ios::binary);
    if (!cOutput)
        return kNotOpen;
    const uint32_t uRate = readUnsigned32(cFile->getSampling(), "SampleRateHz").value_or(0);
    writeHeader(cOutput, makeHeader(uRate, kUnknownSize, kUnknownSize));
    const auto cSink = makeReference<_WAVFrameSink>(cOutput);
    playThrough(*cFile, cSink);
    writeHeader(cOutput, makeHeader(uRate, cSink->position() - 8, cSink->samplesWritten() * 2));
    cOutput.close();
    return 0;
}
