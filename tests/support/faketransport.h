#pragma once

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "links/transport.h"
#include "support/loopback.h"

namespace vnktest {

/// A unit without a wire: answers by rule, at once, and keeps what came in order. Lines are kept without
/// their one line feed ("<no line feed>" is put behind a line that came without); links made, closed and
/// opened anew stand between them as "[connect 37001]", "[refused 37001]", "[close]", "[open]".
class FakeUnit {
 public:
    /// The replies to a query, in turn; the last one stays. An empty reply is silence.
    void reply(const std::string& query, std::deque<std::string> replies) {
        const std::lock_guard<std::mutex> cGuard(mcMutex);
        mcReplies[query] = std::move(replies);
    }
    /// Asked for queries without a rule.
    void otherwise(std::function<std::string(const std::string&)> answer) {
        const std::lock_guard<std::mutex> cGuard(mcMutex);
        mcOtherwise = std::move(answer);
    }
    std::vector<std::string> takeJournal() {
        const std::lock_guard<std::mutex> cGuard(mcMutex);
        return std::exchange(mlJournal, {});
    }
    std::vector<std::string> journal() const {
        const std::lock_guard<std::mutex> cGuard(mcMutex);
        return mlJournal;
    }
    void note(const std::string& line) {
        const std::lock_guard<std::mutex> cGuard(mcMutex);
        mlJournal.push_back(line);
    }
    std::string answer(const std::string& query) {
        std::function<std::string(const std::string&)> otherwise;
        {
            const std::lock_guard<std::mutex> cGuard(mcMutex);
            const auto it = mcReplies.find(query);
            if (it != mcReplies.end() && !it->second.empty()) {
                const std::string text = it->second.front();
                if (it->second.size() > 1)
                    it->second.pop_front();
                return text;
            }
            otherwise = mcOtherwise;
        }
        return otherwise ? otherwise(query) : std::string();
    }
    /// Bytes of the data channel.
    void sendData(const std::string& bytes) {
        const std::lock_guard<std::mutex> cGuard(mcMutex);
        mlData.push_back(bytes);
        mcDataCame.notify_all();
    }
    /// Runs once, on the polling thread of the data channel, at its next look for data.
    void onNextPoll(std::function<void()> act) {
        const std::lock_guard<std::mutex> cGuard(mcMutex);
        mcOnPoll = std::move(act);
    }
    std::optional<std::string> takeData(uint32_t uTimeoutMs) {
        std::function<void()> act;
        {
            const std::lock_guard<std::mutex> cGuard(mcMutex);
            act = std::exchange(mcOnPoll, nullptr);
        }
        if (act)
            act();
        std::unique_lock<std::mutex> cGuard(mcMutex);
        mcDataCame.wait_for(cGuard, std::chrono::milliseconds(uTimeoutMs), [&] { return !mlData.empty(); });
        if (mlData.empty())
            return std::nullopt;
        std::string bytes = std::move(mlData.front());
        mlData.pop_front();
        return bytes;
    }

    std::atomic<bool> mbRefuseCommands{false};
    std::atomic<bool> mbRefuseData{false};
    std::atomic<bool> mbRefuseReopen{false};
    std::atomic<bool> mbFailSends{false};
    std::atomic<int> miSendsLeft{-1};  // of a unit that dies after so many lines; negative: never
    std::atomic<int> miLinks{0};       // transports that live

 private:
    mutable std::mutex mcMutex;
    std::condition_variable mcDataCame;
    std::map<std::string, std::deque<std::string>> mcReplies;
    std::function<std::string(const std::string&)> mcOtherwise;
    std::function<void()> mcOnPoll;
    std::vector<std::string> mlJournal;
    std::deque<std::string> mlData;
};

class FakeTransport : public Transport {
 public:
    FakeTransport(std::string address, std::shared_ptr<FakeUnit> cUnit)
        : Transport(std::move(address)), mcUnit(std::move(cUnit)) {
        ++mcUnit->miLinks;
    }
    ~FakeTransport() override { --mcUnit->miLinks; }

