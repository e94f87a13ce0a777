#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace cli {

/// Where the bytes of a WAV file go; a file, unless a test says otherwise.
class WavStore {
 public:
    virtual ~WavStore() = default;
    /// Bytes written, fewer after a failure.
    virtual int64_t write(const void* data, int64_t bytes) = 0;
    virtual int64_t read(void* data, int64_t bytes) = 0;
    /// From its beginning.
    virtual int64_t seek(int64_t position) = 0;
    virtual int64_t position() const = 0;
    virtual int64_t size() const = 0;
    /// In words; empty as long as all went well.
    virtual std::string failure() const = 0;
    virtual void close() = 0;
};

/// 16-bit WAV, and RF64, its form for large files, when it grows beyond 4 GB.
class WavFile {
 public:
    /// Throws Failure with Exit::file when the file cannot be made; so does each call below, a full disk
    /// included.
    WavFile(const std::string& path, double sampleRateHz, uint32_t channels);
    WavFile(std::unique_ptr<WavStore> store, const std::string& name, double sampleRateHz, uint32_t channels);
    ~WavFile();
    WavFile(const WavFile&) = delete;
    WavFile& operator=(const WavFile&) = delete;

    /// Channels take turns.
    void write(const int16_t* samples, size_t count);
    void close();
    /// Of the whole file, once it is closed.
    uint64_t bytes() const { return muBytes; }
    /// The rate in the file: whole hertz.
    uint32_t rate() const { return muRate; }

 private:
    struct Handle;
    void check(bool good) const;

    std::string mcName;
    uint32_t muRate, muChannels;
    std::unique_ptr<WavStore> mpStore;
    std::unique_ptr<Handle> mpHandle;
    uint64_t muBytes = 0, muSinceHeader = 0;
};

}  // namespace cli
