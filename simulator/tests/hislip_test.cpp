#include <sys/socket.h>

#include <cstdio>

#include "simulator/hislipmessage.h"
#include "simulator/tests/fixture.h"
#include "support/resources.h"

namespace simtest {
namespace {

using Clock = std::chrono::steady_clock;

// Message types; the same numbers as the unit's, but not its names for them.
enum : unsigned {
    kInitialize = 0,
    kInitializeResponse = 1,
    kFatal = 2,
    kError = 3,
    kLock = 4,
    kLockResponse = 5,
    kData = 6,
    kDataEnd = 7,
    kDeviceClearComplete = 8,
    kDeviceClearAcknowledge = 9,
    kAsyncInitialize = 17,
    kAsyncInitializeResponse = 18,
    kAsyncDeviceClear = 19,
    kAsyncStatusQuery = 21,
    kAsyncDeviceClearAcknowledge = 23,
    kVendorRequest = 0x80,
    kVendorReply = 0x81
};
constexpr uint32_t kFirstId = 0xFFFFFF00;

/// A message as it stands on the wire; of what is no message, the bytes alone.
struct Wire {
    std::string bytes;
    bool whole() const { return bytes.size() >= 16; }
    uint64_t number(size_t offset, size_t count) const {
        uint64_t value = 0;
        for (size_t i = offset; i < offset + count && i < bytes.size(); ++i) {
            value = value << 8 | static_cast<uint8_t>(bytes[i]);
        }
        return value;
    }
    std::string prefix() const { return bytes.substr(0, 2); }
    unsigned type() const { return whole() ? static_cast<unsigned>(number(2, 1)) : 999; }
    unsigned control() const { return static_cast<unsigned>(number(3, 1)); }
    uint32_t parameter() const { return static_cast<uint32_t>(number(4, 4)); }
    uint64_t length() const { return number(8, 8); }
    std::string payload() const { return whole() ? bytes.substr(16) : ""; }
};

/// One connection that speaks and hears messages.
class Peer {
 public:
    Peer(const std::string& address, uint16_t port) : mcClient(address, port) {}
    bool connected() const { return mcClient.connected(); }
    void raw(const std::string& bytes) { ::send(mcClient.fd(), bytes.data(), bytes.size(), MSG_NOSIGNAL); }
    void send(unsigned type, unsigned control, uint32_t parameter, const std::string& payload = {}) {
        std::string bytes = {'H', 'S', static_cast<char>(type), static_cast<char>(control)};
        for (int shift = 24; shift >= 0; shift -= 8) {
            bytes.push_back(static_cast<char>(parameter >> shift));
        }
        for (int shift = 56; shift >= 0; shift -= 8) {
            bytes.push_back(static_cast<char>(uint64_t{payload.size()} >> shift));
        }
        raw(bytes + payload);
    }
    Wire next(int limitMs = 30000) {
        Wire wire;
        wire.bytes = text(mcClient.receive(16, limitMs));
        if (wire.whole() && wire.length() < 1 << 24) {
            wire.bytes += text(mcClient.receive(wire.length(), limitMs));
        }
        return wire;
    }
    /// What still comes until the unit closes; it has to.
    std::string rest() {
        std::string all;
        for (std::string part = "x"; !part.empty(); all += part) {
            part = text(mcClient.receive(1, 30000));
        }
        EXPECT_TRUE(mcClient.ends(30000));
        return all;
    }
    bool ends() { return mcClient.ends(30000); }
    Client& client() { return mcClient; }

