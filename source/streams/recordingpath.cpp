#include "streams/recordingpath.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace RecordingPath {

namespace {

// Opened and closed again, without waiting for the other end of a FIFO. Where the process has no descriptor left,
// a file that exists counts: a recording must not take its name.
bool canBeOpened(const std::string& path) {
    const std::string native = nativeForm(path);
    const int iFile = ::open(native.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (iFile >= 0) {
        ::close(iFile);
        return true;
    }
    struct stat cStat;
    const bool bNoDescriptor = errno == EMFILE || errno == ENFILE || errno == ENOMEM || errno == EINTR;
    return bNoDescriptor && ::stat(native.c_str(), &cStat) == 0;
}

/// Where the counting starts: at the number between the first "(" and the last ")" behind it.
int64_t firstNumber(const std::string& stem) {
    const size_t uOpen = stem.find('(');
    if (uOpen == std::string::npos)
        return 1;
    const size_t uClose = stem.rfind(')');
    const size_t uLength = uClose == std::string::npos || uClose < uOpen ? std::string::npos : uClose - uOpen - 1;
    return std::stoi(stem.substr(uOpen + 1, uLength));
}

}  // namespace

std::string stemOf(const std::string& path) {
    return path.substr(0, path.rfind('.'));
}

bool hasFolder(const std::string& path) {
    const std::string folder = nativeForm(path.substr(0, path.rfind('\\')));
    struct stat cStat;
    return ::stat(folder.c_str(), &cStat) == 0 && S_ISDIR(cStat.st_mode);
}

std::string nativeForm(const std::string& path) {
    std::string native = path;
    std::replace(native.begin(), native.end(), '\\', '/');
    return native;
}

std::string makeUnique(const std::string& path) {
    if (!hasFolder(path))
        return {};
    if (!canBeOpened(path))
        return path;
    const std::string stem = stemOf(path);
    const std::string extension = path.substr(stem.size());
    for (int64_t iNumber = firstNumber(stem);; ++iNumber) {
        std::string candidate = stem + "(" + std::to_string(iNumber) + ")" + extension;
        if (!canBeOpened(candidate))
            return candidate;
    }
}

}  // namespace RecordingPath
