#include "tools/output.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "tools/exitcodes.h"

namespace cli {

int writeAll(int descriptor, const void* data, size_t bytes) {
    const char* pAt = static_cast<const char*>(data);
    while (bytes > 0) {
        const ssize_t iWritten = ::write(descriptor, pAt, bytes);
        if (iWritten < 0) {
            if (errno == EINTR)
                continue;
            return errno;
        }
        pAt += iWritten;
        bytes -= static_cast<size_t>(iWritten);
    }
    return 0;
}

SampleOutput::SampleOutput(const std::string& path) : mcPath(path) {
    if (path == "-") {
        miDescriptor = STDOUT_FILENO;
        return;
    }
    miDescriptor = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (miDescriptor < 0)
        throw Failure(Exit::file, path + ": " + std::strerror(errno));
    mbOwned = true;
}

SampleOutput::~SampleOutput() {
    if (mbOwned)
        ::close(miDescriptor);
}

bool SampleOutput::write(const void* data, size_t bytes) {
    const int iError = writeAll(miDescriptor, data, bytes);
    if (iError == EPIPE && !mbOwned)
        return false;
    if (iError != 0)
        throw Failure(Exit::file, mcPath + ": " + std::strerror(iError));
    muBytes += bytes;
    return true;
}

void SampleOutput::close() {
    if (!mbOwned)
        return;
    mbOwned = false;
    if (::close(miDescriptor) != 0)
        throw Failure(Exit::file, mcPath + ": " + std::strerror(errno));
}

void printOut(const std::string& text) {
    const int iError = writeAll(STDOUT_FILENO, text.data(), text.size());
    if (iError != 0 && iError != EPIPE)
        throw Failure(Exit::file, std::string("standard output: ") + std::strerror(iError));
}

void printErr(const std::string& line) {
    const std::string text = line + "\n";
    // Nobody is left to tell when this fails.
    (void)writeAll(STDERR_FILENO, text.data(), text.size());
}

}  // namespace cli
