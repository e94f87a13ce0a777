// Plays a recording in a loop and records it, for a parent that kills this process: recorder SOURCE OUTPUT.
// Writes one byte to its output for each of the first frames that it has read.
#include <sys/prctl.h>
#include <unistd.h>
#include <csignal>
#include <cstring>

#include "libvnk.h"

int main(int iCount, char** ppArguments) {
    if (iCount != 3)
        return 2;
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    uint32_t uStream = 0;
    char* pParameters = strdup("{\"LoopingFlag\":true,\"bufferFrames\":1000}");
    if (vnkCreateIQStream(&uStream, 100e6f, 100e3f, -30.0f) != 0 ||
        vnkSetParameters(uStream, &pParameters) != 0 ||
        vnkSetStreamOutputFile(uStream, ppArguments[2]) != 0 ||
        vnkAttachStreamToFile(uStream, ppArguments[1]) != 0)
        return 1;
    for (unsigned uRead = 0;;) {
        vnkIQRecord* pRecord = nullptr;
        if (vnkGetNextIQ(uStream, &pRecord, 1000) != 0)
            continue;
        vnkFreeIQ(&pRecord);
        if (++uRead <= 2 && ::write(STDOUT_FILENO, ".", 1) != 1)
            return 1;
    }
}
