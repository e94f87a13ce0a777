#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace cli {

enum class DataType { iq, spectrum, baseband };
/// As a description names it.
std::string toText(DataType type);
std::optional<DataType> dataTypeFrom(const std::string& text);

/// The fields before the samples of a stored frame.
struct StoredFrame {
    uint64_t offset = 0, bytes = 0;        ///< where it lies in the file, all of it
    uint64_t timestamp = 0, duration = 0;  ///< ticks of the recording; a baseband frame has neither
    uint32_t sequence = 0;
    uint32_t count = 0;  ///< samples, points, or samples of each channel
    uint32_t channels = 1;
};

/// How the frames of a file end.
enum class DataEnd {
    whole,    ///< with the file
    cut,      ///< in a frame that the file's end cuts off
    foreign,  ///< at bytes that begin no frame of the kind
    empty     ///< at a frame without samples, where a player stops
};

/// Goes through the data file of a recording from front to back. It looks at the fields of each frame and
/// skips the samples, so that it needs no more memory for a large file than for a small one. The file is
/// taken as long as it is at the start.
class RecordingReader {
 public:
    /// Throws Failure with Exit::file when it is no regular file or cannot be read; so does next.
    explicit RecordingReader(const std::string& path);
    ~RecordingReader();
    RecordingReader(const RecordingReader&) = delete;
    RecordingReader& operator=(const RecordingReader&) = delete;

    uint64_t size() const { return muSize; }
    /// When the file was last written, since 1970.
    uint64_t modifiedNanoseconds() const { return muModified; }
    /// What the first frame is; nothing when the file begins with none.
    std::optional<DataType> type() const { return mcType; }
    /// Nothing when the frames have ended: end() tells how, and position() where.
    std::optional<StoredFrame> next();
    /// The samples of a frame as they lie there, channel by channel; the place of next() stays as it is.
    std::vector<float> samples(const StoredFrame& frame) const;
    DataEnd end() const { return meEnd; }
    uint64_t position() const { return muPosition; }
    void rewind() { muPosition = 0; }
    /// Whether some program holds the file open for writing, where the system can tell.
    bool isBeingWritten() const;

 private:
    /// `bytes` of the file from the present position, or null where it ends before.
    const uint8_t* look(size_t bytes);
    void fill(size_t bytes);
    size_t readAt(uint64_t offset, uint8_t* bytes, size_t count) const;
    std::optional<StoredFrame> finish(DataEnd end);

    std::string mcPath;
    int miFile = -1;
    uint64_t muSize = 0, muModified = 0, muPosition = 0;
    std::optional<DataType> mcType;
    DataEnd meEnd = DataEnd::whole;
    std::vector<uint8_t> mlWindow;
    uint64_t muWindow = 0;  ///< where the window lies in the file
};

}  // namespace cli