 private:
    static std::string text(const std::vector<uint8_t>& bytes) { return {bytes.begin(), bytes.end()}; }
    Client mcClient;
};

/// Both connections of a client.
class Session {
 public:
    explicit Session(const std::string& address)
        : mcSync(address, vnksim::kHislipPort), mcAsync(address, vnksim::kHislipPort) {
        mcSync.send(kInitialize, 0, 0x01005858);
        muNumber = mcSync.next().parameter() & 0xFFFF;
        mcAsync.send(kAsyncInitialize, 0, muNumber);
        mbOpen = mcAsync.next().type() == kAsyncInitializeResponse;
    }
    void write(const std::string& line) {
        mcSync.send(kDataEnd, 0, muId, line + "\n");
        muId += 2;
    }
    std::string ask(const std::string& line) {
        write(line);
        const Wire answer = mcSync.next();
        EXPECT_EQ(answer.type(), kDataEnd) << line;
        EXPECT_EQ(answer.parameter(), muId - 2) << line;
        return answer.payload();
    }
    unsigned lock(uint32_t milliseconds = 0) {
        mcAsync.send(kLock, 1, milliseconds);
        const Wire answer = mcAsync.next();
        EXPECT_EQ(answer.type(), kLockResponse);
        return answer.control();
    }

    Peer mcSync, mcAsync;
    uint32_t muNumber = 0, muId = kFirstId;
    bool mbOpen = false;
};

class Hislip : public testing::Test {
 protected:
    void startUnit() {
        mcOptions.address = vnktest::uniqueLoopback();
        mpUnit = std::make_unique<vnksim::Unit>(mcOptions, vnksim::Scene().tone(100.01e6, -40));
        mpUnit->start();
    }
    const std::string& address() const { return mcOptions.address; }
    void fault(const std::string& text) { EXPECT_TRUE(mpUnit->faults().apply(text)) << text; }

    vnksim::UnitOptions mcOptions;
    std::unique_ptr<vnksim::Unit> mpUnit;
};

/// A client that has come as far as the message `name`, asks for it, and then asks for an error with what
/// stands behind it.
class Asker {
 public:
    Asker(const std::string& address, const std::string& name) {
        if (name == "InitializeResponse") {
            mpPeer = std::make_unique<Peer>(address, vnksim::kHislipPort);
            mcAsk = [this] { mpPeer->send(kInitialize, 0, 0x01005858); };
            return;
        }
        if (name == "AsyncInitializeResponse") {
            mpFirst = std::make_unique<Peer>(address, vnksim::kHislipPort);
            mpFirst->send(kInitialize, 0, 0x01005858);
            muSession = mpFirst->next().parameter() & 0xFFFF;
            mpPeer = std::make_unique<Peer>(address, vnksim::kHislipPort);
            mcAsk = [this] { mpPeer->send(kAsyncInitialize, 0, muSession); };
            return;
        }
        mpSession = std::make_unique<Session>(address);
        muSession = mpSession->muNumber;
        if (name == "AsyncLockResponse") {
            mcAsk = [this] { mpSession->mcAsync.send(kLock, 1, 0); };
            mpUsed = &mpSession->mcAsync;
        } else if (name == "VendorReply") {
            mpPeer = std::make_unique<Peer>(address, vnksim::kVendorPort);
            mcAsk = [this] { mpPeer->send(kVendorRequest, 0, muSession); };
        } else {
            mcAsk = [this] { mpSession->write(":SYSTem:COMMunicate:HISLip:SESSion?"); };
            mpUsed = &mpSession->mcSync;
        }
    }
    void ask() { mcAsk(); }
    Peer& peer() { return mpUsed ? *mpUsed : *mpPeer; }
    /// The answer to what is no message marks the end of what the question brought.
    void mark() { peer().raw("no message at all"); }
    uint32_t session() const { return muSession; }

