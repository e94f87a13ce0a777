// A live stream from the socket to the caller, beside a raw recv of the same stream by a client that looks at
// nothing: the limit that the unit and the loopback set. Both count bytes of samples on the wire.

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

constexpr uint64_t kBytes = uint64_t{256} << 20;

/// A unit that sends a few packets round and round as fast as the socket takes them.
std::unique_ptr<vnksim::Unit> startUnit(const char* pAddress) {
    vnksim::UnitOptions cOptions;
    cOptions.address = pAddress;
    cOptions.pace = vnksim::Pace::flatOut;
    cOptions.preSynthesise = 8;
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

void sendText(int iSocket, const std::string& text) {
    [[maybe_unused]] const ssize_t iSent = ::send(iSocket, text.data(), text.size(), MSG_NOSIGNAL);
}

/// Argument: 0 decimated pairs (IQ14), 1 the full rate (I14).
void rawReceive(benchmark::State& cState) {
    const bool bFullRate = cState.range(0) != 0;
    const auto pUnit = startUnit("127.77.0.1");
    const int iCommands = connectTo("127.77.0.1", vnksim::kScpiPort);
    const int iData = connectTo("127.77.0.1", vnksim::kDataPort);
    std::vector<char> lBuffer(262144);
    sendText(iCommands, bFullRate ? ":TRACe:SPPacket 65280;:SENSe:DECimation OFF\n"
                                  : ":TRACe:SPPacket 65504;:SENSE:DEC 4\n");
    sendText(iCommands, "FREQ:CENT 100000000 Hz\n:TRACe:STReam:STARt 1\n");
    uint64_t uTotal = 0;
    for (auto _ : cState)
        for (uint64_t uBytes = 0; uBytes < kBytes;) {
            const ssize_t iCount = ::recv(iData, lBuffer.data(), lBuffer.size(), 0);
            if (iCount <= 0) {
                cState.SkipWithError("the unit has closed");
                break;
            }
            uBytes += static_cast<uint64_t>(iCount);
            uTotal += static_cast<uint64_t>(iCount);
        }
    cState.SetBytesProcessed(static_cast<int64_t>(uTotal));
    ::close(iCommands);
    ::close(iData);
}

void vnkGetNextIQFromTheSocket(benchmark::State& cState) {
    const bool bFullRate = cState.range(0) != 0;
    const auto pUnit = startUnit("127.77.0.2");
    uint32_t uDevice = 0, uStream = 0, uCount = 0;
    vnkAddDeviceAddress("127.77.0.2");
    vnkEnumerateDevices(&uCount, 0);
    if (vnkOpenDevice(uCount - 1, &uDevice) != 0 ||
        vnkCreateIQStream(&uStream, 100e6f, bFullRate ? 40e6f : 24e6f, -30.0f) != 0 ||
        vnkAttachStreamToDevice(uStream, uDevice) != 0) {
        cState.SkipWithError("the unit does not open");
        return;
    }
    char* pParameters = nullptr;
    vnkAddNumericParameter(&pParameters, "bufferFrames", 200.0f);
    vnkSetParameters(uStream, &pParameters);
    // Bytes on the wire: 4 for a pair; at the full rate two real samples, 4 bytes, make one complex one.
    uint64_t uTotal = 0;
    uint64_t uGaps = 0;
    vnkIQRecord* pRecord = nullptr;
    while (vnkGetNextIQ(uStream, &pRecord, 2000) != 0) {
    }
    vnkFreeIQ(&pRecord);
    for (auto _ : cState)
        for (uint64_t uBytes = 0; uBytes < kBytes;) {
            if (vnkGetNextIQ(uStream, &pRecord, 2000) != 0)
                continue;
            uBytes += uint64_t{pRecord->sampleCount} * 4;
            uTotal += uint64_t{pRecord->sampleCount} * 4;
            uGaps += pRecord->sequenceGap;
            vnkFreeIQ(&pRecord);
        }
    cState.SetBytesProcessed(static_cast<int64_t>(uTotal));
    cState.counters["gaps"] = static_cast<double>(uGaps);
    vnkClose(&uStream);
    vnkClose(&uDevice);
}

BENCHMARK(rawReceive)->Arg(0)->Arg(1)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(vnkGetNextIQFromTheSocket)->Arg(0)->Arg(1)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace
