#include "tools/audiooutput.h"

#include <bit>
#include <cmath>

#include "tools/units.h"

namespace cli {

AudioOutput::AudioOutput(const std::string& path, double sampleRateHz, uint32_t channels)
    : mcPath(path), mdRate(sampleRateHz) {
    if (path == "-")
        mpRaw = std::make_unique<SampleOutput>(path);
    else if (!path.empty())
        mpFile = std::make_unique<WavFile>(path, sampleRateHz, channels);
}

bool AudioOutput::write(const std::vector<int16_t>& samples) {
    static_assert(std::endian::native == std::endian::little, "raw samples are little-endian");
    if (mpRaw)
        return mpRaw->write(samples.data(), samples.size() * sizeof(int16_t));
    if (mpFile)
        mpFile->write(samples.data(), samples.size());
    return true;
}

void AudioOutput::close() {
    if (mpFile)
        mpFile->close();
    if (mpRaw)
        mpRaw->close();
}

uint64_t AudioOutput::bytes() const {
    return mpFile ? mpFile->bytes() : mpRaw ? mpRaw->bytes() : 0;
}

std::vector<std::string> AudioOutput::lines() const {
    if (!mpFile)
        return {};
    std::string text = "Written: " + mcPath + ", " + formatBytes(bytes()) + " of 16-bit audio";
    // Programs know whole rates only.
    if (std::abs(mdRate - mpFile->rate()) > 1e-3)
        text += "; its rate is told as " + formatSI(mpFile->rate(), "S/s");
    return {text};
}

}  // namespace cli
