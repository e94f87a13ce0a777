#include "links/socketfunctions.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/time.h>

#include <chrono>

#include "log.h"
#include "peer.h"

using testing::ElementsAre;
using testing::IsEmpty;
using utils::MemoryBlock;
using vnktest::LogLine;

namespace {

class Sockets : public testing::Test {
 protected:
    Sockets() {
        vnktest::startSocketLayer();
        vnktest::clearLog();
    }
    void connect(uint32_t uReceiveTimeoutMs = 0) {
        mcRecord = socketOpen(mcServer.address(), uReceiveTimeoutMs);
        ASSERT_TRUE(mcRecord.isValid());
        mcPeer = mcServer.accept();
        ASSERT_GE(mcPeer.get(), 0);
    }

    vnktest::TestServer mcServer;
    vnktest::TestSocket mcPeer;
    SocketRecord mcRecord;
};

double secondsOf(const std::function<void()>& work) {
    const auto cStart = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - cStart).count();
}

ReferencePtr<MemoryBlock> blockOf(const std::string& text) {
    return makeReference<MemoryBlock>(text);
}
ReferencePtr<MemoryBlock> roomOf(uint32_t uBytes) {
    return makeReference<MemoryBlock>(uBytes);
}

TEST_F(Sockets, AFreshRecordIsInvalidAndClear) {
    const SocketRecord cRecord;
    EXPECT_FALSE(cRecord.isValid());
    EXPECT_EQ(cRecord.muHandle, ~uint64_t{0});
    EXPECT_EQ(cRecord.muReceiveTimeoutMs, 0u);
    EXPECT_FALSE(cRecord.mbFailed.load());
    EXPECT_EQ(cRecord.miLastError.load(), 0);
    EXPECT_EQ(socketErrorText(cRecord), "");
}

TEST_F(Sockets, AnAddressWithoutAPortIsInvalidAndReportsNothing) {
    EXPECT_FALSE(socketOpen("127.0.0.1", 0).isValid());
    EXPECT_FALSE(socketOpen("127.0.0.1:", 0).isValid());
    EXPECT_FALSE(socketOpen("", 0).isValid());
    EXPECT_THAT(vnktest::takeLog(), IsEmpty());
}

TEST_F(Sockets, AnAddressThatDoesNotResolveIsReportedWhole) {
    EXPECT_FALSE(socketOpen("127.0.0.1:no-such-port", 0).isValid());
    // Hosts that do not resolve would be asked of the machine's name server: those are tested in a namespace.
    EXPECT_THAT(vnktest::takeLog(),
                ElementsAre(LogLine(-1001, "Cannot resolve address: 127.0.0.1:no-such-port")));
}

TEST_F(Sockets, NothingOpensBeforeTheSocketLayerHasBeenStarted) {
    _WinSockInitializer cInitializer;
    cInitializer.finalise();
    EXPECT_FALSE(_WinSockInitializer::isStarted());
    EXPECT_FALSE(socketOpen(mcServer.address(), 0).isValid());
    EXPECT_TRUE(cInitializer.initialise());
    EXPECT_TRUE(_WinSockInitializer::isStarted());
    EXPECT_THAT(vnktest::takeLog(), ElementsAre(LogLine(-1000, "Cannot open socket")));
}

TEST_F(Sockets, ARefusedConnectCostsTwoSecondsAndIsReported) {
    const std::string address = vnktest::refusingAddress();
    SocketRecord cRecord;
    const double fSeconds = secondsOf([&] { cRecord = socketOpen(address, 0); });
    EXPECT_FALSE(cRecord.isValid());
    EXPECT_GE(fSeconds, 2.0);
    EXPECT_LT(fSeconds, 4.0);
    EXPECT_THAT(vnktest::takeLog(), ElementsAre(LogLine(-1002, "Cannot connect to address: " + address)));
}

TEST_F(Sockets, AConnectIsQuickAndReportsNothing) {
    EXPECT_LT(secondsOf([&] { connect(); }), 1.5);
    EXPECT_THAT(vnktest::takeLog(), IsEmpty());
}

