#pragma once

#include <array>
#include <cstdint>
#include <istream>
#include <ostream>
#include <streambuf>
#include <string>

/// Regular files as streams, and nothing else: opening never waits for the other end of a FIFO or for a device,
/// both of which count as files that could not be opened. Paths are in the caller's form (RecordingPath).

/// Buffers small fields; samples go to the file from where they lie, with the fields before them in one call.
class OutputFileBuffer : public std::streambuf {
 public:
    OutputFileBuffer();
    ~OutputFileBuffer() override;
    OutputFileBuffer(const OutputFileBuffer&) = delete;
    OutputFileBuffer& operator=(const OutputFileBuffer&) = delete;

    /// Empties a file that exists, unless bOnlyNew: then it is a failure.
    bool open(const std::string& path, bool bOnlyNew);
    bool isOpen() const { return miFile >= 0; }
    /// False when the system tells only now that something has not been written.
    bool close();
    /// All that was written until the last commit, and not a byte more, is in the file.
    void rollBack();
    bool commit();
    /// The system's error of the last failure.
    int lastError() const { return miError; }

 protected:
    int_type overflow(int_type iCharacter) override;
    std::streamsize xsputn(const char* pBytes, std::streamsize iCount) override;
    int sync() override;

 private:
    bool writeOut(const char* pBytes, size_t uCount);

    int miFile = -1;
    int miError = 0;
    uint64_t muCommitted = 0;
    uint64_t muWritten = 0;
    std::array<char, 4096> mcFields;
};

/// Samples are read into where they shall lie. The position is the buffer's own, so that asking for it costs
/// no call to the system.
class InputFileBuffer : public std::streambuf {
 public:
    InputFileBuffer() = default;
    ~InputFileBuffer() override;
    InputFileBuffer(const InputFileBuffer&) = delete;
    InputFileBuffer& operator=(const InputFileBuffer&) = delete;

    bool open(const std::string& path);
    bool isOpen() const { return miFile >= 0; }

 protected:
    int_type underflow() override;
    std::streamsize xsgetn(char* pBytes, std::streamsize iCount) override;
    pos_type seekoff(off_type iOffset, std::ios_base::seekdir eFrom, std::ios_base::openmode eMode) override;
    pos_type seekpos(pos_type iPosition, std::ios_base::openmode eMode) override;

 private:
    std::streamsize readAt(char* pBytes, size_t uCount);
    off_type position() const { return miNext - (egptr() - gptr()); }

    int miFile = -1;
    off_type miNext = 0;   // where the file goes on behind the buffer
    std::array<char, 4096> mcFields;
};

class OutputFile : public std::ostream {
 public:
    OutputFile() : std::ostream(nullptr) { rdbuf(&mcBuffer); }
    OutputFileBuffer& buffer() { return mcBuffer; }

 private:
    OutputFileBuffer mcBuffer;
};

class InputFile : public std::istream {
 public:
    InputFile() : std::istream(nullptr) { rdbuf(&mcBuffer); }
    InputFileBuffer& buffer() { return mcBuffer; }

 private:
    InputFileBuffer mcBuffer;
};
