#include "streams/recordingfile.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>
#include <utility>

#include "streams/recordingpath.h"

namespace {

bool isRegular(int iFile) {
    struct stat cStat;
    return ::fstat(iFile, &cStat) == 0 && S_ISREG(cStat.st_mode);
}

/// -1 where the path names anything but a regular file, or nothing that the flags would make.
int openRegular(const std::string& path, int iFlags) {
    const std::string native = RecordingPath::nativeForm(path);
    struct stat cStat;
    // A device may act on being opened: looked at before.
    if (::stat(native.c_str(), &cStat) == 0 && !S_ISREG(cStat.st_mode)) {
        errno = EINVAL;
        return -1;
    }
    int iFile = -1;
    do
        iFile = ::open(native.c_str(), iFlags | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0666);
    while (iFile < 0 && errno == EINTR);
    if (iFile < 0 || isRegular(iFile))
        return iFile;
    ::close(iFile);
    errno = EINVAL;
    return -1;
}

}  // namespace

// Writing.

OutputFileBuffer::OutputFileBuffer() {
    setp(mcFields.data(), mcFields.data() + mcFields.size());
}

OutputFileBuffer::~OutputFileBuffer() {
    close();
}

bool OutputFileBuffer::open(const std::string& path, bool bOnlyNew) {
    miFile = openRegular(path, O_WRONLY | O_CREAT | (bOnlyNew ? O_EXCL : O_TRUNC));
    miError = miFile < 0 ? errno : 0;
    return miFile >= 0;
}

bool OutputFileBuffer::close() {
    if (miFile < 0)
        return true;
    const bool bWritten = sync() == 0;
    const bool bClosed = ::close(std::exchange(miFile, -1)) == 0;
    if (!bClosed)
        miError = errno;
    return bWritten && bClosed;
}

bool OutputFileBuffer::writeOut(const char* pBytes, size_t uCount) {
    const char* pFields = pbase();
    size_t uFields = static_cast<size_t>(pptr() - pbase());
    while (uFields + uCount > 0) {
        if (miFile < 0) {
            miError = miError ? miError : EBADF;
            return false;
        }
        const iovec cParts[2] = {{const_cast<char*>(pFields), uFields}, {const_cast<char*>(pBytes), uCount}};
        const ssize_t iWritten = ::writev(miFile, cParts, 2);
        if (iWritten < 0 && errno == EINTR)
            continue;
        if (iWritten <= 0) {
            miError = iWritten < 0 ? errno : ENOSPC;
            return false;
        }
        muWritten += static_cast<uint64_t>(iWritten);
        const size_t uOfFields = std::min(static_cast<size_t>(iWritten), uFields);
        pFields += uOfFields;
        uFields -= uOfFields;
        pBytes += static_cast<size_t>(iWritten) - uOfFields;
        uCount -= static_cast<size_t>(iWritten) - uOfFields;
    }
    setp(mcFields.data(), mcFields.data() + mcFields.size());
    return true;
}

OutputFileBuffer::int_type OutputFileBuffer::overflow(int_type iCharacter) {
    if (!writeOut(nullptr, 0))
        return traits_type::eof();
    if (!traits_type::eq_int_type(iCharacter, traits_type::eof())) {
        *pptr() = traits_type::to_char_type(iCharacter);
        pbump(1);
    }
    return traits_type::not_eof(iCharacter);
}

std::streamsize OutputFileBuffer::xsputn(const char* pBytes, std::streamsize iCount) {
    if (iCount >= epptr() - pptr())
        return writeOut(pBytes, static_cast<size_t>(iCount)) ? iCount : 0;
    std::memcpy(pptr(), pBytes, static_cast<size_t>(iCount));
    pbump(static_cast<int>(iCount));
    return iCount;
}

int OutputFileBuffer::sync() {
    return writeOut(nullptr, 0) ? 0 : -1;
}

bool OutputFileBuffer::commit() {
    if (sync() != 0)
        return false;
    muCommitted = muWritten;
    return true;
}

void OutputFileBuffer::rollBack() {
    setp(mcFields.data(), mcFields.data() + mcFields.size());
    // Also gives the torn frame's room back, which the description may need. The result does not matter: a
    // frame that is cut off is not read.
    if (miFile >= 0 && ::ftruncate(miFile, static_cast<off_t>(muCommitted)) == 0)
        muWritten = static_cast<uint64_t>(::lseek(miFile, static_cast<off_t>(muCommitted), SEEK_SET));
}

// Reading.

InputFileBuffer::~InputFileBuffer() {
    if (miFile >= 0)
        ::close(miFile);
}

bool InputFileBuffer::open(const std::string& path) {
    miFile = openRegular(path, O_RDONLY);
    return miFile >= 0;
}

std::streamsize InputFileBuffer::readAt(char* pBytes, size_t uCount) {
    size_t uDone = 0;
    while (uDone < uCount) {
        const ssize_t iRead = ::pread(miFile, pBytes + uDone, uCount - uDone, miNext);
        if (iRead < 0 && errno == EINTR)
            continue;
        if (iRead <= 0)
            break;
        miNext += iRead;
        uDone += static_cast<size_t>(iRead);
    }
    return static_cast<std::streamsize>(uDone);
}

InputFileBuffer::int_type InputFileBuffer::underflow() {
    const std::streamsize iCount = readAt(mcFields.data(), mcFields.size());
    setg(mcFields.data(), mcFields.data(), mcFields.data() + iCount);
    return iCount == 0 ? traits_type::eof() : traits_type::to_int_type(mcFields[0]);
}

std::streamsize InputFileBuffer::xsgetn(char* pBytes, std::streamsize iCount) {
    const std::streamsize iBuffered = std::min<std::streamsize>(egptr() - gptr(), iCount);
    if (iBuffered > 0) {
        std::memcpy(pBytes, gptr(), static_cast<size_t>(iBuffered));
        gbump(static_cast<int>(iBuffered));
    }
    const std::streamsize iRest = iCount - iBuffered;
    if (iRest == 0)
        return iCount;
    if (iRest >= static_cast<std::streamsize>(mcFields.size()))
        return iBuffered + readAt(pBytes + iBuffered, static_cast<size_t>(iRest));
    underflow();
    const std::streamsize iMore = std::min<std::streamsize>(egptr() - gptr(), iRest);
    std::memcpy(pBytes + iBuffered, gptr(), static_cast<size_t>(iMore));
    gbump(static_cast<int>(iMore));
    return iBuffered + iMore;
}

InputFileBuffer::pos_type InputFileBuffer::seekoff(off_type iOffset, std::ios_base::seekdir eFrom,
                                                   std::ios_base::openmode eMode) {
    struct stat cStat;
    if (miFile < 0)
        return pos_type(off_type(-1));
    if (eFrom == std::ios_base::cur && iOffset == 0)
        return pos_type(position());
    if (eFrom == std::ios_base::cur)
        return seekpos(pos_type(position() + iOffset), eMode);
    if (eFrom == std::ios_base::end)
        return ::fstat(miFile, &cStat) == 0 ? seekpos(pos_type(cStat.st_size + iOffset), eMode)
                                            : pos_type(off_type(-1));
    return seekpos(pos_type(iOffset), eMode);
}

InputFileBuffer::pos_type InputFileBuffer::seekpos(pos_type iPosition, std::ios_base::openmode) {
    if (miFile < 0 || off_type(iPosition) < 0)
        return pos_type(off_type(-1));
    miNext = off_type(iPosition);
    setg(mcFields.data(), mcFields.data(), mcFields.data());
    return iPosition;
}