TEST_F(Sockets, TheReceiveTimeoutIsSetInTheSystemAndInTheRecord) {
    connect(1500);
    EXPECT_EQ(mcRecord.muReceiveTimeoutMs, 1500u);
    timeval cLimit{};
    socklen_t uSize = sizeof(cLimit);
    ASSERT_EQ(::getsockopt(static_cast<int>(mcRecord.muHandle), SOL_SOCKET, SO_RCVTIMEO, &cLimit, &uSize), 0);
    EXPECT_EQ(cLimit.tv_sec, 1);
    EXPECT_NEAR(static_cast<double>(cLimit.tv_usec), 500000.0, 10000.0);  // the system counts in ticks
}

TEST_F(Sockets, WithoutAReceiveTimeoutTheRecordHoldsZero) {
    connect();
    EXPECT_EQ(mcRecord.muReceiveTimeoutMs, 0u);
}

TEST_F(Sockets, ASendMovesTheReadPositionAndReturnsTheCount) {
    connect();
    const auto cBlock = blockOf("*IDN?\n");
    EXPECT_EQ(socketSend(mcRecord, cBlock), 6u);
    EXPECT_EQ(cBlock->getReadableDataLength(), 0u);
    EXPECT_EQ(mcPeer.receive(6), "*IDN?\n");
}

TEST_F(Sockets, OnlyUnreadBytesAreSent) {
    connect();
    const auto cBlock = blockOf("skip*CLS\n");
    cBlock->setReadPosition(4);
    EXPECT_EQ(socketSend(mcRecord, cBlock), 5u);
    EXPECT_EQ(mcPeer.receive(5), "*CLS\n");
}

TEST_F(Sockets, AFullyReadBlockIsExhaustedAndSendsNothing) {
    connect();
    const auto cBlock = blockOf("done");
    cBlock->setReadPosition(4);
    EXPECT_EQ(socketSend(mcRecord, cBlock), 0u);
    EXPECT_THAT(vnktest::takeLog(), ElementsAre(LogLine(-1006, "Send buffer is exhausted")));
    EXPECT_FALSE(mcRecord.mbFailed.load());
    EXPECT_EQ(socketSend(mcRecord, blockOf("x")), 1u);
    EXPECT_EQ(mcPeer.receive(1), "x");
}

TEST_F(Sockets, ASendWithoutSocketOrBlockIsInvalid) {
    SocketRecord cClosed;
    EXPECT_EQ(socketSend(cClosed, blockOf("x")), 0u);
    connect();
    EXPECT_EQ(socketSend(mcRecord, nullptr), 0u);
    EXPECT_THAT(vnktest::takeLog(),
                ElementsAre(LogLine(-1003, "Socket is invalid"), LogLine(-1003, "Socket is invalid")));
}

TEST_F(Sockets, AReceiveFillsTheFreeRoomOnly) {
    connect();
    mcPeer.send("abcdef");
    const auto cBlock = roomOf(4);
    EXPECT_EQ(socketReceive(mcRecord, 5000, cBlock), cBlock);
    EXPECT_EQ(cBlock->getText(), "abcd");
    const auto cRest = roomOf(4);
    EXPECT_EQ(socketReceive(mcRecord, 5000, cRest), cRest);
    EXPECT_EQ(cRest->getText(), "ef");
}

TEST_F(Sockets, AReceiveAppendsBehindWhatTheBlockHolds) {
    connect();
    mcPeer.send("ab");
    const auto cBlock = roomOf(16);
    ASSERT_TRUE(socketReceive(mcRecord, 5000, cBlock));
    mcPeer.send("cd");
    ASSERT_TRUE(socketReceive(mcRecord, 5000, cBlock));
    EXPECT_EQ(cBlock->getText(), "abcd");
}

TEST_F(Sockets, AReceiveTimeoutOfZeroLooksOnceAndReturnsAtOnce) {
    connect();
    EXPECT_LT(secondsOf([&] { EXPECT_FALSE(socketReceive(mcRecord, 0, roomOf(8))); }), 0.5);
    EXPECT_THAT(vnktest::takeLog(), IsEmpty());
    mcPeer.send("x");
    ASSERT_TRUE(vnktest::waitUntil([&] { return socketReceive(mcRecord, 0, roomOf(8)) != nullptr; }));
}

TEST_F(Sockets, AReceiveWaitsItsWholeTimeoutInSecondsAndMilliseconds) {
    connect();
    const double fSeconds = secondsOf([&] { EXPECT_FALSE(socketReceive(mcRecord, 1500, roomOf(8))); });
    EXPECT_GE(fSeconds, 1.5);
    EXPECT_LT(fSeconds, 3.0);
    EXPECT_FALSE(mcRecord.mbFailed.load());
}

