#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

#include "links/transport.h"

namespace vnktest {

/// A transport in memory: what the test queues is what the next receives give, one piece each.
class FakeTransport : public Transport {
 public:
    explicit FakeTransport(std::string address = "fake") : Transport(std::move(address)) {}

    std::string getTypeName() const override { return "FAKE"; }
    bool isOpen() const override { return mbOpen; }
    bool send(ReferencePtr<utils::MemoryBlock> cBlock, std::string& errorText) override {
        std::lock_guard<std::mutex> cGuard(mcMutex);
        if (!mSendError.empty()) {
            errorText = mSendError;
            return false;
        }
        mlSent.push_back(cBlock->getText());
        for (const std::string& reply : mlReplies)
            mlInput.push_back(reply);
        mlReplies.clear();
        mcChanged.notify_all();
        return true;
    }
    ReferencePtr<utils::MemoryBlock> receive(uint32_t uTimeoutMs, std::string& errorText) override {
        std::unique_lock<std::mutex> cGuard(mcMutex);
        ++muReceives;
        mcChanged.wait_for(cGuard, std::chrono::milliseconds(uTimeoutMs),
                           [&] { return !mlInput.empty() || !mError.empty(); });
        if (!mlInput.empty()) {
            const std::string piece = mlInput.front();
            mlInput.pop_front();
            return makeReference<utils::MemoryBlock>(piece);
        }
        errorText = std::exchange(mError, "");
        return nullptr;
    }
    bool flush() override {
        std::lock_guard<std::mutex> cGuard(mcMutex);
        ++muFlushes;
        mlInput.clear();
        return true;
    }
    bool close() override { return mbOpen.exchange(false); }
    bool open() override { return mbOpen = true; }

    void queue(const std::string& piece) {
        std::lock_guard<std::mutex> cGuard(mcMutex);
        mlInput.push_back(piece);
        mcChanged.notify_all();
    }
    /// What comes once the next request has been sent.
    void reply(const std::string& piece) {
        std::lock_guard<std::mutex> cGuard(mcMutex);
        mlReplies.push_back(piece);
    }
    void fail(const std::string& text) {
        std::lock_guard<std::mutex> cGuard(mcMutex);
        mError = text;
        mcChanged.notify_all();
    }
    void failSends(const std::string& text) {
        std::lock_guard<std::mutex> cGuard(mcMutex);
        mSendError = text;
    }
    std::vector<std::string> sent() {
        std::lock_guard<std::mutex> cGuard(mcMutex);
        return mlSent;
    }
    bool drained() {
        std::lock_guard<std::mutex> cGuard(mcMutex);
        return mlInput.empty();
    }
    unsigned receives() {
        std::lock_guard<std::mutex> cGuard(mcMutex);
        return muReceives;
    }
    unsigned flushes() {
        std::lock_guard<std::mutex> cGuard(mcMutex);
        return muFlushes;
    }

 private:
    std::mutex mcMutex;
    std::condition_variable mcChanged;
    std::deque<std::string> mlInput;
    std::vector<std::string> mlReplies;
    std::vector<std::string> mlSent;
    std::string mError;
    std::string mSendError;
    unsigned muReceives = 0;
    unsigned muFlushes = 0;
    std::atomic<bool> mbOpen{true};
};

}  // namespace vnktest
