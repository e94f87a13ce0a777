#pragma once

#include <atomic>
#include <functional>
#include <list>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "peer.h"

namespace vnktest {

/// A message as the peer sees it, written and read from the bytes of the wire.
struct PeerMessage {
    int miType = -1;
    int miControl = 0;
    uint32_t muParameter = 0;
    std::string mPayload;
};

inline std::string bigEndianBytes(uint64_t uValue, int iBytes) {
    std::string bytes;
    for (int i = iBytes - 1; i >= 0; --i)
        bytes.push_back(static_cast<char>(uValue >> (8 * i)));
    return bytes;
}

/// The length field can be made to lie.
inline std::string peerBytes(int iType, int iControl, uint32_t uParameter, const std::string& payload = "",
                             std::optional<uint64_t> cLength = std::nullopt) {
    return std::string("HS") + static_cast<char>(iType) + static_cast<char>(iControl) +
           bigEndianBytes(uParameter, 4) + bigEndianBytes(cLength.value_or(payload.size()), 8) + payload;
}

/// A unit that speaks HiSLIP on port 4880 of an address of its own and the data channel on 4881. What it does
/// at a message can be replaced, type by type, while it runs.
class HiSlipPeer {
 public:
    using Handler = std::function<void(TestSocket&, const PeerMessage&)>;

    HiSlipPeer() : mcHost(uniqueLoopback()) {
        listenAt(4880);
        listenAt(4881);
        on(0, [this](TestSocket& cSocket, const PeerMessage&) {
            cSocket.send(peerBytes(1, 0, 0x10000000u | muSession.load()));
        });
        on(17, [](TestSocket& cSocket, const PeerMessage&) { cSocket.send(peerBytes(18, 0, 0x5659)); });
        on(4, [](TestSocket& cSocket, const PeerMessage&) { cSocket.send(peerBytes(5, 1, 0)); });
        on(7, [this](TestSocket& cSocket, const PeerMessage& cMessage) {
            const std::string reply = answer(cMessage.mPayload);
            if (!reply.empty())
                cSocket.send(peerBytes(7, 0, cMessage.muParameter, reply));
        });
        on(0x80, [](TestSocket& cSocket, const PeerMessage& cMessage) {
            cSocket.send(peerBytes(0x81, 0, cMessage.muParameter));
        });
    }
    ~HiSlipPeer() {
        refuse();
        for (auto& cThread : mlAcceptors)
            cThread.join();
        endConnections();
        for (auto& cThread : mlReaders)
            cThread.join();
    }

    const std::string& host() const { return mcHost; }
    void on(int iType, Handler handler) {
        std::lock_guard<std::mutex> cGuard(mcMutex);
        mcHandlers[iType] = std::move(handler);
    }
    /// Says nothing to a message of this type.
    void ignore(int iType) {
        on(iType, [](TestSocket&, const PeerMessage&) {});
    }
    /// Replies to what is asked; an empty reply is none.
    void answerWith(std::function<std::string(const std::string&)> answers) {
        std::lock_guard<std::mutex> cGuard(mcMutex);
        mcAnswers = std::move(answers);
    }
    std::vector<PeerMessage> received(int iType) {
        std::lock_guard<std::mutex> cGuard(mcMutex);
        std::vector<PeerMessage> lFound;
        for (const auto& cMessage : mlReceived)
            if (cMessage.miType == iType)
                lFound.push_back(cMessage);
        return lFound;
    }
    /// Links that are up now.
    size_t connections() {
        std::lock_guard<std::mutex> cGuard(mcMutex);
        return muConnections;
    }
    /// Links that have ever been.
    size_t accepted() {
        std::lock_guard<std::mutex> cGuard(mcMutex);
        return mlSockets.size();
    }
    /// To the synchronous link of the newest session.
    bool push(const std::string& bytes) { return pushTo(0, bytes); }
    /// To the newest data channel.
    bool pushStream(const std::string& bytes) { return pushTo(0x80, bytes); }
    void endConnections() {
        std::lock_guard<std::mutex> cGuard(mcMutex);
        for (auto& cSocket : mlSockets)
            if (cSocket.get() >= 0)
                ::shutdown(cSocket.get(), SHUT_RDWR);
    }
    /// No new links from now on.
    void refuse() {
        for (auto& cListener : mlListeners)
            ::shutdown(cListener.get(), SHUT_RDWR);
    }

    std::atomic<uint32_t> muSession{0x1234};

