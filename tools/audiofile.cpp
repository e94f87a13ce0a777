#include "tools/audiofile.h"

#include <fcntl.h>
#include <sndfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <utility>

#include "tools/exitcodes.h"
#include "tools/output.h"

namespace cli {

namespace {

class FileStore : public WavStore {
 public:
    explicit FileStore(const std::string& path) {
        // A pipe would let the open wait for its other end, and has no room for a header that comes last.
        miFile = ::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_NONBLOCK | O_CLOEXEC, 0666);
        if (miFile < 0)
            throw Failure(Exit::file, path + ": " + std::strerror(errno));
        struct stat status {};
        if (::fstat(miFile, &status) == 0 && !S_ISREG(status.st_mode) && ::lseek(miFile, 0, SEEK_CUR) < 0) {
            ::close(miFile);
            throw Failure(Exit::file, path + ": a WAV file needs a place to seek in; -o - gives raw samples");
        }
    }
    ~FileStore() override { closeFile(); }
    FileStore(const FileStore&) = delete;
    FileStore& operator=(const FileStore&) = delete;

    int64_t write(const void* data, int64_t bytes) override {
        if (const int iError = writeAll(miFile, data, static_cast<size_t>(bytes)); iError != 0) {
            note(iError);
            return 0;
        }
        return bytes;
    }
    int64_t read(void* data, int64_t bytes) override {
        return std::max<int64_t>(0, ::read(miFile, data, static_cast<size_t>(bytes)));
    }
    int64_t seek(int64_t position) override { return ::lseek(miFile, position, SEEK_SET); }
    int64_t position() const override { return ::lseek(miFile, 0, SEEK_CUR); }
    int64_t size() const override {
        struct stat status {};
        return ::fstat(miFile, &status) == 0 ? status.st_size : 0;
    }
    std::string failure() const override { return miError != 0 ? std::strerror(miError) : ""; }
    void close() override { closeFile(); }

 private:
    void note(int error) { miError = miError != 0 ? miError : error; }
    void closeFile() {
        if (miFile >= 0 && ::close(miFile) != 0)
            note(errno);
        miFile = -1;
    }

    int miFile = -1;
    int miError = 0;
};

WavStore& storeOf(void* user) {
    return *static_cast<WavStore*>(user);
}

sf_count_t seekStore(sf_count_t offset, int whence, void* user) {
    WavStore& store = storeOf(user);
    const sf_count_t from = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? store.position() : store.size();
    return store.seek(from + offset);
}

SF_VIRTUAL_IO makeCalls() {
    SF_VIRTUAL_IO calls{};
    calls.get_filelen = [](void* user) -> sf_count_t { return storeOf(user).size(); };
    calls.seek = seekStore;
    calls.read = [](void* data, sf_count_t bytes, void* user) -> sf_count_t {
        return storeOf(user).read(data, bytes);
    };
    calls.write = [](const void* data, sf_count_t bytes, void* user) -> sf_count_t {
        return storeOf(user).write(data, bytes);
    };
    calls.tell = [](void* user) -> sf_count_t { return storeOf(user).position(); };
    return calls;
}

}  // namespace

struct WavFile::Handle {
    SF_VIRTUAL_IO calls = makeCalls();
    SNDFILE* file = nullptr;
    ~Handle() { close(); }
    int close() {
        SNDFILE* pFile = std::exchange(file, nullptr);
        return pFile ? ::sf_close(pFile) : 0;
    }
};

WavFile::WavFile(const std::string& path, double sampleRateHz, uint32_t channels)
    : WavFile(std::make_unique<FileStore>(path), path, sampleRateHz, channels) {}

WavFile::WavFile(std::unique_ptr<WavStore> store, const std::string& name, double sampleRateHz,
                 uint32_t channels)
    : mcName(name),
      muRate(static_cast<uint32_t>(std::lround(std::clamp(sampleRateHz, 1.0, 2e9)))),
      muChannels(channels),
      mpStore(std::move(store)),
      mpHandle(std::make_unique<Handle>()) {
    SF_INFO info{};
    info.samplerate = static_cast<int>(muRate);
    info.channels = static_cast<int>(channels);
    info.format = SF_FORMAT_RF64 | SF_FORMAT_PCM_16;
    mpHandle->file = ::sf_open_virtual(&mpHandle->calls, SFM_WRITE, &info, mpStore.get());
    check(mpHandle->file != nullptr);
    // Up to 4 GB it is a plain WAV file, which every program takes.
    check(::sf_command(mpHandle->file, SFC_RF64_AUTO_DOWNGRADE, nullptr, SF_TRUE) == SF_TRUE);
}

WavFile::~WavFile() = default;

void WavFile::check(bool good) const {
    if (const std::string failure = mpStore->failure(); !failure.empty())
        throw Failure(Exit::file, mcName + ": " + failure);
    if (!good)
        throw Failure(Exit::file, mcName + ": " + ::sf_strerror(mpHandle->file));
}

void WavFile::write(const int16_t* samples, size_t count) {
    const auto iCount = static_cast<sf_count_t>(count);
    check(::sf_write_short(mpHandle->file, samples, iCount) == iCount);
    muSinceHeader += count / muChannels;
    if (muSinceHeader < muRate)
        return;
    // What a killed program leaves behind can be played, but for its last second.
    muSinceHeader = 0;
    ::sf_command(mpHandle->file, SFC_UPDATE_HEADER_NOW, nullptr, 0);
    check(true);
}

void WavFile::close() {
    const bool bGood = mpHandle->close() == 0;
    muBytes = static_cast<uint64_t>(mpStore->size());
    mpStore->close();
    check(bGood);
}

}  // namespace cli
