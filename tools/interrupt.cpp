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
}

bool interrupted() {
    return gbInterrupted != 0;
}

}  // namespace cli
