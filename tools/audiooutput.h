#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tools/audiofile.h"
#include "tools/audiosamples.h"
#include "tools/output.h"

namespace cli {

/// Where audio goes: a WAV file, raw 16-bit samples on standard output for "-", or nowhere for an empty path.
class AudioOutput {
 public:
    /// Throws Failure with Exit::file; so do the calls below.
    AudioOutput(const std::string& path, double sampleRateHz, uint32_t channels = 1);
    /// False when the reader of standard output has gone.
    bool write(const std::vector<int16_t>& samples);
    void close();
    uint64_t bytes() const;
    /// "Written: x.wav, 1.2 MB of 16-bit audio"; empty when it went elsewhere.
    std::vector<std::string> lines() const;

 private:
    std::string mcPath;
    double mdRate;
    std::unique_ptr<WavFile> mpFile;
    std::unique_ptr<SampleOutput> mpRaw;
};

}  // namespace cli
