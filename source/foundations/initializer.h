#pragma once

#include <vector>

namespace utils {

/// Process-wide start-up and shut-down work. The objects register themselves in order of construction;
/// the global state runs the chain, first to last, both at its start and at its end.
class Initializer {
 public:
    Initializer();
    virtual ~Initializer();
    Initializer(const Initializer&) = delete;
    Initializer& operator=(const Initializer&) = delete;

    virtual bool initialise() = 0;
    virtual void finalise() = 0;

    static void initialiseAll();
    static void finaliseAll();
};

/// Slot for signal set-up on platforms that need one.
class SIGInitialize : public Initializer {
 public:
    bool initialise() override { return true; }
    void finalise() override {}
};

/// Seeds the library's own random generator with the time in seconds.
class _InitRandom : public Initializer {
 public:
    bool initialise() override;
    void finalise() override {}
};

/// Next value of the library's generator; any thread. The host's own generator is left alone.
unsigned randomValue();

}  // namespace utils
