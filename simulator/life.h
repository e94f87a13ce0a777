#pragma once

#include <functional>
#include <mutex>
#include <optional>

#include "simulator/faults.h"

namespace vnksim {

/// Whether the unit lives. Exchanges of all roads count towards the fault that ends it. Safe from any thread.
class Life {
 public:
    explicit Life(Faults& faults) : mcFaults(faults) {}

    /// A unit that starts is alive.
    void begin();
    std::optional<Death> death() const;
    /// A command line has been served under these faults.
    void exchange(const FaultSettings& faults);
    /// A change of `dieAfterExchanges` begins a new count, and a dead unit lives again.
    void revive();
    /// Called with each death and each revival. It must not ask this object.
    void onChange(std::function<void(std::optional<Death>)> sink) { mcSink = std::move(sink); }

 private:
    void change(std::optional<Death> death);

    Faults& mcFaults;
    std::function<void(std::optional<Death>)> mcSink;
    mutable std::mutex mcLock;
    std::optional<Death> mcDeath;
    unsigned muExchanges = 0, muDieAfter = 0;
};

}  // namespace vnksim
