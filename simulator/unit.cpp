#include "simulator/unit.h"

#include <stdexcept>

#include "simulator/capture.h"
#include "simulator/dataserver.h"
#include "simulator/hislipserver.h"
#include "simulator/instrument.h"
#include "simulator/models.h"
#include "simulator/scpiserver.h"

namespace vnksim {
namespace {

UnitOptions checked(UnitOptions options) {
    if (findModel(options.model) == nullptr) {
        throw std::invalid_argument("unknown model '" + options.model + "'");
    }
    if (!(options.lowestHz <= options.highestHz)) {
        throw std::invalid_argument("the tunable range is upside down");
    }
    return options;
}

}  // namespace

class Unit::Impl {
 public:
    Impl(UnitOptions options, Scene scene)
        : mcOptions(checked(std::move(options))),
          mcQueue(mcOptions.queuedPackets),
          mcCapturer(mcOptions, mcFaults, mcQueue),
          mcInstrument(mcOptions, mcFaults, mcCapturer, mcQueue),
          mcScpi(mcOptions, mcFaults, mcJournal, mcInstrument, mcLife),
          mcData(mcOptions, mcFaults, mcQueue),
          mcHislip(mcOptions, mcFaults, mcJournal, mcMessages, mcInstrument, mcLife) {
        mcCapturer.setScene(std::move(scene));
        mcLife.onChange([this](std::optional<Death> death) {
            mcData.setDeath(death);
            mcScpi.wake();
            mcHislip.wake();
        });
        mcHislip.onDataConnection([this](Descriptor socket) { mcData.adopt(std::move(socket)); });
        mcFaults.onChange([this] {
            mcScpi.wake();
            mcData.wake();
            mcHislip.wake();
            mcCapturer.faultsChanged();
        });
    }
    ~Impl() { stop(); }

    void start() {
        if (mbRunning) {
            return;
        }
        mcInstrument.reset();
        mcQueue.clear();
        mcLife.begin();
        try {
            mcData.start();
            mcScpi.start();
            if (mcOptions.hislip) {
                mcHislip.start();
            }
        } catch (...) {
            mcHislip.stop();
            mcScpi.stop();
            mcData.stop();
            throw;
        }
        mcCapturer.startThread();
        mbRunning = true;
    }

    void stop() {
        mcHislip.stop();
        mcScpi.stop();
        mcCapturer.stopThread();
        mcData.stop();
        mcQueue.clear();
        mbRunning = false;
    }

    UnitState state() const {
        UnitState state = mcInstrument.state();
        state.captureMode = mcCapturer.mode();
        state.capturesStarted = mcCapturer.captures();
        state.dataPackets = mcCapturer.dataPackets();
        state.samples = mcCapturer.samples();
        state.scpiConnections = mcScpi.connections();
        state.dataConnections = mcData.connections();
        state.hislipSessions = mcHislip.sessions();
        return state;
    }

    const UnitOptions mcOptions;
    Faults mcFaults;
    Life mcLife{mcFaults};
    Journal mcJournal, mcMessages;
    PacketQueue mcQueue;
    Capturer mcCapturer;
    Instrument mcInstrument;
    ScpiServer mcScpi;
    DataServer mcData;
    HislipServer mcHislip;
    std::atomic<bool> mbRunning{false};
};

Unit::Unit(UnitOptions options, Scene scene)
    : mpImpl(std::make_unique<Impl>(std::move(options), std::move(scene))) {}

Unit::~Unit() = default;

void Unit::start() {
    mpImpl->start();
}

void Unit::stop() {
    mpImpl->stop();
}

bool Unit::running() const {
    return mpImpl->mbRunning;
}

const UnitOptions& Unit::options() const {
    return mpImpl->mcOptions;
}

Faults& Unit::faults() {
    return mpImpl->mcFaults;
}

Journal& Unit::journal() {
    return mpImpl->mcJournal;
}

Journal& Unit::hislipMessages() {
    return mpImpl->mcMessages;
}

UnitState Unit::state() const {
    return mpImpl->state();
}

void Unit::setScene(Scene scene) {
    mpImpl->mcCapturer.setScene(std::move(scene));
}

void Unit::setCorrections(CorrectionData corrections) {
    mpImpl->mcInstrument.setCorrections(std::move(corrections));
}

void Unit::pushError(int number, const std::string& text) {
    mpImpl->mcInstrument.pushError({number, text});
}

bool Unit::waitForMode(const std::string& mode, std::chrono::milliseconds limit) const {
    return mpImpl->mcCapturer.waitForMode(mode, limit);
}

}  // namespace vnksim
