#include "receivers/commandchannel.h"

#include <algorithm>
#include <cctype>
#include <string_view>

#include "foundations/clock.h"
#include "foundations/runtimeerrors.h"
#include "foundations/text.h"

namespace {

constexpr uint64_t kPollLimitMs = 2000;
constexpr uint32_t kPollPauseMs = 100;

constexpr int32_t kNoAccess = -6001;
constexpr int32_t kNoLock = -6002;
constexpr int32_t kNoBlockMode = -6003;
constexpr int32_t kNotInBlockMode = -6006;

}  // namespace

CommandChannel::CommandChannel(ReferencePtr<LinkWatch> cWatch, const CommandWords& cWords)
    : mcWatch(std::move(cWatch)), mcWords(cWords) {}

void CommandChannel::setStopTest(std::function<bool()> stopping) {
    const std::lock_guard<std::mutex> cGuard(mcStoppingMutex);
    mcStopping = std::move(stopping);
}

bool CommandChannel::isStopping() {
    // Asked under the mutex: the owner of what the test uses may go as soon as it has taken the test back.
    const std::lock_guard<std::mutex> cGuard(mcStoppingMutex);
    return mcStopping && mcStopping();
}

bool CommandChannel::send(const std::string& text) {
    const ReferencePtr<SCPIProtocol> cProtocol = protocol();
    const bool bSent = cProtocol && cProtocol->sendCommand(text);
    noteReset(text);
    return bSent;
}

std::string CommandChannel::ask(const std::string& text) {
    const ReferencePtr<SCPIProtocol> cProtocol = protocol();
    std::string reply = cProtocol ? cProtocol->call(text, queryTimeoutMs()) : std::string();
    noteReset(text);
    return reply;
}

// Behind the exchange: whoever programs after it has counted is not forgotten by it.
void CommandChannel::noteReset(const std::string& text) {
    constexpr std::string_view kReset = "*RST";
    const auto isSame = [](char c, char cOfReset) { return std::toupper(static_cast<unsigned char>(c)) == cOfReset; };
    if (std::search(text.begin(), text.end(), kReset.begin(), kReset.end(), isSame) != text.end())
        muResets.fetch_add(1, std::memory_order_relaxed);
}

std::string CommandChannel::query(const std::string& text) {
    std::string reply = ask(text);
    if (!reply.empty())
        mcWatch->stamp();
    return reply;
}

std::string systemErrorText(const std::string& reply) {
    if (reply.empty())
        return "No response to SYST:ERR?";
    const std::string trimmed(utils::strip(reply));
    const auto iNumber = utils::parseInt32(trimmed);
    if (!iNumber)
        return "Bad response <" + trimmed + "> to SYST:ERR?";
    if (*iNumber == 0)
        return {};
    // The text alone counts, as the unit tells it: an error without one passes for none.
    return std::string(utils::beforeFirst(utils::afterFirst(trimmed, "\""), "\""));
}

std::string CommandChannel::querySystemError() {
    return systemErrorText(ask("SYST:ERR?"));
}

void CommandChannel::sendBatch(const std::string& text) {
    if (text.empty())
        return;
    send(text);
    const std::string error = querySystemError();
    if (!error.empty())
        throw "Command '" + text + "' generated " + error;
    mcWatch->stamp();
}

bool CommandChannel::sendCommandAndPoll(const std::string& command, const std::string& query,
                                        const std::string& expected) {
    if (!command.empty() && !send(command))
        return false;
    if (query.empty())
        return true;
    const uint64_t uBegin = utils::steadyMilliseconds();
    do {
        const std::string reply = ask(query);
        utils::reportTrace("_sendCommandAndPoll(" + command + ") returns " + reply);
        if (reply.find(expected) != std::string::npos) {
            mcWatch->stamp();
            return true;
        }
        if (isStopping())
            break;
        utils::sleepMs(kPollPauseMs);
    } while (utils::steadyMilliseconds() - uBegin < kPollLimitMs);
    utils::reportTrace("_sendCommandAndPoll(" + command + ") fails");
    return false;
}

bool CommandChannel::verifyInBLOCKMode() {
    // No objects of static storage: a receiver thread may come here while the process ends.
    static constexpr const char* kModeQuery = ":SYSTem:CAPTure:MODE?";
    static constexpr const char* kBlock = "BLOCK";
    utils::reportTrace("_verifyInBLOCKMode");
    if (ask(kModeQuery).find(kBlock) == std::string::npos) {
        utils::reportError(kNotInBlockMode, "Opened device not in BLOCK mode");
        send("*RST");
        if (ask(kModeQuery).find(kBlock) == std::string::npos) {
            utils::reportError(kNoBlockMode, "*RST Unable to recover device to 'BLOCK' mode");
            return false;
        }
    }
    mcWatch->stamp();
    return true;
}

bool CommandChannel::dropLinks() {
    const ReferencePtr<HiSlipProtocol> cHiSLIP = mcHiSLIP.exchange({});
    const ReferencePtr<SCPIProtocol> cProtocol = mcProtocol.exchange({});
    if (cHiSLIP)
        cHiSLIP->close();
    else if (cProtocol && cProtocol->isOpen())
        cProtocol->closeTransport();
    return static_cast<bool>(cHiSLIP);
}

bool CommandChannel::acquireAccess() {
    if (const ReferencePtr<HiSlipProtocol> cHiSLIP = mcHiSLIP.get(); cHiSLIP && !cHiSLIP->lock()) {
        utils::reportError(kNoLock, "HiSlip exclusive lock access failed");
        return false;
    }
    if (utils::strip(ask("SYST:LOCK:REQ? ACQ")) != "1") {
        utils::reportError(kNoAccess, mcWords.mpAcquireFailed);
        return false;
    }
    mcWatch->stamp();
    return true;
}

void appendCommand(std::string& batch, const std::string& command) {
    if (!batch.empty())
        batch += ';';
    batch += command;
}
