#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "links/scpiprotocol.h"

namespace vnktest {

/// A command link with no unit behind it: keeps what was sent and asked, and answers from a table.
class FakeSCPI : public SCPIProtocol {
 public:
    FakeSCPI() : SCPIProtocol(nullptr) {
        mcReplies["SYST:ERR?"] = "0,\"No error\"";
        mcReplies["SYST:LOCK:REQ? ACQ"] = "1";
        mcReplies[":SYSTem:CAPTure:MODE?"] = "BLOCK";
    }
    bool sendCommand(const std::string& text) override {
        note(text);
        if (mcOnSend)
            mcOnSend(text);
        return true;
    }
    std::string call(const std::string& text, uint32_t) override {
        note(text);
        std::lock_guard<std::mutex> cGuard(mcMutex);
        const auto it = mcReplies.find(text);
        return it == mcReplies.end() ? std::string() : it->second;
    }
    void reply(const std::string& query, const std::string& text) {
        std::lock_guard<std::mutex> cGuard(mcMutex);
        mcReplies[query] = text;
    }
    /// What was sent and asked since the last call.
    std::vector<std::string> take() {
        std::lock_guard<std::mutex> cGuard(mcMutex);
        return std::exchange(mlJournal, {});
    }
    /// Called on the sending thread, after the text is in the journal. Set before the link is used.
    std::function<void(const std::string&)> mcOnSend;

 private:
    void note(const std::string& text) {
        std::lock_guard<std::mutex> cGuard(mcMutex);
        mlJournal.push_back(text);
    }
    std::mutex mcMutex;
    std::map<std::string, std::string> mcReplies;
    std::vector<std::string> mlJournal;
};

}  // namespace vnktest
