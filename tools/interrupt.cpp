#include "tools/interrupt.h"

#include <csignal>

namespace cli {

namespace {

volatile std::sig_atomic_t gbInterrupted = 0;

void noteInterrupt(int) {
    gbInterrupted = 1;
}

}  // namespace

void catchInterrupts() {
    struct sigaction action {};
    action.sa_handler = noteInterrupt;
    ::sigemptyset(&action.sa_mask);
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);
    // A terminal that closes must not cost a recording its description; who started this to outlive it has
    // said so.
    struct sigaction present {};
    if (::sigaction(SIGHUP, nullptr, &present) == 0 && present.sa_handler != SIG_IGN)
        ::sigaction(SIGHUP, &action, nullptr);
}

bool interrupted() {
    return gbInterrupted != 0;
}

}  // namespace cli
