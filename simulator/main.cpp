#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <iostream>
#include <string>

#include "simulator/sockets.h"
#include "simulator/unit.h"

namespace {

/// SIGINT and SIGTERM as a descriptor. To be called before any thread is started.
vnksim::Descriptor endSignals() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    return vnksim::Descriptor(::signalfd(-1, &set, SFD_CLOEXEC));
}

void obey(vnksim::Unit& unit, const std::string& line) {
    if (line.empty()) {
        return;
    }
    const std::string prefix = "fault ";
    const bool done =
        line.compare(0, prefix.size(), prefix) == 0 && unit.faults().apply(line.substr(prefix.size()));
    std::printf(done ? "ok %s\n" : "not understood: %s\n", line.c_str());
    std::fflush(stdout);
}

/// Until a signal comes. Lines on standard input "fault NAME[,VALUE]" switch faults.
void serve(vnksim::Unit& unit, const vnksim::Descriptor& signals) {
    std::string input;
    pollfd waits[2] = {{signals.get(), POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}};
    for (;;) {
        if (::poll(waits, 2, -1) < 0) {
            continue;
        }
        if (waits[0].revents != 0) {
            return;
        }
        if (waits[1].revents == 0) {
            continue;
        }
        char buffer[4096];
        const ssize_t got = ::read(STDIN_FILENO, buffer, sizeof buffer);
        if (got <= 0) {
            waits[1].fd = -1;
            continue;
        }
        input.append(buffer, static_cast<size_t>(got));
        for (size_t end = 0; (end = input.find('\n')) != std::string::npos; input.erase(0, end + 1)) {
            obey(unit, input.substr(0, end));
        }
    }
}

void printEntry(const vnksim::Journal::Entry& entry) {
    const std::string road = entry.road == "scpi" ? "" : entry.road + " ";
    std::printf("%lld.%09lld [%s%u] %s\n", static_cast<long long>(entry.steadyNs / 1000000000),
                static_cast<long long>(entry.steadyNs % 1000000000), road.c_str(), entry.connection,
                entry.line.c_str());
    std::fflush(stdout);
}

int run(const vnksim::UnitOptions& options, const std::string& scenePath, bool journal) {
    const vnksim::Descriptor signals = endSignals();
    vnksim::Unit unit(options, scenePath.empty() ? vnksim::Scene() : vnksim::readScene(scenePath));
    if (journal) {
        unit.journal().onEntry(printEntry);
    }
    unit.start();
    std::printf("%s (serial %s) at %s: SCPI on TCP %u, packets on TCP %u%s%s\n", options.model.c_str(),
                options.serial.c_str(), options.address.c_str(), unsigned{vnksim::kScpiPort},
                unsigned{vnksim::kDataPort},
                options.hislip ? ", HiSLIP on TCP 4880 with its packets on TCP 4881" : "",
                options.discovery ? ", discovery on UDP 18331" : "");
    std::fflush(stdout);
    serve(unit, signals);
    unit.stop();
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    vnksim::UnitOptions options;
    std::string scene;
    bool journal = false, noDiscovery = false, noHislip = false, flatOut = false, ripple = false;
    CLI::App app("A simulated receiver: SCPI, VITA-49 packets and discovery, without hardware", "vnk-unit");
    app.add_option("--address", options.address, "IPv4 address to listen on")->capture_default_str();
    app.add_option("--model", options.model, "Model: ZV... of the first family, the others of the second")
        ->check(CLI::IsMember(vnksim::modelNames()))
        ->capture_default_str();
    app.add_option("--serial", options.serial, "Serial number")->capture_default_str();
    app.add_option("--firmware", options.firmware, "Firmware version")->capture_default_str();
    app.add_option("--lowest", options.lowestHz, "Lowest frequency in Hz, second family")
        ->capture_default_str();
    app.add_option("--highest", options.highestHz, "Highest frequency in Hz, second family")
        ->capture_default_str();
    app.add_option("--seed", options.seed, "Seed of all that is random")->capture_default_str();
    app.add_option("--scene", scene, "Scene file (JSON): what is on the air")->check(CLI::ExistingFile);
    auto* limit =
        app.add_option("--rate-limit", options.rateLimit, "Samples per second at most, instead of real time")
            ->check(CLI::PositiveNumber);
    app.add_flag("--flat-out", flatOut, "As fast as the network takes it")->excludes(limit);
    app.add_option("--pre-synthesise", options.preSynthesise,
                   "Make so many packets of a capture and repeat their samples");
    app.add_flag("--if-ripple", ripple, "The IF has the ripple that the correction data undo");
    app.add_flag("--journal", journal, "Print each command received");
    app.add_flag("--no-hislip", noHislip, "Do not listen for HiSLIP (TCP 4880) and its data (TCP 4881)");
    app.add_flag("--no-discovery", noDiscovery, "Do not answer discovery requests");
    app.add_flag("--discovery-any", options.discoveryAny,
                 "Hear discovery requests on all addresses, broadcasts too");
    CLI11_PARSE(app, argc, argv);
    options.discovery = !noDiscovery;
    options.hislip = !noHislip;
    options.pace = flatOut                 ? vnksim::Pace::flatOut
                   : options.rateLimit > 0 ? vnksim::Pace::limited
                                           : vnksim::Pace::realTime;
    options.corrections = vnksim::defaultCorrectionData(options.seed);
    if (ripple) {
        const double band = vnksim::sampledBandHz(vnksim::familyOf(options.model));
        options.ifGaindB = vnksim::gainOfCorrections(options.corrections.signal, band);
    }
    try {
        return run(options, scene, journal);
    } catch (const std::exception& error) {
        std::cerr << "vnk-unit: " << error.what() << "\n";
        return 1;
    }
}
