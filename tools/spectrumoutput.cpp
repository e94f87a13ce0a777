#include "tools/spectrumoutput.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <bit>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>

#include "tools/exitcodes.h"
#include "tools/units.h"

namespace cli {

namespace {

/// "2025-03-09T14:05:06.007000000Z"
std::string isoTime(uint64_t nanoseconds) {
    std::string text = formatTime(nanoseconds);
    if (const auto uSpace = text.find(' '); uSpace != std::string::npos)
        text[uSpace] = 'T';
    if (const auto uZone = text.find(" UTC"); uZone != std::string::npos) {
        text.erase(uZone);
        text += 'Z';
    }
    return text;
}

/// The shortest text that reads back as the same number.
template <typename Number>
void appendNumber(std::string& text, Number value) {
    std::array<char, 64> buffer;
    const auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value);
    text.append(buffer.data(), result.ptr);
}

/// Hertz, without an exponent.
void appendHertz(std::string& text, double hertz) {
    std::array<char, 64> buffer;
    const auto result =
        std::to_chars(buffer.data(), buffer.data() + buffer.size(), hertz, std::chars_format::fixed, 1);
    text.append(buffer.data(), result.ptr);
}

void appendLevel(std::string& text, float level) {
    std::array<char, 64> buffer;
    const auto result =
        std::to_chars(buffer.data(), buffer.data() + buffer.size(), level, std::chars_format::fixed, 3);
    text.append(buffer.data(), result.ptr);
}

void appendLevels(std::string& text, const char* name, const float* levels, size_t points) {
    text += std::string(",\"") + name + "\":[";
    for (size_t i = 0; i < points; ++i) {
        if (i > 0)
            text += ',';
        // JSON has no word for what is not finite.
        if (std::isfinite(levels[i]))
            appendNumber(text, levels[i]);
        else
            text += "null";
    }
    text += ']';
}

}  // namespace

std::unique_ptr<SampleOutput> openOutput(const std::string& path) {
    struct stat status {};
    int iHeld = -1;
    if (path != "-" && ::stat(path.c_str(), &status) == 0 && S_ISFIFO(status.st_mode)) {
        iHeld = ::open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
        if (iHeld < 0)
            throw Failure(Exit::file,
                          path + ": " + (errno == ENXIO ? "a pipe that nobody reads" : std::strerror(errno)));
    }
    // The reader must not see an end between the two.
    auto output = std::make_unique<SampleOutput>(path);
    if (iHeld >= 0)
        ::close(iHeld);
    return output;
}

bool SpectrumWriter::write(const SpectrumView& spectrum) {
    mcText.clear();
    switch (meFormat) {
        case SpectrumFormat::csv:
            appendCsv(spectrum);
            break;
        case SpectrumFormat::jsonl:
            appendJson(spectrum);
            break;
        case SpectrumFormat::f32:
            appendFloats(spectrum);
            break;
    }
    mbBegun = true;
    return mcOutput.write(mcText.data(), mcText.size());
}

void SpectrumWriter::appendCsv(const SpectrumView& spectrum) {
    if (!mbBegun)
        mcText = std::string("sequence,time,frequency_hz,level_dbm") +
                 (spectrum.hasTraces() ? ",minimum_dbm,maximum_dbm,average_dbm\n" : "\n");
    const std::string start = std::to_string(spectrum.sequence) + "," + isoTime(spectrum.time) + ",";
    const double dStep = spectrum.points > 1
                             ? (spectrum.highHz - spectrum.lowHz) / static_cast<double>(spectrum.points - 1)
                             : 0;
    for (size_t i = 0; i < spectrum.points; ++i) {
        mcText += start;
        appendHertz(mcText, spectrum.lowHz + static_cast<double>(i) * dStep);
        mcText += ',';
        appendLevel(mcText, spectrum.levels[i]);
        if (spectrum.hasTraces())
            for (const float* pTrace : {spectrum.minimum, spectrum.maximum, spectrum.average}) {
                mcText += ',';
                appendLevel(mcText, pTrace[i]);
            }
        mcText += '\n';
    }
}

void SpectrumWriter::appendJson(const SpectrumView& spectrum) {
    mcText = "{\"sequence\":" + std::to_string(spectrum.sequence) + ",\"time\":\"" + isoTime(spectrum.time) +
             "\",\"minimumHz\":";
    appendNumber(mcText, spectrum.lowHz);
    mcText += ",\"maximumHz\":";
    appendNumber(mcText, spectrum.highHz);
    mcText += ",\"rbwHz\":";
    appendNumber(mcText, spectrum.rbwHz);
    appendLevels(mcText, "levelsdBm", spectrum.levels, spectrum.points);
    if (spectrum.hasTraces()) {
        appendLevels(mcText, "minimumdBm", spectrum.minimum, spectrum.points);
        appendLevels(mcText, "maximumdBm", spectrum.maximum, spectrum.points);
        appendLevels(mcText, "averagedBm", spectrum.average, spectrum.points);
    }
    mcText += "}\n";
}

void SpectrumWriter::appendFloats(const SpectrumView& spectrum) {
    static_assert(std::endian::native == std::endian::little, "the file is little-endian");
    mcText.assign(reinterpret_cast<const char*>(spectrum.levels), spectrum.points * sizeof(float));
    if (spectrum.hasTraces())
        for (const float* pTrace : {spectrum.minimum, spectrum.maximum, spectrum.average})
            mcText.append(reinterpret_cast<const char*>(pTrace), spectrum.points * sizeof(float));
}

}  // namespace cli
