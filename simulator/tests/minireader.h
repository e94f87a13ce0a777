#pragma once

#include <complex>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// A small client of its own for the tests of the simulated unit: sockets, packets, and measurements by
/// correlation, all written from the wire formats and sharing nothing with the unit.
namespace simtest {

class Client {
 public:
    Client(const std::string& address, uint16_t port);
    ~Client();
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    bool connected() const { return mFd >= 0; }
    void send(const std::string& text);
    /// Exactly so many bytes; fewer when the limit passes or the peer ends.
    std::vector<uint8_t> receive(size_t count, int limitMs = 10000);
    /// One line without its line feed; nothing when none comes in time.
    std::optional<std::string> line(int limitMs = 5000);
    std::optional<std::string> ask(const std::string& query, int limitMs = 5000);
    /// Sends a command and asserts by reply that the error queue is empty after it.
    std::string errorAfter(const std::string& command);
    /// True when the peer closes or resets in time.
    bool ends(int limitMs = 5000);
    /// Nothing arrives for so long.
    bool quiet(int ms);
    int fd() const { return mFd; }

 private:
    int mFd = -1;
    std::string mcInput;
};

struct WirePacket {
    std::vector<uint8_t> bytes;
    unsigned type() const { return bytes[0] >> 4; }
    bool hasTrailer() const { return (bytes[0] & 4) != 0; }
    unsigned tsi() const { return bytes[1] >> 6; }
    unsigned tsf() const { return bytes[1] >> 4 & 3u; }
    unsigned counter() const { return bytes[1] & 15u; }
    uint32_t words() const { return static_cast<uint32_t>(bytes[2] << 8 | bytes[3]); }
    uint32_t word(size_t offset) const;
    uint64_t longWord(size_t offset) const { return uint64_t{word(offset)} << 32 | word(offset + 4); }
    uint32_t stream() const { return word(4); }
    /// Picoseconds since 1970 modulo 2^64 would not do: seconds and picoseconds apart.
    uint32_t seconds() const { return word(8); }
    uint64_t picoseconds() const { return longWord(12); }
    uint32_t trailer() const { return word(bytes.size() - 4); }
    bool isData() const { return type() <= 1; }
    /// Payload items, in full scales.
    std::vector<float> items(float counts = 8192) const;
    std::vector<std::complex<float>> iq(float counts = 8192) const;
};

/// The next packet of a healthy stream; nothing when none comes in time.
std::optional<WirePacket> nextPacket(Client& client, int limitMs = 10000);
/// Takes packets until so many data packets have come.
std::vector<WirePacket> takeData(Client& client, size_t count, std::vector<WirePacket>* contexts = nullptr);

/// Amplitude and phase of the component at `cyclesPerSample`, through a Hann window.
std::complex<double> correlate(const std::vector<std::complex<float>>& samples, double cyclesPerSample);
std::complex<double> correlate(const std::vector<float>& samples, double cyclesPerSample);
double meanPower(const std::vector<std::complex<float>>& samples);

}  // namespace simtest
