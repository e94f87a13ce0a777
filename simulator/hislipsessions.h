#pragma once

#include <map>
#include <string>

#include "simulator/commandtree.h"
#include "simulator/hislipconnection.h"
#include "simulator/hisliplocks.h"
#include "simulator/instrument.h"
#include "simulator/journal.h"
#include "simulator/life.h"

namespace vnksim {

/// What HiSLIP messages do: sessions come and go, commands reach the instrument, locks keep sessions apart.
/// Of one thread.
class HislipSessions {
 public:
    HislipSessions(Faults& faults, Journal& commands, Journal& messages, Instrument& instrument,
                   Life& life);

    /// Serves one message; answers are queued on the connections.
    void serve(HislipConnection& connection, HislipMessage message);
    void refuse(HislipConnection& connection, hislip::Fatal code, const std::string& text);
    void tooLong(HislipConnection& connection, const HislipMessage& header);
    /// The session's next message on this connection has to wait for somebody else's lock.
    bool lockedOut(const HislipConnection& connection) const;
    /// Ends the sessions that have lost a connection, and grants locks. Call it before ended connections go.
    void settle();
    void clear();
    /// When settle() has something to do though nothing was received.
    std::optional<HislipLocks::Clock::time_point> nextEnd() const { return mcLocks.nextEnd(); }
    /// Complete ones.
    unsigned count() const;

 private:
    struct Session {
        HislipConnection* synchronous = nullptr;
        HislipConnection* asynchronous = nullptr;  ///< null until it has come
        std::string program{};                     ///< of the Data messages so far
        bool clearing = false;                     ///< between the two halves of a device clear
        uint64_t limit = 0;                        ///< of the client's messages; 0: none told
    };

    void serveFresh(HislipConnection& connection, const HislipMessage& message);
    void initialize(HislipConnection& connection, const HislipMessage& message);
    void asyncInitialize(HislipConnection& connection, const HislipMessage& message);
    void serveSynchronous(HislipConnection& connection, Session& session, HislipMessage& message);
    void serveAsynchronous(HislipConnection& connection, Session& session, const HislipMessage& message);
    void serveVendor(HislipConnection& connection, const HislipMessage& message);
    void data(HislipConnection& connection, Session& session, HislipMessage& message);
    void line(HislipConnection& connection, Session& session, uint32_t id, const std::string& line);
    static void reply(HislipConnection& connection, const Session& session, const HislipMessage& whole,
                      const std::string& name, const HislipFault& fault);
    std::optional<std::string> execute(uint16_t number, const std::string& line, bool& tellsSession);
    std::optional<std::string> tellSession(uint16_t number, const std::string& text);
    void lock(HislipConnection& connection, const HislipMessage& message);
    void lockResponse(HislipConnection& connection, HislipLocks::Result result);
    void maximumSize(HislipConnection& connection, Session& session, const HislipMessage& message);
    void deviceClear(HislipConnection& connection, Session& session);
    uint8_t statusByte(const Session& session) const;
    void unknownType(HislipConnection& connection, const HislipMessage& message);
    void send(HislipConnection& connection, const HislipMessage& message);
    HislipFault faultOf(const std::string& name);
    uint16_t freeNumber();
    void record(const HislipConnection& connection, const HislipMessage& message);

    Faults& mcFaults;
    Journal& mcCommands;
    Journal& mcMessages;
    Instrument& mcInstrument;
    Life& mcLife;
    CommandTree mcSessionQuery;
    std::map<uint16_t, Session> mlSessions;
    HislipLocks mcLocks;
    /// The two bytes of a session's number differ, so that a client that swaps them is found out.
    uint16_t muNextNumber = 0x0102;
};

}  // namespace vnksim
