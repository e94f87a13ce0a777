#pragma once

#include <functional>
#include <mutex>
#include <string>

#include "foundations/guardedreference.h"
#include "links/hislipprotocol.h"
#include "links/scpiprotocol.h"
#include "receivers/linkwatch.h"

/// What differs between the families as a word.
struct CommandWords {
    const char* mpAcquireFailed;   // "Cannot obtain acquisition access"
};

/// The command operations that all engines of a receiver use, the check of the unit's mode, and the ladder of
/// attempts that brings a stuck unit back. Stamps the link watch on every success.
///
/// Commands may come from any thread and are not serialised: replies of two threads that ask at once may mix.
class CommandChannel : public utils::ReferenceCountedObject {
 public:
    CommandChannel(ReferencePtr<LinkWatch> cWatch, const CommandWords& cWords);

    void setProtocol(ReferencePtr<SCPIProtocol> cProtocol) { mcProtocol.set(std::move(cProtocol)); }
    ReferencePtr<SCPIProtocol> protocol() const { return mcProtocol.get(); }
    /// What the commands travel over where they do not go raw; access is then its lock as well, and a reopen its own.
    void setHiSLIP(ReferencePtr<HiSlipProtocol> cHiSLIP) { mcHiSLIP.set(std::move(cHiSLIP)); }
    /// Closes and lets go of the links, so that whoever still waits on them comes free: a query with a long time-out,
    /// a send to a unit that reads no more. True when HiSLIP was in use.
    bool dropLinks();
    void setQueryTimeoutMs(uint32_t uMs) { muQueryTimeoutMs.store(uMs, std::memory_order_relaxed); }
    uint32_t queryTimeoutMs() const { return muQueryTimeoutMs.load(std::memory_order_relaxed); }
    /// Asked between the steps of long waits, so that a stopped receiver thread leaves them early. What the
    /// test uses may end once another one, or none, has been set.
    void setStopTest(std::function<bool()> stopping);
    bool isStopping();

    /// False with no protocol.
    bool send(const std::string& text);
    /// How often the unit has been sent a reset, by whomever: it has forgotten what it was programmed to.
    uint32_t resetCount() const { return muResets.load(std::memory_order_relaxed); }
    /// With the query time-out; empty with no protocol or no reply. A reply stamps the watch.
    std::string query(const std::string& text);
    /// Sends and asks for the unit's error; throws a std::string "Command '%s' generated %s".
    void sendBatch(const std::string& text);
    /// Sends the command, if any, and polls until the reply holds the expected text, for 2000 ms. An empty
    /// query counts as done at once.
    bool sendCommandAndPoll(const std::string& command, const std::string& query, const std::string& expected);
    /// Empty when the unit has no error.
    std::string querySystemError();
    bool verifyInBLOCKMode();
    bool acquireAccess();
    bool recoverAccess();

 private:
    /// A query that leaves the judgement of its reply, and so the stamp, to the caller.
    std::string ask(const std::string& text);
    bool reopenTransport();
    bool openLinkAnew();
    void noteReset(const std::string& text);

    GuardedReference<SCPIProtocol> mcProtocol;
    GuardedReference<HiSlipProtocol> mcHiSLIP;
    ReferencePtr<LinkWatch> mcWatch;
    CommandWords mcWords;
    std::atomic<uint32_t> muQueryTimeoutMs{1000};
    std::atomic<uint32_t> muResets{0};
    std::mutex mcStoppingMutex;
    std::function<bool()> mcStopping;
};

/// What a reply to "SYST:ERR?" says: empty for no error.
std::string systemErrorText(const std::string& reply);

/// Adds ";" first when the text so far is not empty.
void appendCommand(std::string& batch, const std::string& command);