 private:
    std::unique_ptr<Peer> mpPeer, mpFirst;
    std::unique_ptr<Session> mpSession;
    Peer* mpUsed = nullptr;
    std::function<void()> mcAsk;
    uint32_t muSession = 0;
};

class Handshake : public Hislip, public testing::WithParamInterface<const char*> {
 protected:
    void SetUp() override { startUnit(); }
    std::string name() const { return GetParam(); }
    /// The first message that comes when the fault is on.
    Wire answerUnder(const std::string& what) {
        fault("hislip," + name() + "," + what);
        mpAsker = std::make_unique<Asker>(address(), name());
        mpAsker->ask();
        return mpAsker->peer().next();
    }
    Wire healthy() {
        mpAsker = std::make_unique<Asker>(address(), name());
        mpAsker->ask();
        return mpAsker->peer().next();
    }
    unsigned type() const {
        return name() == "InitializeResponse"        ? kInitializeResponse
               : name() == "AsyncInitializeResponse" ? kAsyncInitializeResponse
               : name() == "AsyncLockResponse"       ? kLockResponse
               : name() == "VendorReply"             ? kVendorReply
                                                     : kDataEnd;
    }
    std::unique_ptr<Asker> mpAsker;
};

TEST_P(Handshake, isRightWithoutAFault) {
    const Wire answer = healthy();
    EXPECT_EQ(answer.prefix(), "HS");
    EXPECT_EQ(answer.type(), type());
    EXPECT_EQ(answer.length(), answer.payload().size());
    const uint32_t session = mpAsker->session();
    if (name() == "VendorReply") {
        EXPECT_EQ(answer.parameter(), session);
    } else if (name() == "SessionReply") {
        EXPECT_EQ(answer.payload(), std::to_string(session) + "\n");
        EXPECT_EQ(answer.parameter(), kFirstId);
    } else if (name() == "AsyncLockResponse") {
        EXPECT_EQ(answer.control(), 1u);
    } else if (name() == "InitializeResponse") {
        EXPECT_EQ(answer.parameter() >> 16, 0x0100u);
        EXPECT_EQ(answer.control(), 0u);
    }
}

TEST_P(Handshake, canBeMissing) {
    fault("hislip," + name() + ",missing,times=1");
    Asker asker(address(), name());
    asker.ask();
    asker.mark();
    const Wire answer = asker.peer().next();
    EXPECT_EQ(answer.type(), kFatal);
    EXPECT_EQ(answer.control(), 1u);
    EXPECT_EQ(healthy().type(), type());
}

TEST_P(Handshake, canBeLate) {
    fault("hislip," + name() + ",lateMs=400");
    Asker asker(address(), name());
    const auto before = Clock::now();
    asker.ask();
    EXPECT_EQ(asker.peer().next().type(), type());
    EXPECT_GE(Clock::now() - before, 400ms);
}

TEST_P(Handshake, canHaveAnotherTypeControlAndParameter) {
    const Wire answer = answerUnder("type=9,control=5,parameter=0x80000001");
    EXPECT_EQ(answer.type(), 9u);
    EXPECT_EQ(answer.control(), 5u);
    EXPECT_EQ(answer.parameter(), 0x80000001);
}

TEST_P(Handshake, canTellAnotherSession) {
    const Wire answer = answerUnder("session=3");
    const uint32_t session = mpAsker->session();
    if (name() == "InitializeResponse") {
        // Nothing waits under that number; what the unit knows is three less.
        Peer wrong(address(), vnksim::kHislipPort), right(address(), vnksim::kHislipPort);
        wrong.send(kAsyncInitialize, 0, answer.parameter() & 0xFFFF);
        EXPECT_EQ(wrong.next().type(), kFatal);
        right.send(kAsyncInitialize, 0, (answer.parameter() & 0xFFFF) - 3);
        EXPECT_EQ(right.next().type(), kAsyncInitializeResponse);
    } else if (name() == "VendorReply") {
        EXPECT_EQ(answer.parameter(), session + 3);
    } else if (name() == "SessionReply") {
        EXPECT_EQ(answer.payload(), std::to_string(session + 3) + "\n");
    }
    EXPECT_EQ(answer.type(), type());
}

TEST_P(Handshake, canBeCutAnywhere) {
    const std::string whole = healthy().bytes;
    for (const size_t count : {size_t{0}, size_t{1}, size_t{7}, size_t{15}, whole.size() - 1}) {
        mpAsker.reset();
        fault("hislip," + name() + ",cutAfter=" + std::to_string(count));
        Asker asker(address(), name());
        asker.ask();
        EXPECT_EQ(asker.peer().rest().size(), count);
    }
}

TEST_P(Handshake, canBeReplacedByAnErrorOrAFatalOne) {
    const Wire error = answerUnder("error=7,text=No mood for this");
    EXPECT_EQ(error.type(), kError);
    EXPECT_EQ(error.control(), 7u);
    EXPECT_EQ(error.payload(), "No mood for this");
    const Wire fatal = answerUnder("fatal=3");
    EXPECT_EQ(fatal.type(), kFatal);
    EXPECT_EQ(fatal.control(), 3u);
    EXPECT_EQ(fatal.length(), 0u);
}

TEST_P(Handshake, canTellALengthOrAPrefixThatIsNone) {
    EXPECT_EQ(answerUnder("length=9223372036854775808").length(), uint64_t{1} << 63);
    EXPECT_EQ(answerUnder("prefix=SH").prefix(), "SH");
}

TEST_P(Handshake, canComeTwiceAndByteByByte) {
    const Wire first = answerUnder("doubled,segmentBytes=1");
    EXPECT_EQ(first.type(), type());
    EXPECT_EQ(mpAsker->peer().next().bytes, first.bytes);
}

INSTANTIATE_TEST_SUITE_P(EachMessage, Handshake,
                         testing::Values("InitializeResponse", "AsyncInitializeResponse", "AsyncLockResponse",
                                         "SessionReply", "VendorReply"),
                         [](const auto& message) { return std::string(message.param); });

TEST_F(Hislip, commandsReachTheSameInstrumentAndJournal) {
    startUnit();
    Session session(address());
    ASSERT_TRUE(session.mbOpen);
    Client scpi(address(), vnksim::kScpiPort);
    session.write(":FREQuency:CENTer 433 MHz");
    EXPECT_EQ(session.ask("*OPC?"), "1\n");
    EXPECT_EQ(scpi.ask(":FREQuency:CENTer?").value_or(""), "433000000");
    const auto entries = mpUnit->journal().snapshot();
    ASSERT_EQ(entries.size(), 3u);
    EXPECT_EQ(entries[0].line, ":FREQuency:CENTer 433 MHz");
    EXPECT_EQ(entries[0].road, "hislip");
    EXPECT_EQ(entries[0].connection, session.muNumber);
    EXPECT_EQ(entries[2].road, "scpi");
    EXPECT_EQ(entries[2].connection, 1u);
    // The query for a session belongs to HiSLIP alone.
    EXPECT_EQ(scpi.errorAfter(":SYST:COMM:HISL:SESS?").substr(0, 4), "-113");
    const auto messages = mpUnit->hislipMessages().lines();
    ASSERT_EQ(messages.size(), 4u);
    EXPECT_EQ(messages[0], "sync Initialize 0 0x01005858 0");
    EXPECT_EQ(messages[3], "sync DataEnd 0 0xffffff02 6");
    EXPECT_EQ(mpUnit->state().hislipSessions, 1u);
}

TEST_F(Hislip, aRepliesIdAndPiecesCanBeWrong) {
    startUnit();
    Session session(address());
    const std::string identity = session.ask("*IDN?");
    fault("hislip,Reply,id=2,times=1");
    session.write("*IDN?");
    EXPECT_EQ(session.mcSync.next().parameter(), session.muId);
    EXPECT_EQ(session.ask("*IDN?"), identity);
    fault("hislip,Reply,pieceBytes=10");
    session.write("*IDN?");
    std::string joined;
    for (bool last = false; !last;) {
        const Wire piece = session.mcSync.next();
        ASSERT_TRUE(piece.type() == kData || piece.type() == kDataEnd);
        EXPECT_EQ(piece.parameter(), session.muId - 2);
        EXPECT_LE(piece.payload().size(), 10u);
        last = piece.type() == kDataEnd;
        joined += piece.payload();
    }
    EXPECT_EQ(joined, identity);
}

TEST_F(Hislip, faultsOfCommandsHoldHereToo) {
    startUnit();
    Session session(address());
    fault("noReplyTo,SESSion");
    session.write(":SYSTem:COMMunicate:HISLip:SESSion?");
    EXPECT_EQ(session.ask("*OPC?"), "1\n");
    fault("clear");
    fault("wrongReplies,SESSion=many");
    EXPECT_EQ(session.ask(":SYSTem:COMMunicate:HISLip:SESSion?"), "many\n");
    fault("replyDelayMs,300");
    const auto before = Clock::now();
    EXPECT_EQ(session.ask("*OPC?"), "1\n");
    EXPECT_GE(Clock::now() - before, 300ms);
}

TEST_F(Hislip, aDeviceClearForgetsAReplyThatIsHeldBack) {
    startUnit();
    Session session(address());
    fault("hislip,Reply,lateMs=3600000,times=1");
    session.write("*IDN?");
    ASSERT_TRUE(mpUnit->journal().waitFor("*IDN?", 30s));
    session.mcAsync.send(kAsyncStatusQuery, 0, session.muId - 2);
    EXPECT_EQ(session.mcAsync.next().control() & 0x10, 0x10u);
    session.mcAsync.send(kAsyncDeviceClear, 0, 0);
    EXPECT_EQ(session.mcAsync.next().type(), kAsyncDeviceClearAcknowledge);
    session.mcSync.send(kDeviceClearComplete, 0, 0);
    EXPECT_EQ(session.mcSync.next().type(), kDeviceClearAcknowledge);
    session.muId = kFirstId;
    EXPECT_EQ(session.ask("*OPC?"), "1\n");
}

TEST_F(Hislip, locksAreRefusedOnRequestAndByHolders) {
    startUnit();
    Session one(address()), two(address());
    fault("hislipLockRefusedOnce,2");
    EXPECT_EQ(one.lock(60000), 0u);
    EXPECT_EQ(two.lock(60000), 0u);
    EXPECT_EQ(one.lock(), 1u);
    EXPECT_EQ(two.lock(), 0u);
    fault("closeHislipOnce");
    EXPECT_TRUE(one.mcSync.ends());
    EXPECT_TRUE(two.mcAsync.ends());
    Session three(address());
    fault("hislipLockRefused");
    EXPECT_EQ(three.lock(), 0u);
    fault("clear");
    EXPECT_EQ(three.lock(), 1u);
}

TEST_F(Hislip, dataConnectionsOutliveTheirSession) {
    mcOptions.pace = vnksim::Pace::flatOut;
    startUnit();
    auto pSession = std::make_unique<Session>(address());
    Peer data(address(), vnksim::kVendorPort);
    data.send(kVendorRequest, 0, pSession->muNumber);
    EXPECT_EQ(data.next().parameter(), pSession->muNumber);
    EXPECT_TRUE(vnktest::waitUntil([this] { return mpUnit->state().dataConnections == 1; }));
    fault("resetHislipOnce");
    EXPECT_TRUE(pSession->mcSync.ends());
    EXPECT_TRUE(vnktest::waitUntil([this] { return mpUnit->state().hislipSessions == 0; }));
    Session again(address());
    again.write(":TRACe:SPPacket 1024;:SENSE:DEC 16;:TRACe:STReam:STARt 5");
    EXPECT_EQ(takeData(data.client(), 20).size(), 20u);
    fault("closeDataOnce");
    EXPECT_TRUE(data.ends());
    again.write(":TRACe:STReam:STOP");
    EXPECT_EQ(again.ask("*OPC?"), "1\n");
}

TEST_F(Hislip, portsCanBeClosedEachByItself) {
    startUnit();
    fault("vendorNotListening");
    EXPECT_TRUE(vnktest::waitUntil([this] { return !Peer(address(), vnksim::kVendorPort).connected(); }));
    EXPECT_TRUE(Session(address()).mbOpen);
    fault("clear");
    fault("hislipNotListening");
    EXPECT_TRUE(vnktest::waitUntil([this] { return !Peer(address(), vnksim::kHislipPort).connected(); }));
    EXPECT_TRUE(vnktest::waitUntil([this] { return Peer(address(), vnksim::kVendorPort).connected(); }));
    mpUnit->stop();
    mcOptions.hislip = false;
    startUnit();
    EXPECT_FALSE(Peer(address(), vnksim::kHislipPort).connected());
    EXPECT_FALSE(Peer(address(), vnksim::kVendorPort).connected());
    EXPECT_TRUE(Client(address(), vnksim::kScpiPort).connected());
}

TEST_F(Hislip, aUnitDiesAndIsSilentOnAllRoadsAtOnce) {
    startUnit();
    auto pSession = std::make_unique<Session>(address());
    Client scpi(address(), vnksim::kScpiPort);
    fault("dieAfterExchanges,3");
    EXPECT_EQ(pSession->ask("*OPC?"), "1\n");
    EXPECT_EQ(scpi.ask("*OPC?").value_or(""), "1");
    EXPECT_EQ(pSession->ask("*OPC?"), "1\n");
    EXPECT_TRUE(pSession->mcSync.ends());
    EXPECT_TRUE(scpi.ends(30000));
    fault("clear");
    EXPECT_TRUE(vnktest::waitUntil([this] { return Peer(address(), vnksim::kHislipPort).connected(); }));
    Session again(address());
    fault("silent");
    again.write("*OPC?");
    fault("clear");
    EXPECT_EQ(again.mcSync.next().payload(), "1\n");
}

TEST_F(Hislip, tooManySessionsAreRefusedAndRoomComesBack) {
    startUnit();
    std::vector<std::unique_ptr<Session>> sessions;
    for (int i = 0; i < 16; ++i) {
        sessions.push_back(std::make_unique<Session>(address()));
        ASSERT_TRUE(sessions.back()->mbOpen);
    }
    Peer last(address(), vnksim::kHislipPort);
    last.send(kInitialize, 0, 0x01005858);
    const Wire answer = last.next();
    EXPECT_EQ(answer.type(), kFatal);
    EXPECT_EQ(answer.control(), 4u);
    sessions.clear();
    EXPECT_TRUE(vnktest::waitUntil([this] { return mpUnit->state().hislipSessions == 0; }));
    EXPECT_TRUE(Session(address()).mbOpen);
}

TEST_F(Hislip, garbageAndFloodsDoNotKeepOthersFromWorking) {
    startUnit();
    Session session(address());
    std::string garbage(300000, '\0');
    uint32_t state = 1;
    for (char& byte : garbage) {
        state = state * 1664525u + 1013904223u;
        byte = static_cast<char>(state >> 24);
    }
    for (const uint16_t port : {vnksim::kHislipPort, vnksim::kVendorPort}) {
        for (const char* head : {"", "H", "HS", "HS\x07", "HS\x80"}) {
            Peer peer(address(), port);
            peer.raw(head + garbage);
            EXPECT_TRUE(peer.ends()) << port << " " << head;
        }
    }
    // A program message that never ends, in pieces that each are small.
    for (int i = 0; i < 40; ++i) {
        session.mcSync.send(kData, 0, session.muId, std::string(60000, 'x'));
        session.muId += 2;
    }
    session.write("");
    EXPECT_EQ(session.ask("*OPC?"), "1\n");
    EXPECT_EQ(session.ask("SYST:ERR?").substr(0, 4), "-363");
}

TEST_F(Hislip, leavesNoThreadAndNoDescriptor) {
    // A sanitizer may start a thread of its own with the first.
    std::thread([] {}).join();
    const size_t descriptors = vnktest::openDescriptors(), threads = vnktest::idleThreads();
    for (const char* text : {"clear", "hislip,Reply,lateMs=3600000", "silent", "dieAfterExchanges,1"}) {
        startUnit();
        Session session(address());
        Peer data(address(), vnksim::kVendorPort), waiting(address(), vnksim::kVendorPort);
        data.send(kVendorRequest, 0, session.muNumber);
        data.next();
        fault(text);
        session.write(":TRACe:SPPacket 65504;:SENSE:DEC 4;:TRACe:STReam:STARt 1;*IDN?");
        mpUnit->stop();
        mpUnit.reset();
    }
    EXPECT_TRUE(vnktest::waitUntil([&] { return vnktest::liveThreads() == threads; }));
    EXPECT_EQ(vnktest::openDescriptors(), descriptors);
}

TEST(HislipFaults, areUnderstoodAsTextOrRefused) {
    vnksim::Faults faults;
    EXPECT_TRUE(faults.apply("HISLIP, initializeresponse, LATEMS=5, type=0x81, text=a b, Times=2"));
    const auto known = faults.snapshot().hislip;
    ASSERT_EQ(known.count("InitializeResponse"), 1u);
    EXPECT_EQ(known.at("InitializeResponse").lateMs, 5u);
    EXPECT_EQ(known.at("InitializeResponse").type, 0x81u);
    EXPECT_EQ(known.at("InitializeResponse").text, "a b");
    EXPECT_EQ(known.at("InitializeResponse").times, 2);
    for (const char* wrong :
         {"hislip", "hislip,Reply", "hislip,NoSuchMessage,missing", "hislip,Reply,late=5",
          "hislip,Reply,lateMs", "hislip,Reply,lateMs=-1", "hislip,Reply,lateMs=4294967296",
          "hislip,Reply,type=0x", "hislip,,missing", "hislip,Reply,missing=1", "hislip,Reply,prefix=H",
          "hislip,Reply,id=x"}) {
        EXPECT_FALSE(faults.apply(wrong)) << wrong;
    }
    EXPECT_EQ(faults.snapshot().hislip.size(), 1u);
}

std::string quoted(const std::string& text) {
    return "'" + text + "'";
}

/// What the client says about a unit; ends in its last line when all was well.
std::string verdictOfTheClient(const std::string& address) {
    const std::string command =
        quoted(VNK_PYTHON) + " " + quoted(VNK_HISLIP_CLIENT) + " " + quoted(address) + " 2>&1";
    FILE* const pipe = ::popen(command.c_str(), "r");
    std::string told;
    char bytes[4096];
    for (size_t count = 0; pipe && (count = std::fread(bytes, 1, sizeof bytes, pipe)) > 0;) {
        told.append(bytes, count);
    }
    return told + (pipe && ::pclose(pipe) == 0 ? "good" : "bad");
}

TEST_F(Hislip, aClientWrittenFromTheStandardFindsNothingAmiss) {
    if (std::string(VNK_PYTHON).empty()) {
        GTEST_SKIP() << "python3 is not installed";
    }
    // The first and the last: one of each family.
    for (const std::string& model : {vnksim::modelNames().front(), vnksim::modelNames().back()}) {
        mcOptions.model = model;
        startUnit();
        const std::string verdict = verdictOfTheClient(address());
        EXPECT_NE(verdict.find("all is as the standard has it\ngood"), std::string::npos) << model << verdict;
    }
    // It must be able to find fault.
    fault("hislip,Reply,id=2");
    EXPECT_EQ(verdictOfTheClient(address()).find("good"), std::string::npos);
}

}  // namespace
}  // namespace simtest