    std::string getTypeName() const override { return "TCP/IP"; }
    bool isOpen() const override { return mbOpen; }
    bool flush() override { return true; }
    bool close() override {
        mcUnit->note("[close]");
        mbOpen = false;
        return true;
    }
    bool open() override {
        mcUnit->note("[open]");
        mbOpen = !mcUnit->mbRefuseReopen;
        return mbOpen;
    }
    bool send(ReferencePtr<utils::MemoryBlock> cBlock, std::string& errorText) override {
        std::string text = cBlock->getText();
        cBlock->setReadPosition(cBlock->getSize());
        if (!mbOpen || mcUnit->mbFailSends || mcUnit->miSendsLeft == 0) {
            errorText = "no link";
            return false;
        }
        if (mcUnit->miSendsLeft > 0)
            --mcUnit->miSendsLeft;
        if (!text.empty() && text.back() == '\n')
            text.pop_back();
        else
            text += "<no line feed>";
        mcUnit->note(text);
        return true;
    }
    ReferencePtr<utils::MemoryBlock> transact(ReferencePtr<utils::MemoryBlock> cRequest, int32_t,
                                              uint32_t) override {
        std::string query = cRequest->getText();
        std::string error;
        if (!send(cRequest, error))
            return {};
        if (!query.empty() && query.back() == '\n')
            query.pop_back();
        const std::string reply = mcUnit->answer(query);
        return reply.empty() ? ReferencePtr<utils::MemoryBlock>() : makeReference<utils::MemoryBlock>(reply);
    }
    ReferencePtr<utils::MemoryBlock> receive(uint32_t uTimeoutMs, std::string&) override {
        const auto bytes = mcUnit->takeData(uTimeoutMs);
        return bytes ? makeReference<utils::MemoryBlock>(*bytes) : ReferencePtr<utils::MemoryBlock>();
    }

 private:
    std::shared_ptr<FakeUnit> mcUnit;
    std::atomic<bool> mbOpen{true};
};

/// What "TCP/IP" opens in a test program that links no sockets' registration: the fake units, by host.
class FakeTransportType : public TransportType {
 public:
    FakeTransportType() : TransportType("TCP/IP") {}
    static FakeTransportType& instance() {
        static FakeTransportType scType;
        return scType;
    }
    void add(const std::string& host, std::shared_ptr<FakeUnit> cUnit) {
        const std::lock_guard<std::mutex> cGuard(mcMutex);
        mcUnits[host] = std::move(cUnit);
    }
    void remove(const std::string& host) {
        const std::lock_guard<std::mutex> cGuard(mcMutex);
        mcUnits.erase(host);
    }
    ReferencePtr<Transport> create(const std::string& address) override {
        const std::string host = address.substr(0, address.find(':'));
        const std::string port = address.substr(std::min(address.size(), host.size() + 1));
        std::shared_ptr<FakeUnit> cUnit;
        {
            const std::lock_guard<std::mutex> cGuard(mcMutex);
            const auto it = mcUnits.find(host);
            if (it == mcUnits.end())
                return {};
            cUnit = it->second;
        }
        const bool bData = port.rfind("37000/", 0) == 0;
        if (bData ? cUnit->mbRefuseData : cUnit->mbRefuseCommands) {
            cUnit->note("[refused " + port + "]");
            return {};
        }
        cUnit->note("[connect " + port + "]");
        return makeReference<FakeTransport>(address, cUnit);
    }

 private:
    std::mutex mcMutex;
    std::map<std::string, std::shared_ptr<FakeUnit>> mcUnits;
};

/// A fake unit that can be reached by its host for as long as this lives.
class ReachableUnit {
 public:
    ReachableUnit() : mcUnit(std::make_shared<FakeUnit>()) {
        FakeTransportType::instance().add(mcHost, mcUnit);
    }
    ~ReachableUnit() { FakeTransportType::instance().remove(mcHost); }
    ReachableUnit(const ReachableUnit&) = delete;
    ReachableUnit& operator=(const ReachableUnit&) = delete;

    FakeUnit& unit() { return *mcUnit; }
    FakeUnit* operator->() { return mcUnit.get(); }
    const std::string& host() const { return mcHost; }

 private:
    std::string mcHost = uniqueLoopback();
    std::shared_ptr<FakeUnit> mcUnit;
};

}  // namespace vnktest
