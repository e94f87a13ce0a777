#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

/// Recordings as tests write and read them, knowing nothing but the documented form.
namespace vnktest {

/// A folder that goes with this object.
class ScratchFolder {
 public:
    ScratchFolder() {
        std::string pattern = (std::filesystem::temp_directory_path() / "vnk-tools-XXXXXX").string();
        if (!::mkdtemp(pattern.data()))
            throw std::runtime_error("mkdtemp");
        mcPath = pattern;
    }
    ~ScratchFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(mcPath, ignored);
    }
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    std::string operator/(const std::string& name) const { return mcPath + "/" + name; }
    const std::string& path() const { return mcPath; }

 private:
    std::string mcPath;
};

inline std::string contents(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

inline void writeFile(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

inline bool fileExists(const std::string& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0;
}

template <typename T>
std::string littleEndian(T value) {
    std::string bytes;
    for (size_t i = 0; i < sizeof(T); ++i)
        bytes += static_cast<char>(static_cast<uint64_t>(value) >> (8 * i) & 0xFF);
    return bytes;
}

inline std::string floats(const std::vector<float>& values) {
    std::string bytes(values.size() * sizeof(float), '\0');
    if (!values.empty())
        std::memcpy(bytes.data(), values.data(), bytes.size());
    return bytes;
}

/// `samples` are pairs.
inline std::string iqFrame(uint64_t timestamp, uint32_t sequence, const std::vector<float>& samples) {
    return littleEndian(uint32_t{0x12F7A2E6}) + littleEndian(timestamp) + littleEndian(sequence) +
           littleEndian(static_cast<uint32_t>(samples.size() / 2)) + floats(samples);
}

inline std::string spectrumFrame(uint64_t timestamp, uint64_t duration, uint32_t sequence,
                                 const std::vector<float>& points) {
    return littleEndian(uint32_t{0x59EC7422}) + littleEndian(timestamp) + littleEndian(duration) +
           littleEndian(sequence) + littleEndian(static_cast<uint32_t>(points.size())) + floats(points);
}

inline std::string basebandFrame(const std::vector<std::vector<float>>& channels) {
    std::string bytes = littleEndian(uint32_t{0xBA5EBA4D}) +
                        littleEndian(static_cast<uint32_t>(channels.empty() ? 0 : channels[0].size())) +
                        littleEndian(static_cast<uint32_t>(channels.size()));
    for (const auto& channel : channels)
        bytes += floats(channel);
    return bytes;
}

/// Frames of 100 samples at 10 kS/s, 10 ms each, in sequence from 5 on; sample n of all is (n, -n).
inline std::string evenIq(uint32_t frames, uint64_t startNs = 1700000000000000000) {
    std::string bytes;
    for (uint32_t u = 0; u < frames; ++u) {
        std::vector<float> samples;
        for (uint32_t i = 0; i < 100; ++i) {
            samples.push_back(static_cast<float>(u * 100 + i));
            samples.push_back(-samples.back());
        }
        bytes += iqFrame(startNs + uint64_t{u} * 10000000, 5 + u, samples);
    }
    return bytes;
}

/// The samples of a data file of IQ frames, as they lie there.
inline std::string iqSamples(const std::string& data) {
    std::string samples;
    for (size_t uAt = 0; uAt + 20 <= data.size();) {
        uint32_t uCount = 0;
        std::memcpy(&uCount, data.data() + uAt + 16, 4);
        samples += data.substr(uAt + 20, size_t{uCount} * 8);
        uAt += 20 + size_t{uCount} * 8;
    }
    return samples;
}

}  // namespace vnktest
