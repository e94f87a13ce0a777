#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace cli {

/// Where samples go: a file, or standard output for "-".
class SampleOutput {
 public:
    /// Throws Failure with Exit::file when the file cannot be made.
    explicit SampleOutput(const std::string& path);
    ~SampleOutput();
    SampleOutput(const SampleOutput&) = delete;
    SampleOutput& operator=(const SampleOutput&) = delete;

    /// False when the reader of standard output has gone, which ends a capture in good order. Throws
    /// Failure with Exit::file on any other failure.
    bool write(const void* data, size_t bytes);
    /// Throws as write does: a full disk may show only here.
    void close();
    uint64_t bytes() const { return muBytes; }

 private:
    std::string mcPath;
    int miDescriptor = -1;
    bool mbOwned = false;
    uint64_t muBytes = 0;
};

/// Writes all of the bytes; the result is 0 or the error number.
int writeAll(int descriptor, const void* data, size_t bytes);
/// Prints a text on standard output; a reader that has gone is no failure.
void printOut(const std::string& text);
/// Prints a line on standard error.
void printErr(const std::string& line);

}  // namespace cli