TEST_F(Sockets, AReceiveOnAnInvalidRecordReportsNothing) {
    SocketRecord cClosed;
    EXPECT_FALSE(socketReceive(cClosed, 1000, roomOf(8)));
    EXPECT_THAT(vnktest::takeLog(), IsEmpty());
}

TEST_F(Sockets, AnOrderlyCloseGivesTheBlockWithNoNewBytes) {
    connect();
    mcPeer.close();
    const auto cBlock = roomOf(8);
    EXPECT_EQ(socketReceive(mcRecord, 5000, cBlock), cBlock);
    EXPECT_EQ(cBlock->getSize(), 0u);
    EXPECT_FALSE(mcRecord.mbFailed.load());
    EXPECT_EQ(socketErrorText(mcRecord), "");
}

TEST_F(Sockets, AResetMarksTheRecordFailed) {
    connect();
    const int iDescriptor = static_cast<int>(mcRecord.muHandle);
    mcPeer.reset();
    EXPECT_FALSE(socketReceive(mcRecord, 5000, roomOf(8)));
    EXPECT_TRUE(mcRecord.mbFailed.load());
    EXPECT_EQ(mcRecord.miLastError.load(), ECONNRESET);
    const std::string number = std::to_string(ECONNRESET);
    EXPECT_EQ(socketErrorText(mcRecord), "Socket failed with error code " + number);
    EXPECT_THAT(vnktest::takeLog(), ElementsAre(LogLine(-1008, "Socket FD:" + std::to_string(iDescriptor) +
                                                                   " - recv error " + number + " ")));
}

TEST_F(Sockets, TheFailedFlagIsNeverCleared) {
    connect();
    mcPeer.reset();
    EXPECT_FALSE(socketReceive(mcRecord, 5000, roomOf(8)));
    socketReceive(mcRecord, 0, roomOf(8));
    EXPECT_TRUE(mcRecord.mbFailed.load());
    const SocketRecord cCopy = mcRecord;
    EXPECT_TRUE(cCopy.mbFailed.load());
    EXPECT_EQ(cCopy.miLastError.load(), mcRecord.miLastError.load());
}

TEST_F(Sockets, ACloseMakesTheHandleInvalid) {
    connect();
    EXPECT_TRUE(socketClose(mcRecord));
    EXPECT_FALSE(mcRecord.isValid());
    EXPECT_EQ(mcPeer.receive(1), "");
    EXPECT_THAT(vnktest::takeLog(), IsEmpty());
}

TEST_F(Sockets, ACloseOfAClosedRecordIsInvalid) {
    connect();
    EXPECT_TRUE(socketClose(mcRecord));
    EXPECT_FALSE(socketClose(mcRecord));
    EXPECT_THAT(vnktest::takeLog(), ElementsAre(LogLine(-1003, "Socket is invalid")));
}

TEST_F(Sockets, TwoCopiesOfARecordCloseTheSocketOnce) {
    connect();
    SocketRecord cCopy = mcRecord;
    EXPECT_TRUE(socketClose(mcRecord));
    EXPECT_FALSE(socketClose(cCopy));
    EXPECT_THAT(vnktest::takeLog(), ElementsAre(LogLine(-1003, "Socket is invalid")));
}

TEST_F(Sockets, ADrainOfAQuietSocketIsFalseAfterTenMilliseconds) {
    connect();
    const double fSeconds = secondsOf([&] { EXPECT_FALSE(socketDrain(mcRecord)); });
    EXPECT_GE(fSeconds, 0.010);
    EXPECT_LT(fSeconds, 1.0);
}

TEST_F(Sockets, ADrainDiscardsWhatIsPending) {
    connect();
    mcPeer.send(std::string(200000, 'x'));
    EXPECT_TRUE(socketDrain(mcRecord));
    EXPECT_FALSE(socketReceive(mcRecord, 0, roomOf(8)));
}

TEST_F(Sockets, ADrainOfAClosedRecordOrPeerIsFalse) {
    SocketRecord cClosed;
    EXPECT_FALSE(socketDrain(cClosed));
    connect();
    mcPeer.close();
    EXPECT_LT(secondsOf([&] { EXPECT_FALSE(socketDrain(mcRecord)); }), 1.0);
}

}  // namespace
