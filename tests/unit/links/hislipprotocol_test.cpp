#include "links/hislipprotocol.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hislippeer.h"
#include "links/scpiprotocol.h"
#include "links/tcpiptransport.h"
#include "log.h"
#include "support/resources.h"

using vnktest::HiSlipPeer;
using vnktest::LogLine;
using vnktest::peerBytes;
using vnktest::PeerMessage;
using vnktest::TestSocket;
using vnktest::waitUntil;

namespace {

class HiSlipProtocols : public testing::Test {
 protected:
    HiSlipProtocols() {
        vnktest::startSocketLayer();
        vnktest::clearLog();
    }

    TCPIPTransportType mcType;
    HiSlipPeer mcPeer;
    ReferencePtr<HiSlipProtocol> mcProtocol = makeReference<HiSlipProtocol>();
};

TEST_F(HiSlipProtocols, ASessionOpensWithTwoConnections) {
    EXPECT_EQ(mcProtocol->getName(), "HiSlip2.0");
    EXPECT_FALSE(mcProtocol->isOpen());
    EXPECT_FALSE(mcProtocol->getDataTransport());
    ASSERT_TRUE(mcProtocol->open(mcPeer.host()));
    EXPECT_TRUE(mcProtocol->isOpen());
    EXPECT_EQ(mcProtocol->protocolVersion(), 0x1000);
    EXPECT_EQ(mcProtocol->sessionID(), 0x1234);
    EXPECT_EQ(mcProtocol->serverVendorID(), 0x5659u);
    const auto cTransport = mcProtocol->getDataTransport();
    ASSERT_TRUE(cTransport);
    EXPECT_EQ(cTransport->getTypeName(), "HiSlip");
    EXPECT_EQ(cTransport->getDescription(), "HiSlip:HSControl:TCP/IP:" + mcPeer.host() + ":4880");
    const auto lInitialize = mcPeer.received(0);
    ASSERT_EQ(lInitialize.size(), 1u);
    EXPECT_EQ(lInitialize[0].miControl, 0);
    EXPECT_EQ(lInitialize[0].muParameter >> 16, 0x1000u);
    EXPECT_EQ(lInitialize[0].mPayload, "");
    const auto lAsync = mcPeer.received(17);
    ASSERT_EQ(lAsync.size(), 1u);
    EXPECT_EQ(lAsync[0].muParameter, 0x1234u);
    EXPECT_THAT(vnktest::takeLog(), testing::IsEmpty());
}

TEST_F(HiSlipProtocols, ScpiRunsOverItAndGoesOnAfterAReopen) {
    ASSERT_TRUE(mcProtocol->open(mcPeer.host() + ":37001"));
    const auto cSCPI = makeReference<SCPIProtocol>(mcProtocol->getDataTransport());
    EXPECT_EQ(cSCPI->call("*IDN?", 20000), "reply to *IDN?\n");
    EXPECT_TRUE(mcProtocol->lock());
    EXPECT_TRUE(mcProtocol->close());
    EXPECT_FALSE(mcProtocol->isOpen());
    EXPECT_FALSE(mcProtocol->getDataTransport());
    ASSERT_TRUE(mcProtocol->reopen());
    EXPECT_EQ(cSCPI->call("*IDN?", 20000), "reply to *IDN?\n");
    EXPECT_TRUE(mcProtocol->lock());
}

TEST_F(HiSlipProtocols, TheControlCodeOfTheResponseSetsTheFlags) {
    for (int iCode = 0; iCode < 8; ++iCode) {
        mcPeer.on(0, [=](TestSocket& cSocket, const PeerMessage&) {
            cSocket.send(peerBytes(1, iCode, 0x20000007u));
        });
        ASSERT_TRUE(mcProtocol->open(mcPeer.host()));
        EXPECT_EQ(mcProtocol->isOverlapMode(), (iCode & 1) != 0);
        EXPECT_EQ(mcProtocol->isEncryptionMandatory(), (iCode & 2) != 0);
        EXPECT_EQ(mcProtocol->isInitialEncryption(), (iCode & 4) != 0);
        EXPECT_EQ(mcProtocol->protocolVersion(), 0x2000);
        EXPECT_EQ(mcProtocol->sessionID(), 7);
    }
}

TEST_F(HiSlipProtocols, AnUnitThatCountsItsRepliesByItselfIsUnderstood) {
    mcPeer.on(0, [](TestSocket& cSocket, const PeerMessage&) { cSocket.send(peerBytes(1, 1, 0x10000001u)); });
    mcPeer.on(7, [](TestSocket& cSocket, const PeerMessage&) { cSocket.send(peerBytes(7, 0, 4242, "yes")); });
    ASSERT_TRUE(mcProtocol->open(mcPeer.host()));
    const auto cSCPI = makeReference<SCPIProtocol>(mcProtocol->getDataTransport());
    EXPECT_EQ(cSCPI->call("A?", 20000), "yes");
}

TEST_F(HiSlipProtocols, AHandshakeMayComeByteByByte) {
    const auto inPieces = [](const std::string& bytes) {
        return [bytes](TestSocket& cSocket, const PeerMessage&) {
            for (char c : bytes)
                cSocket.send(std::string(1, c));
        };
    };
    mcPeer.on(0, inPieces(peerBytes(1, 0, 0x10000009, "payload")));
    mcPeer.on(17, inPieces(peerBytes(18, 0, 0x4142)));
    mcPeer.on(4, inPieces(peerBytes(5, 1, 0)));
    ASSERT_TRUE(mcProtocol->open(mcPeer.host()));
    EXPECT_EQ(mcProtocol->sessionID(), 9);
    EXPECT_TRUE(mcProtocol->lock());
}

/// What a unit does wrong at one message of the handshake, and what is told of it.
struct HandshakeFault {
    const char* mpName;
    int miMessage;  // at which it happens
    HiSlipPeer::Handler mcFault;
    std::vector<std::string> mlTexts;
};

HiSlipPeer::Handler sends(const std::string& bytes) {
    return [bytes](TestSocket& cSocket, const PeerMessage&) { cSocket.send(bytes); };
}

HiSlipPeer::Handler sendsAndEnds(const std::string& bytes) {
    return [bytes](TestSocket& cSocket, const PeerMessage&) {
        cSocket.send(bytes);
        ::shutdown(cSocket.get(), SHUT_RDWR);
    };
}

/// Until the other side has given up.
void sendForEver(const TestSocket& cSocket, const std::string& bytes) {
    while (cSocket.send(bytes))
        continue;
}

const char* const kNoInit = "No response to initialization within timeout";
const char* const kNoAsync = "No response to async initialization within timeout";

std::vector<HandshakeFault> handshakeFaults() {
    const auto silent = [](TestSocket&, const PeerMessage&) {};
    // The answer comes when the other side has given up, to a link that is no more.
    const auto late = [](const std::string& bytes) {
        return [bytes](TestSocket& cSocket, const PeerMessage&) {
            char cByte;
            ::recv(cSocket.get(), &cByte, 1, 0);
            cSocket.send(bytes);
        };
    };
    const std::string init = peerBytes(1, 0, 0x10001234);
    const std::string async = peerBytes(18, 0, 0x4142);
    const auto wrong = [](std::string bytes) { return bytes.replace(0, 2, "SH"); };
    const auto noise = [](TestSocket& cSocket, const PeerMessage&) {
        sendForEver(cSocket, std::string(5000, 'x'));
    };
    const auto slow = [](TestSocket& cSocket, const PeerMessage&) {
        sendForEver(cSocket, peerBytes(1, 0, 0, "", 200u << 20));
    };
    const auto reset = [](TestSocket& cSocket, const PeerMessage&) { cSocket.reset(); };
    const std::string refused = "Initialization response is ";
    const std::string asyncRefused = "Async initialization response is ";
    return {
        {"InitSilent", 0, silent, {kNoInit}},
        {"InitLate", 0, late(init), {kNoInit}},
        {"InitEnds", 0, sendsAndEnds(""), {kNoInit}},
        {"InitCut", 0, sendsAndEnds(init.substr(0, 15)), {kNoInit}},
        {"InitCutPayload", 0, sends(peerBytes(1, 0, 1, "abc", 4)), {kNoInit}},
        {"InitReset", 0, reset, {kNoInit}},
        {"InitWrongPrefix", 0, sendsAndEnds(wrong(init)), {"Trapped bad state", kNoInit}},
        {"InitTooLong",
         0,
         sendsAndEnds(peerBytes(1, 0, 1, "", ~uint64_t{0})),
         {"Trapped bad state", kNoInit}},
        {"InitNoise", 0, noise, {"Trapped bad state", kNoInit}},
        {"InitEndlessPayload", 0, slow, {kNoInit}},
        {"InitWrongType", 0, sends(async), {"Bad initialize response - received unexpected message 18"}},
        {"InitEchoed",
         0,
         sends(peerBytes(0, 0, 0)),
         {"Bad initialize response - received unexpected message 0"}},
        {"InitFatal", 0, sends(peerBytes(2, 3, 0)), {refused + "fatal error code 3"}},
        {"InitFatalText", 0, sends(peerBytes(2, 4, 0, "full")), {refused + "fatal error code 4", "full"}},
        {"InitError", 0, sends(peerBytes(3, 1, 0, "bad")), {refused + " error code 1", "bad"}},
        {"AsyncSilent", 17, silent, {kNoAsync}},
        {"AsyncLate", 17, late(async), {kNoAsync}},
        {"AsyncEnds", 17, sendsAndEnds(""), {kNoAsync}},
        {"AsyncCut", 17, sendsAndEnds(async.substr(0, 3)), {kNoAsync}},
        {"AsyncReset", 17, reset, {kNoAsync}},
        {"AsyncWrongPrefix", 17, sendsAndEnds(wrong(async)), {"Trapped bad state", kNoAsync}},
        {"AsyncNoise", 17, noise, {"Trapped bad state", kNoAsync}},
        {"AsyncWrongType",
         17,
         sends(init),
         {"Bad async initialize response - received unexpected message 1"}},
        {"AsyncWrongSession",
         17,
         sends(peerBytes(2, 2, 0, "no such session")),
         {asyncRefused + "fatal error code 2", "no such session"}},
        {"AsyncError", 17, sends(peerBytes(3, 255, 0)), {asyncRefused + " error code 255"}},
    };
}

class HiSlipHandshakes : public HiSlipProtocols, public testing::WithParamInterface<HandshakeFault> {};

TEST_P(HiSlipHandshakes, AFaultIsToldAndLeavesNothingOpen) {
    const HandshakeFault& cFault = GetParam();
    mcPeer.on(cFault.miMessage, cFault.mcFault);
    EXPECT_FALSE(mcProtocol->open(mcPeer.host()));
    EXPECT_FALSE(mcProtocol->isOpen());
    EXPECT_FALSE(mcProtocol->getDataTransport());
    EXPECT_FALSE(mcProtocol->lock());
    auto lLog = vnktest::takeLog();
    // The sockets have their own lines, and noise is reported as often as it comes.
    std::erase_if(lLog, [](const LogLine& cLine) { return cLine.first <= -1000 && cLine.first > -2000; });
    lLog.erase(std::unique(lLog.begin(), lLog.end()), lLog.end());
    std::vector<LogLine> lExpected;
    for (const std::string& text : cFault.mlTexts)
        lExpected.emplace_back(-4000, text);
    EXPECT_EQ(lLog, lExpected);
    EXPECT_EQ(mcProtocol->getLastError(), cFault.mlTexts.back());
    EXPECT_TRUE(waitUntil([&] { return mcPeer.connections() == 0; }));
    // A unit that has come to its senses is opened all the same.
    mcPeer.on(0, sends(peerBytes(1, 0, 0x10001234)));
    mcPeer.on(17, sends(peerBytes(18, 0, 0x4142)));
    EXPECT_TRUE(mcProtocol->reopen());
    EXPECT_TRUE(mcProtocol->lock());
}

INSTANTIATE_TEST_SUITE_P(Faults, HiSlipHandshakes, testing::ValuesIn(handshakeFaults()),
                         [](const auto& cInfo) { return std::string(cInfo.param.mpName); });

TEST_F(HiSlipProtocols, AUnitThatIsNotThereIsReported) {
    EXPECT_FALSE(mcProtocol->open(vnktest::uniqueLoopback()));
    const auto lLog = vnktest::takeLog();
    ASSERT_FALSE(lLog.empty());
    EXPECT_EQ(lLog.back(), LogLine(-4000, "Failed to open control connection at :4880"));
    EXPECT_FALSE(mcProtocol->close());
}

TEST_F(HiSlipProtocols, AUnitThatTakesOneConnectionOnlyIsReported) {
    mcPeer.on(0, [&](TestSocket& cSocket, const PeerMessage&) {
        mcPeer.refuse();
        cSocket.send(peerBytes(1, 0, 0x10001234));
    });
    EXPECT_FALSE(mcProtocol->open(mcPeer.host()));
    const auto lLog = vnktest::takeLog();
    ASSERT_FALSE(lLog.empty());
    EXPECT_EQ(lLog.back(), LogLine(-4000, "Failed to open async connection at :4880"));
    EXPECT_TRUE(waitUntil([&] { return mcPeer.connections() == 0; }));
}

TEST_F(HiSlipProtocols, TheLockIsAskedForOnTheAsynchronousConnection) {
    ASSERT_TRUE(mcProtocol->open(mcPeer.host()));
    EXPECT_TRUE(mcProtocol->lock());
    const auto lAsked = mcPeer.received(4);
    ASSERT_EQ(lAsked.size(), 1u);
    EXPECT_EQ(lAsked[0].miControl, 1);
    EXPECT_EQ(lAsked[0].mPayload, "");
    EXPECT_THAT(vnktest::takeLog(), testing::IsEmpty());
}

TEST_F(HiSlipProtocols, ARefusedLockIsNoError) {
    mcPeer.on(4, sends(peerBytes(5, 0, 0)));
    ASSERT_TRUE(mcProtocol->open(mcPeer.host()));
    EXPECT_FALSE(mcProtocol->lock());
    EXPECT_THAT(vnktest::takeLog(), testing::IsEmpty());
}

TEST_F(HiSlipProtocols, AnyOtherAnswerToTheLockIsReported) {
    ASSERT_TRUE(mcProtocol->open(mcPeer.host()));
    for (int iCode : {2, 3, 255}) {
        mcPeer.on(4, sends(peerBytes(5, iCode, 0)));
        EXPECT_FALSE(mcProtocol->lock());
        EXPECT_THAT(vnktest::takeLog(),
                    testing::ElementsAre(LogLine(
                        -4002, "AsyncLockResponse indicates error -  code " + std::to_string(iCode))));
    }
}

TEST_F(HiSlipProtocols, ToAskForTheLockThatOneHasIsGrantedWhateverTheUnitCallsIt) {
    ASSERT_TRUE(mcProtocol->open(mcPeer.host()));
    EXPECT_TRUE(mcProtocol->lock());
    mcPeer.on(4, sends(peerBytes(5, 3, 0)));
    EXPECT_TRUE(mcProtocol->lock());
    EXPECT_TRUE(vnktest::logHolds(-4002));
    mcPeer.on(4, sends(peerBytes(5, 2, 0)));
    EXPECT_FALSE(mcProtocol->lock());
    // Of an earlier session it says nothing.
    mcPeer.on(4, sends(peerBytes(5, 3, 0)));
    ASSERT_TRUE(mcProtocol->reopen());
    EXPECT_FALSE(mcProtocol->lock());
}

TEST_F(HiSlipProtocols, WhatElseComesBeforeTheLockIsPassedOver) {
    mcPeer.on(4, sends("garbage"));
    ASSERT_TRUE(mcProtocol->open(mcPeer.host()));
    EXPECT_FALSE(mcProtocol->lock());
    EXPECT_TRUE(vnktest::logHolds(-4000));
    mcPeer.on(4, sends(peerBytes(20, 1, 0) + peerBytes(3, 1, 0, "text") + peerBytes(5, 1, 0)));
    EXPECT_TRUE(mcProtocol->lock());
}

TEST_F(HiSlipProtocols, ASilentOrEndedUnitGrantsNoLock) {
    mcPeer.ignore(4);
    EXPECT_FALSE(mcProtocol->lock());
    ASSERT_TRUE(mcProtocol->open(mcPeer.host()));
    EXPECT_FALSE(mcProtocol->lock());
    mcPeer.endConnections();
    EXPECT_FALSE(mcProtocol->lock());
}

TEST_F(HiSlipProtocols, OnlyTheHostPartOfTheTextCounts) {
    ASSERT_TRUE(mcProtocol->open(mcPeer.host() + ":37001/100:7"));
    EXPECT_EQ(mcProtocol->getDataTransport()->getAddress(), "HSControl:TCP/IP:" + mcPeer.host() + ":4880");
}

TEST_F(HiSlipProtocols, AReopenKeepsTheDataTransportAndBeginsANewSession) {
    ASSERT_TRUE(mcProtocol->open(mcPeer.host()));
    const auto cTransport = mcProtocol->getDataTransport();
    const auto cSCPI = makeReference<SCPIProtocol>(cTransport);
    EXPECT_EQ(cSCPI->call("A?", 20000), "reply to A?\n");
    EXPECT_TRUE(cSCPI->sendCommand("B"));
    EXPECT_EQ(cTransport->lastMessageID(), 0xFFFFFF02u);
    mcPeer.on(0, sends(peerBytes(1, 0, 0x10005678)));
    ASSERT_TRUE(mcProtocol->close());
    EXPECT_FALSE(cTransport->isOpen());
    EXPECT_FALSE(cSCPI->sendCommand("C"));
    EXPECT_FALSE(mcProtocol->lock());
    EXPECT_FALSE(mcProtocol->close());
    EXPECT_TRUE(waitUntil([&] { return mcPeer.connections() == 0; }));
    ASSERT_TRUE(mcProtocol->reopen());
    EXPECT_EQ(mcProtocol->getDataTransport(), cTransport);
    EXPECT_EQ(mcProtocol->sessionID(), 0x5678);
    EXPECT_EQ(mcPeer.received(17).back().muParameter, 0x5678u);
    EXPECT_EQ(cSCPI->call("D?", 20000), "reply to D?\n");
    EXPECT_EQ(cTransport->lastMessageID(), 0xFFFFFF00u);
    EXPECT_TRUE(mcProtocol->lock());
    // A reopen without a close ends the old session first; an open makes another transport.
    ASSERT_TRUE(mcProtocol->reopen());
    EXPECT_EQ(cSCPI->call("E?", 20000), "reply to E?\n");
    ASSERT_TRUE(mcProtocol->open(mcPeer.host()));
    EXPECT_NE(mcProtocol->getDataTransport(), cTransport);
    EXPECT_FALSE(cTransport->isOpen());
    EXPECT_TRUE(waitUntil([&] { return mcPeer.connections() == 2; }));
}

TEST_F(HiSlipProtocols, AReopenAfterTheUnitHasEndedOrResetTheSession) {
    ASSERT_TRUE(mcProtocol->open(mcPeer.host()));
    const auto cSCPI = makeReference<SCPIProtocol>(mcProtocol->getDataTransport());
    mcPeer.endConnections();
    EXPECT_TRUE(waitUntil([&] { return mcPeer.connections() == 0; }));
    EXPECT_EQ(cSCPI->call("A?", 1), "");
    mcProtocol->close();
    ASSERT_TRUE(mcProtocol->reopen());
    EXPECT_EQ(cSCPI->call("B?", 20000), "reply to B?\n");
    mcPeer.on(7, [](TestSocket& cSocket, const PeerMessage&) { cSocket.reset(); });
    EXPECT_EQ(cSCPI->call("C?", 20000), "");
    mcProtocol->close();
    mcPeer.on(7, [](TestSocket& cSocket, const PeerMessage& cMessage) {
        cSocket.send(peerBytes(7, 0, cMessage.muParameter, "back"));
    });
    ASSERT_TRUE(mcProtocol->reopen());
    EXPECT_EQ(cSCPI->call("D?", 20000), "back");
}

TEST_F(HiSlipProtocols, AFailedReopenLeavesItClosedUntilOneSucceeds) {
    EXPECT_FALSE(mcProtocol->reopen());
    ASSERT_TRUE(mcProtocol->open(mcPeer.host()));
    const auto cSCPI = makeReference<SCPIProtocol>(mcProtocol->getDataTransport());
    mcPeer.on(17, sends(peerBytes(3, 1, 0)));
    EXPECT_TRUE(mcProtocol->close());
    EXPECT_FALSE(mcProtocol->reopen());
    EXPECT_FALSE(mcProtocol->isOpen());
    EXPECT_EQ(cSCPI->call("A?", 20000), "");
    mcPeer.on(17, sends(peerBytes(18, 0, 0)));
    ASSERT_TRUE(mcProtocol->reopen());
    EXPECT_EQ(cSCPI->call("A?", 20000), "reply to A?\n");
}

TEST_F(HiSlipProtocols, AReopenEndsAQueryThatIsUnderWay) {
    mcPeer.ignore(7);
    ASSERT_TRUE(mcProtocol->open(mcPeer.host()));
    const auto cTransport = mcProtocol->getDataTransport();
    std::string reply = "none yet";
    std::thread cAsker([&] { reply = makeReference<SCPIProtocol>(cTransport)->call("SLOW?", 600000); });
    EXPECT_TRUE(waitUntil([&] { return mcPeer.received(7).size() == 1; }));
    std::string errorText = "none yet";
    std::thread cReceiver([&] {
        errorText.clear();
        cTransport->receive(600000, errorText);
    });
    std::thread cLocker([&] { mcProtocol->lock(); });
    ASSERT_TRUE(mcProtocol->reopen());
    cAsker.join();
    cReceiver.join();
    cLocker.join();
    EXPECT_EQ(reply, "");
    EXPECT_EQ(errorText, "");
    mcPeer.on(7, [](TestSocket& cSocket, const PeerMessage& cMessage) {
        cSocket.send(peerBytes(7, 0, cMessage.muParameter, "quick"));
    });
    EXPECT_EQ(makeReference<SCPIProtocol>(cTransport)->call("QUICK?", 20000), "quick");
}

TEST_F(HiSlipProtocols, AReplyThatNobodyWaitsForIsKeptForTheNextReceive) {
    ASSERT_TRUE(mcProtocol->open(mcPeer.host()));
    const auto cTransport = mcProtocol->getDataTransport();
    std::string errorText;
    ASSERT_TRUE(cTransport->send(makeReference<utils::MemoryBlock>("A?"), errorText));
    std::vector<LogLine> lLog;
    EXPECT_TRUE(waitUntil([&] { return !(lLog = vnktest::takeLog()).empty(); }));
    EXPECT_THAT(lLog,
                testing::ElementsAre(LogLine(-4000, "Recieved DataEnd - does not match a transaction")));
    const auto cReply = cTransport->receive(0, errorText);
    ASSERT_TRUE(cReply);
    EXPECT_EQ(cReply->getText(), "reply to A?");
}

TEST_F(HiSlipProtocols, TheLastOwnerEndsTheSessionWhoeverItIs) {
    const size_t uThreads = vnktest::idleThreads();
    const size_t uDescriptors = vnktest::openDescriptors();
    for (int i = 0; i < 10; ++i) {
        ASSERT_TRUE(mcProtocol->open(mcPeer.host()));
        auto cTransport = mcProtocol->getDataTransport();
        mcProtocol = nullptr;
        // The synchronous channel lives on with those who hold it.
        EXPECT_TRUE(waitUntil([&] { return mcPeer.connections() == 1; }));
        EXPECT_EQ(makeReference<SCPIProtocol>(cTransport)->call("A?", 20000), "reply to A?\n");
        std::thread([cLast = std::exchange(cTransport, nullptr)]() mutable { cLast = nullptr; }).join();
        EXPECT_TRUE(waitUntil([&] { return mcPeer.connections() == 0; }));
        mcProtocol = makeReference<HiSlipProtocol>();
    }
    EXPECT_TRUE(waitUntil([&] { return vnktest::liveThreads() <= uThreads; }));
    EXPECT_TRUE(waitUntil([&] { return vnktest::openDescriptors() <= uDescriptors; }));
}

TEST_F(HiSlipProtocols, FailedOpensGiveEverythingBack) {
    mcPeer.on(17, sends(peerBytes(2, 1, 0)));
    const size_t uThreads = vnktest::idleThreads();
    const size_t uDescriptors = vnktest::openDescriptors();
    for (int i = 0; i < 20; ++i)
        EXPECT_FALSE(mcProtocol->open(mcPeer.host()));
    EXPECT_TRUE(waitUntil([&] { return vnktest::liveThreads() <= uThreads; }));
    EXPECT_TRUE(waitUntil([&] { return vnktest::openDescriptors() <= uDescriptors; }));
}

TEST_F(HiSlipProtocols, FloodsOnBothConnectionsTakeNoMemoryAndAreLeftAtAnyTime) {
    const std::string noise = peerBytes(6, 0, 77, std::string(200, 'x')) + peerBytes(3, 1, 0, "error");
    const auto flood = [=](TestSocket& cSocket, const PeerMessage&) { sendForEver(cSocket, noise); };
    mcPeer.on(7, flood);
    mcPeer.on(4, flood);
    ASSERT_TRUE(mcProtocol->open(mcPeer.host()));
    const auto cSCPI = makeReference<SCPIProtocol>(mcProtocol->getDataTransport());
    const uint64_t uBefore = vnktest::residentBytes();
    EXPECT_FALSE(mcProtocol->lock());
    EXPECT_EQ(cSCPI->call("A?", 500), "");
#ifndef VNK_SANITIZED
    EXPECT_LE(vnktest::residentBytes(), uBefore + (64u << 20));
#else
    (void)uBefore;
#endif
    EXPECT_TRUE(vnktest::logHolds(-4000));
    mcProtocol = nullptr;
}

TEST_F(HiSlipProtocols, TwoThreadsAskWhileAThirdReopens) {
    ASSERT_TRUE(mcProtocol->open(mcPeer.host()));
    const auto cTransport = mcProtocol->getDataTransport();
    std::atomic<bool> bStop{false};
    std::atomic<unsigned> uReplies{0};
    std::vector<std::thread> lAskers;
    for (int iThread = 0; iThread < 2; ++iThread)
        lAskers.emplace_back([&, iThread] {
            const auto cSCPI = makeReference<SCPIProtocol>(cTransport);
            for (int i = 0; !bStop.load(); ++i) {
                const std::string query = std::to_string(iThread) + ":" + std::to_string(i) + "?";
                const std::string reply = cSCPI->call(query, 20000);
                EXPECT_TRUE(reply.empty() || reply == "reply to " + query + "\n") << reply;
                uReplies += !reply.empty();
                if (i % 4 == 0)
                    mcProtocol->lock();
                mcProtocol->isOpen();
            }
        });
    for (int i = 0; i < 10; ++i) {
        const unsigned uBefore = uReplies.load();
        EXPECT_TRUE(waitUntil([&] { return uReplies.load() >= uBefore + 4; }));
        EXPECT_TRUE(mcProtocol->reopen());
    }
    bStop = true;
    for (auto& cThread : lAskers)
        cThread.join();
}

TEST_F(HiSlipProtocols, ItMayEndAtAnyMomentUnderTheHandsOfItsUsers) {
    for (int i = 0; i < 10; ++i) {
        ASSERT_TRUE(mcProtocol->open(mcPeer.host()));
        std::thread cAsker([cTransport = mcProtocol->getDataTransport()] {
            makeReference<SCPIProtocol>(cTransport)->call("A?", 20000);
        });
        std::thread cLocker([cProtocol = mcProtocol] { cProtocol->lock(); });
        mcPeer.push(peerBytes(7, 0, 1, "unasked"));
        mcProtocol = makeReference<HiSlipProtocol>();
        cAsker.join();
        cLocker.join();
    }
    EXPECT_TRUE(waitUntil([&] { return mcPeer.connections() == 0; }));
}

}  // namespace
