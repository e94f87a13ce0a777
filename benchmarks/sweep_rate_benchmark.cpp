// How fast a live sweep goes over the range, from the socket to the caller's spectra, beside a raw recv of the
// same list by a client that looks at nothing: the limit that the unit and the loopback set.

#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "libvnk.h"
#include "simulator/unit.h"

namespace {

constexpr float kMinHz = 88e6f, kMaxHz = 1.2e9f;

/// A unit that sends the packets of its list round and round as fast as the socket takes them.
std::unique_ptr<vnksim::Unit> startUnit(const char* pAddress) {
    vnksim::UnitOptions cOptions;
    cOptions.address = pAddress;
    cOptions.pace = vnksim::Pace::flatOut;
    cOptions.preSynthesise = 4096;
    cOptions.queuedPackets = 32;
    cOptions.corrections.signalSize = 0;
    auto pUnit = std::make_unique<vnksim::Unit>(cOptions, vnksim::Scene().tone(100e6, -30).noise(-150));
    pUnit->start();
    return pUnit;
}

int connectTo(const char* pAddress, uint16_t uPort) {
    const int iSocket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in cAddress{};
    cAddress.sin_family = AF_INET;
    cAddress.sin_port = htons(uPort);
    inet_pton(AF_INET, pAddress, &cAddress.sin_addr);
    if (::connect(iSocket, reinterpret_cast<sockaddr*>(&cAddress), sizeof cAddress) != 0) {
        ::close(iSocket);
        return -1;
    }
    return iSocket;
}

std::string listCommands(const vnksim::UnitState& cState) {
    const vnksim::SweepEntry& cEntry = cState.list.at(0);
    return ":sweep:entry:delete all;:sweep:entry:new;:sweep:list:iter 0;:sweep:entry:mode SH;"
           ":sweep:entry:freq:step " + std::to_string(cEntry.centreStep) + ";:sweep:entry:freq:cent " +
           std::to_string(cEntry.centreFirst) + "," + std::to_string(cEntry.centreLast) +
           ";:sweep:entry:spp " + std::to_string(cEntry.samplesPerPacket) + ";:sweep:entry:ppb " +
           std::to_string(cEntry.packetsPerBlock) +
           ";:sweep:entry:dec 1;:sweep:entry:save\nSWEEP:LIST:START 1\n";
}

/// Bytes of one pass of a list, contexts and all, near enough: data packets of 20 + 4 bytes beside their samples,
/// and a context of 36 for each block.
uint64_t bytesOfPass(const vnksim::UnitState& cState) {
    const vnksim::SweepEntry& cEntry = cState.list.at(0);
    const uint64_t uBlocks = (cEntry.centreLast - cEntry.centreFirst) / cEntry.centreStep + 1;
    return uBlocks * (36 + cEntry.packetsPerBlock * (24 + uint64_t{2} * cEntry.samplesPerPacket));
}

/// A live spectrum stream, and the list that it has programmed.
struct LiveSweep {
    LiveSweep(const char* pAddress, float fRBWHz) : mpUnit(startUnit(pAddress)) {
        uint32_t uCount = 0;
        vnkAddDeviceAddress(pAddress);
        vnkEnumerateDevices(&uCount, 0);
        mbReady = vnkOpenDevice(uCount - 1, &muDevice) == 0 &&
                  vnkCreateSpectrumStream(&muStream, kMinHz, kMaxHz, fRBWHz, nullptr, -30.0f) == 0 &&
                  vnkAttachStreamToDevice(muStream, muDevice) == 0;
        for (int i = 0; mbReady && i < 5; ++i)   // the unit has made its packets by then
            next();
        mcState = mpUnit->state();
    }
    ~LiveSweep() {
        vnkClose(&muStream);
        vnkClose(&muDevice);
    }
    LiveSweep(const LiveSweep&) = delete;
    LiveSweep& operator=(const LiveSweep&) = delete;
    /// The width of the next spectrum.
    double next() {
        vnkSpectrumRecord* pRecord = nullptr;
        while (vnkGetNextSpectrum(muStream, &pRecord, 2000) != 0) {
        }
        const double width = pRecord->maximumHz - pRecord->minimumHz;
        muSequence = pRecord->sequence;
        vnkFreeSpectrum(&pRecord);
        return width;
    }

    std::unique_ptr<vnksim::Unit> mpUnit;
    uint32_t muDevice = VNK_INVALID_HANDLE, muStream = VNK_INVALID_HANDLE;
    uint32_t muSequence = 0;
    bool mbReady = false;
    vnksim::UnitState mcState;
};

/// Argument: the resolution bandwidth in hertz.
void sweepRate(benchmark::State& cState) {
    LiveSweep cSweep("127.77.0.3", static_cast<float>(cState.range(0)));
    if (!cSweep.mbReady) {
        cState.SkipWithError("the unit does not open");
        return;
    }
    double hertz = 0;
    const uint32_t uFirst = cSweep.muSequence;
    uint64_t uTaken = 0;
    for (auto _ : cState) {
        hertz += cSweep.next();
        ++uTaken;
    }
    cState.counters["GHz/s"] = benchmark::Counter(hertz * 1e-9, benchmark::Counter::kIsRate);
    cState.counters["missed"] = static_cast<double>(cSweep.muSequence - uFirst - uTaken);
}

void rawReceive(benchmark::State& cState) {
    std::string commands;
    uint64_t uPass = 0;
    {
        LiveSweep cSweep("127.77.0.4", static_cast<float>(cState.range(0)));
        if (!cSweep.mbReady) {
            cState.SkipWithError("the unit does not open");
            return;
        }
        commands = listCommands(cSweep.mcState);
        uPass = bytesOfPass(cSweep.mcState);
    }
    const auto pUnit = startUnit("127.77.0.5");
    const int iCommands = connectTo("127.77.0.5", vnksim::kScpiPort);
    const int iData = connectTo("127.77.0.5", vnksim::kDataPort);
    [[maybe_unused]] const ssize_t iSent = ::send(iCommands, commands.data(), commands.size(), MSG_NOSIGNAL);
    std::vector<char> lBuffer(262144);
    const auto receive = [&](uint64_t uWanted) {
        for (uint64_t uBytes = 0; uBytes < uWanted;) {
            const ssize_t iCount = ::recv(iData, lBuffer.data(), lBuffer.size(), 0);
            if (iCount <= 0)
                return false;
            uBytes += static_cast<uint64_t>(iCount);
        }
        return true;
    };
    receive(5 * uPass);
    double hertz = 0;
    for (auto _ : cState) {
        if (!receive(uPass)) {
            cState.SkipWithError("the unit has closed");
            break;
        }
        hertz += static_cast<double>(kMaxHz - kMinHz);
    }
    cState.counters["GHz/s"] = benchmark::Counter(hertz * 1e-9, benchmark::Counter::kIsRate);
    ::close(iCommands);
    ::close(iData);
}

BENCHMARK(rawReceive)->Arg(10000)->Arg(100000)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(sweepRate)->Arg(10000)->Arg(100000)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace
