#include "tools/recordingreader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <csignal>
#include <cstring>

#include "tools/exitcodes.h"

namespace cli {

namespace {

struct Layout {
    DataType type;
    const char* name;
    uint32_t marker;
    size_t headBytes;
};

constexpr std::array<Layout, 3> kLayouts{{{DataType::iq, "IQ", 0x12F7A2E6, 20},
                                          {DataType::spectrum, "Spectrum", 0x59EC7422, 28},
                                          {DataType::baseband, "Baseband", 0xBA5EBA4D, 12}}};
constexpr size_t kMarkerBytes = 4, kWindowBytes = 65536;

const Layout& layoutOf(DataType type) {
    return kLayouts[static_cast<size_t>(type)];
}

/// A little-endian number.
template <typename T>
T number(const uint8_t* bytes) {
    T value = 0;
    for (size_t i = sizeof(T); i-- > 0;)
        value = static_cast<T>(value << 8 | bytes[i]);
    return value;
}

StoredFrame readHead(DataType type, const uint8_t* bytes) {
    StoredFrame frame;
    switch (type) {
        case DataType::iq:
            frame.timestamp = number<uint64_t>(bytes + 4);
            frame.sequence = number<uint32_t>(bytes + 12);
            frame.count = number<uint32_t>(bytes + 16);
            break;
        case DataType::spectrum:
            frame.timestamp = number<uint64_t>(bytes + 4);
            frame.duration = number<uint64_t>(bytes + 12);
            frame.sequence = number<uint32_t>(bytes + 20);
            frame.count = number<uint32_t>(bytes + 24);
            break;
        case DataType::baseband:
            frame.count = number<uint32_t>(bytes + 4);
            frame.channels = number<uint32_t>(bytes + 8);
            break;
    }
    return frame;
}

}  // namespace

std::string toText(DataType type) {
    return layoutOf(type).name;
}

std::optional<DataType> dataTypeFrom(const std::string& text) {
    for (const Layout& layout : kLayouts)
        if (text == layout.name)
            return layout.type;
    return std::nullopt;
}

RecordingReader::RecordingReader(const std::string& path) : mcPath(path) {
    // A pipe would let the open wait for its other end.
    miFile = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    struct stat status {};
    if (miFile < 0 || ::fstat(miFile, &status) != 0)
        throw Failure(Exit::file, path + ": " + std::strerror(errno));
    if (!S_ISREG(status.st_mode)) {
        ::close(miFile);
        throw Failure(Exit::file, path + " is not a regular file");
    }
    muSize = static_cast<uint64_t>(status.st_size);
    muModified = static_cast<uint64_t>(status.st_mtim.tv_sec) * 1000000000 +
                 static_cast<uint64_t>(status.st_mtim.tv_nsec);
    if (const uint8_t* pBytes = look(kMarkerBytes))
        for (const Layout& layout : kLayouts)
            if (number<uint32_t>(pBytes) == layout.marker)
                mcType = layout.type;
}

RecordingReader::~RecordingReader() {
    ::close(miFile);
}

std::optional<StoredFrame> RecordingReader::next() {
    if (muPosition == muSize)
        return finish(DataEnd::whole);
    if (!mcType)
        return finish(muSize < kMarkerBytes ? DataEnd::cut : DataEnd::foreign);
    const Layout& layout = layoutOf(*mcType);
    const uint8_t* pMarker = look(kMarkerBytes);
    if (pMarker && number<uint32_t>(pMarker) != layout.marker)
        return finish(DataEnd::foreign);
    const uint8_t* pHead = look(layout.headBytes);
    if (!pHead)
        return finish(DataEnd::cut);
    StoredFrame frame = readHead(*mcType, pHead);
    if (frame.count == 0)
        return finish(DataEnd::empty);
    const uint64_t uSampleBytes = *mcType == DataType::iq ? 8 : 4;
    const uint64_t uRest = muSize - muPosition - layout.headBytes;
    // The product fits: both factors have 32 bits.
    const uint64_t uSamples = uint64_t{frame.count} * frame.channels;
    if (uSamples > uRest / uSampleBytes)
        return finish(DataEnd::cut);
    frame.offset = muPosition;
    frame.bytes = layout.headBytes + uSamples * uSampleBytes;
    muPosition += frame.bytes;
    return frame;
}

std::optional<StoredFrame> RecordingReader::finish(DataEnd end) {
    meEnd = end;
    return std::nullopt;
}

const uint8_t* RecordingReader::look(size_t bytes) {
    if (muSize - muPosition < bytes)
        return nullptr;
    if (muPosition < muWindow || muPosition + bytes > muWindow + mlWindow.size())
        fill(bytes);
    return mlWindow.data() + (muPosition - muWindow);
}

void RecordingReader::fill(size_t bytes) {
    mlWindow.resize(static_cast<size_t>(std::min<uint64_t>(kWindowBytes, muSize - muPosition)));
    muWindow = muPosition;
    mlWindow.resize(readAt(muWindow, mlWindow.data(), mlWindow.size()));
    if (mlWindow.size() < bytes)
        throw Failure(Exit::file, mcPath + " became shorter while it was read");
}

size_t RecordingReader::readAt(uint64_t offset, uint8_t* bytes, size_t count) const {
    size_t uGot = 0;
    while (uGot < count) {
        const ssize_t iGot = ::pread(miFile, bytes + uGot, count - uGot, static_cast<off_t>(offset + uGot));
        if (iGot < 0 && errno == EINTR)
            continue;
        if (iGot < 0)
            throw Failure(Exit::file, mcPath + ": " + std::strerror(errno));
        if (iGot == 0)
            break;
        uGot += static_cast<size_t>(iGot);
    }
    return uGot;
}

std::vector<float> RecordingReader::samples(const StoredFrame& frame) const {
    static_assert(std::endian::native == std::endian::little, "the file is little-endian");
    const size_t uBytes = static_cast<size_t>(frame.bytes) - layoutOf(*mcType).headBytes;
    std::vector<float> samples(uBytes / sizeof(float));
    if (readAt(frame.offset + frame.bytes - uBytes, reinterpret_cast<uint8_t*>(samples.data()), uBytes) !=
        uBytes)
        throw Failure(Exit::file, mcPath + " became shorter while it was read");
    return samples;
}

bool RecordingReader::isBeingWritten() const {
    // A read lease is granted only while nobody writes. A writer that comes in the meantime would have its
    // signal end this program.
    std::signal(SIGIO, SIG_IGN);
    if (::fcntl(miFile, F_SETLEASE, F_RDLCK) != 0)
        return errno == EAGAIN;
    ::fcntl(miFile, F_SETLEASE, F_UNLCK);
    return false;
}

}  // namespace cli
