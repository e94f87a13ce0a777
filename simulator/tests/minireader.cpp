#include "simulator/tests/minireader.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cmath>

namespace simtest {
namespace {

using Clock = std::chrono::steady_clock;

int leftMs(Clock::time_point end) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
    return left > 0 ? static_cast<int>(left) : 0;
}

bool readable(int fd, int limitMs) {
    pollfd wait{fd, POLLIN, 0};
    return ::poll(&wait, 1, limitMs) > 0;
}

}  // namespace

Client::Client(const std::string& address, uint16_t port)
    : mFd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in place{};
    place.sin_family = AF_INET;
    place.sin_port = htons(port);
    ::inet_pton(AF_INET, address.c_str(), &place.sin_addr);
    if (::connect(mFd, reinterpret_cast<const sockaddr*>(&place), sizeof place) != 0) {
        ::close(mFd);
        mFd = -1;
    }
}

Client::~Client() {
    if (mFd >= 0) {
        ::close(mFd);
    }
}

void Client::send(const std::string& text) {
    const std::string whole = text + "\n";
    ::send(mFd, whole.data(), whole.size(), MSG_NOSIGNAL);
}

std::vector<uint8_t> Client::receive(size_t count, int limitMs) {
    const auto end = Clock::now() + std::chrono::milliseconds(limitMs);
    std::vector<uint8_t> bytes(count);
    size_t have = 0;
    while (have < count && readable(mFd, leftMs(end))) {
        const ssize_t got = ::recv(mFd, bytes.data() + have, count - have, 0);
        if (got <= 0) {
            break;
        }
        have += static_cast<size_t>(got);
    }
    bytes.resize(have);
    return bytes;
}

std::optional<std::string> Client::line(int limitMs) {
    const auto end = Clock::now() + std::chrono::milliseconds(limitMs);
    for (;;) {
        const size_t feed = mcInput.find('\n');
        if (feed != std::string::npos) {
            std::string text = mcInput.substr(0, feed);
            mcInput.erase(0, feed + 1);
            return text;
        }
        char buffer[4096];
        const ssize_t got = readable(mFd, leftMs(end)) ? ::recv(mFd, buffer, sizeof buffer, 0) : 0;
        if (got <= 0) {
            return std::nullopt;
        }
        mcInput.append(buffer, static_cast<size_t>(got));
    }
}

std::optional<std::string> Client::ask(const std::string& query, int limitMs) {
    send(query);
    return line(limitMs);
}

std::string Client::errorAfter(const std::string& command) {
    send(command);
    return ask("SYST:ERR?").value_or("no reply");
}

bool Client::ends(int limitMs) {
    const auto end = Clock::now() + std::chrono::milliseconds(limitMs);
    char buffer[65536];
    while (readable(mFd, leftMs(end))) {
        if (::recv(mFd, buffer, sizeof buffer, 0) <= 0) {
            return true;
        }
    }
    return false;
}

bool Client::quiet(int ms) {
    return mcInput.empty() && !readable(mFd, ms);
}

uint32_t WirePacket::word(size_t offset) const {
    return uint32_t{bytes[offset]} << 24 | uint32_t{bytes[offset + 1]} << 16 |
           uint32_t{bytes[offset + 2]} << 8 | bytes[offset + 3];
}

std::vector<float> WirePacket::items(float counts) const {
    std::vector<float> values;
    const size_t end = bytes.size() - (hasTrailer() ? 4 : 0);
    for (size_t i = 20; i < end; i += 2) {
        values.push_back(static_cast<float>(static_cast<int16_t>(bytes[i] << 8 | bytes[i + 1])) / counts);
    }
    return values;
}

std::vector<std::complex<float>> WirePacket::iq(float counts) const {
    const std::vector<float> values = items(counts);
    std::vector<std::complex<float>> samples;
    for (size_t i = 0; i + 1 < values.size(); i += 2) {
        samples.emplace_back(values[i], values[i + 1]);
    }
    return samples;
}

std::optional<WirePacket> nextPacket(Client& client, int limitMs) {
    WirePacket packet;
    packet.bytes = client.receive(20, limitMs);
    if (packet.bytes.size() < 20 || packet.words() < 5) {
        return std::nullopt;
    }
    const size_t rest = packet.words() * 4 - 20;
    const auto more = client.receive(rest, limitMs);
    packet.bytes.insert(packet.bytes.end(), more.begin(), more.end());
    return more.size() == rest ? std::optional(packet) : std::nullopt;
}

std::vector<WirePacket> takeData(Client& client, size_t count, std::vector<WirePacket>* contexts) {
    std::vector<WirePacket> data;
    while (data.size() < count) {
        auto packet = nextPacket(client);
        if (!packet) {
            break;
        }
        if (packet->isData()) {
            data.push_back(std::move(*packet));
        } else if (contexts != nullptr) {
            contexts->push_back(std::move(*packet));
        }
    }
    return data;
}

std::complex<double> correlate(const std::vector<std::complex<float>>& samples, double cyclesPerSample) {
    std::complex<double> sum = 0;
    double weights = 0;
    const double count = static_cast<double>(samples.size());
    for (size_t n = 0; n < samples.size(); ++n) {
        const double place = static_cast<double>(n);
        const double weight = 0.5 - 0.5 * std::cos(6.283185307179586 * (place + 0.5) / count);
        sum += weight * std::complex<double>(samples[n]) *
               std::polar(1.0, -6.283185307179586 * std::fmod(cyclesPerSample * place, 1.0));
        weights += weight;
    }
    return sum / weights;
}

std::complex<double> correlate(const std::vector<float>& samples, double cyclesPerSample) {
    std::vector<std::complex<float>> wide(samples.begin(), samples.end());
    return correlate(wide, cyclesPerSample);
}

double meanPower(const std::vector<std::complex<float>>& samples) {
    double sum = 0;
    for (const auto& sample : samples) {
        sum += std::norm(std::complex<double>(sample));
    }
    return sum / static_cast<double>(samples.size());
}

}  // namespace simtest