 private:
    /// With the lock held, so that the link stays: for few bytes.
    bool pushTo(int iType, const std::string& bytes) {
        std::lock_guard<std::mutex> cGuard(mcMutex);
        const auto cFound = mpNewest.find(iType);
        return cFound != mpNewest.end() && cFound->second->send(bytes);
    }
    void listenAt(uint16_t uPort) {
        TestSocket cSocket(::socket(AF_INET, SOCK_STREAM, 0));
        const int iOn = 1;
        ::setsockopt(cSocket.get(), SOL_SOCKET, SO_REUSEADDR, &iOn, sizeof(iOn));
        sockaddr_in cAddress{};
        cAddress.sin_family = AF_INET;
        cAddress.sin_port = htons(uPort);
        ::inet_pton(AF_INET, mcHost.c_str(), &cAddress.sin_addr);
        if (::bind(cSocket.get(), reinterpret_cast<sockaddr*>(&cAddress), sizeof(cAddress)) != 0 ||
            ::listen(cSocket.get(), 16) != 0)
            throw std::runtime_error("no listening socket");
        mlListeners.push_back(std::move(cSocket));
        mlAcceptors.emplace_back([this, iListener = mlListeners.back().get()] { acceptAll(iListener); });
    }
    void acceptAll(int iListener) {
        for (;;) {
            const int iSocket = ::accept(iListener, nullptr, nullptr);
            if (iSocket < 0)
                return;
            std::lock_guard<std::mutex> cGuard(mcMutex);
            TestSocket& cSocket = mlSockets.emplace_back(iSocket);
            ++muConnections;
            mlReaders.emplace_back([this, &cSocket] { serve(cSocket); });
        }
    }
    void serve(TestSocket& cSocket) {
        PeerMessage cMessage;
        while (read(cSocket, cMessage)) {
            Handler handler;
            {
                std::lock_guard<std::mutex> cGuard(mcMutex);
                mlReceived.push_back(cMessage);
                mpNewest[cMessage.miType] = &cSocket;
                handler = mcHandlers[cMessage.miType];
            }
            if (handler)
                handler(cSocket, cMessage);
        }
        std::lock_guard<std::mutex> cGuard(mcMutex);
        --muConnections;
        std::erase_if(mpNewest, [&](const auto& cEntry) { return cEntry.second == &cSocket; });
        cSocket.close();
    }
    static bool readExactly(const TestSocket& cSocket, std::string& bytes, size_t uCount) {
        bytes.assign(uCount, '\0');
        size_t uRead = 0;
        while (uRead < uCount) {
            const ssize_t iCount = ::recv(cSocket.get(), bytes.data() + uRead, uCount - uRead, 0);
            if (iCount <= 0)
                return false;
            uRead += static_cast<size_t>(iCount);
        }
        return true;
    }
    static uint64_t number(const std::string& bytes, size_t uFrom, size_t uCount) {
        uint64_t uValue = 0;
        for (size_t i = uFrom; i < uFrom + uCount; ++i)
            uValue = uValue << 8 | static_cast<uint8_t>(bytes[i]);
        return uValue;
    }
    static bool read(const TestSocket& cSocket, PeerMessage& cMessage) {
        std::string header;
        if (!readExactly(cSocket, header, 16) || header.substr(0, 2) != "HS")
            return false;
        cMessage.miType = static_cast<uint8_t>(header[2]);
        cMessage.miControl = static_cast<uint8_t>(header[3]);
        cMessage.muParameter = static_cast<uint32_t>(number(header, 4, 4));
        return readExactly(cSocket, cMessage.mPayload, static_cast<size_t>(number(header, 8, 8)));
    }
    std::string answer(const std::string& question) {
        std::function<std::string(const std::string&)> answers;
        {
            std::lock_guard<std::mutex> cGuard(mcMutex);
            answers = mcAnswers;
        }
        if (answers)
            return answers(question);
        if (question == ":SYSTem:COMMunicate:HISLip:SESSion?\n")
            return std::to_string(muSession.load()) + "\n";
        return question.find('?') == std::string::npos ? "" : "reply to " + question;
    }

    std::string mcHost;
    std::list<TestSocket> mlListeners;
    std::vector<std::thread> mlAcceptors;
    std::mutex mcMutex;
    std::map<int, Handler> mcHandlers;
    std::function<std::string(const std::string&)> mcAnswers;
    std::vector<PeerMessage> mlReceived;
    std::list<TestSocket> mlSockets;
    std::list<std::thread> mlReaders;
    size_t muConnections = 0;
    std::map<int, TestSocket*> mpNewest;  // by the type of message that came on it
};

}  // namespace vnktest
