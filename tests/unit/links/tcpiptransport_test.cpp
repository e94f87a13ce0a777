#include "links/tcpiptransport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <stdexcept>
#include <thread>

#include "foundations/clock.h"
#include "log.h"
#include "peer.h"
#include "support/resources.h"

using utils::MemoryBlock;
using vnktest::waitUntil;

namespace {

class Collector : public Transport::Callback {
 public:
    bool onData(ReferencePtr<MemoryBlock> cBlock) override {
        muCalls.fetch_add(1);
        if (cBlock) {
            std::lock_guard<std::mutex> cGuard(mcMutex);
            mText += cBlock->getText();
            cBlock->setReadPosition(cBlock->getSize());
        }
        return true;
    }
    void onError(const std::string& text) override {
        std::lock_guard<std::mutex> cGuard(mcMutex);
        mError = text;
    }
    std::string text() {
        std::lock_guard<std::mutex> cGuard(mcMutex);
        return mText;
    }
    std::string error() {
        std::lock_guard<std::mutex> cGuard(mcMutex);
        return mError;
    }
    std::atomic<unsigned> muCalls{0};

 private:
    std::mutex mcMutex;
    std::string mText;
    std::string mError;
};

class TCPIPTransports : public testing::Test {
 protected:
    TCPIPTransports() {
        vnktest::startSocketLayer();
        vnktest::clearLog();
    }
    void open(const std::string& tail = "") {
        mcTransport = makeReference<TCPIPTransport>(mcServer.address() + tail);
        ASSERT_TRUE(mcTransport->open());
        mcPeer = mcServer.accept();
    }

    vnktest::TestServer mcServer;
    vnktest::TestSocket mcPeer;
    ReferencePtr<TCPIPTransport> mcTransport;
    Collector mcCollector;
};

double processorSeconds() {
    rusage cUsage{};
    ::getrusage(RUSAGE_SELF, &cUsage);
    const auto seconds = [](const timeval& cTime) {
        return static_cast<double>(cTime.tv_sec) + static_cast<double>(cTime.tv_usec) * 1e-6;
    };
    return seconds(cUsage.ru_utime) + seconds(cUsage.ru_stime);
}

TEST_F(TCPIPTransports, ANewTransportIsClosedAndNamed) {
    const auto cTransport = makeReference<TCPIPTransport>("10.0.0.1:37000");
    EXPECT_FALSE(cTransport->isOpen());
    EXPECT_EQ(cTransport->getDescription(), "TCP/IP:10.0.0.1:37000");
}

TEST_F(TCPIPTransports, TheTailOfTheAddressIsTheReceiveTimeout) {
    open("/5000");
    EXPECT_EQ(mcTransport->receiveTimeoutMs(), 5000u);
    open("/ 70ms");
    EXPECT_EQ(mcTransport->receiveTimeoutMs(), 70u);
    open("/");
    EXPECT_EQ(mcTransport->receiveTimeoutMs(), 0u);
    open();
    EXPECT_EQ(mcTransport->receiveTimeoutMs(), 0u);
}

TEST_F(TCPIPTransports, ATailThatIsNoIntegerThrowsToTheCaller) {
    const auto messageOf = [&](const std::string& tail) -> std::string {
        try {
            makeReference<TCPIPTransport>(mcServer.address() + tail)->open();
        } catch (const std::invalid_argument& cError) {
            return cError.what();
        } catch (const std::out_of_range& cError) {
            return cError.what();
        }
        return "nothing thrown";
    };
    EXPECT_EQ(messageOf("/fast"), "invalid stoi argument");
    EXPECT_EQ(messageOf("/-"), "invalid stoi argument");
    EXPECT_EQ(messageOf("/+-5"), "invalid stoi argument");
    EXPECT_EQ(messageOf("/99999999999"), "stoi argument out of range");
}

TEST_F(TCPIPTransports, TheTypeOpensByNameAndGivesNothingWhenItCannot) {
    TCPIPTransportType cType;
    const auto cTransport = TransportType::openByName("TCP/IP", mcServer.address());
    ASSERT_TRUE(cTransport);
    EXPECT_TRUE(cTransport->isOpen());
    EXPECT_EQ(cTransport->getTypeName(), "TCP/IP");
    EXPECT_FALSE(TransportType::openByName("TCP/IP", "127.0.0.1"));
    EXPECT_FALSE(TransportType::openByName("TCP/IP", "127.0.0.1:no-such-port"));
}

TEST_F(TCPIPTransports, SendsGoOutWholeAndDataReachTheCallback) {
    open();
    std::string errorText;
    EXPECT_TRUE(mcTransport->send(makeReference<MemoryBlock>("hello"), errorText));
    EXPECT_EQ(mcPeer.receive(5), "hello");
    EXPECT_FALSE(mcTransport->send(nullptr, errorText));
    EXPECT_EQ(errorText, "");
    mcTransport->setCallback(&mcCollector, 10, 64);
    mcPeer.send(std::string(5000, 'd'));
    EXPECT_TRUE(waitUntil([&] { return mcCollector.text() == std::string(5000, 'd'); }));
    mcTransport->clearCallback(&mcCollector);
}

TEST_F(TCPIPTransports, ABlockThatWasReadInPartCountsAsAShortSend) {
    open();
    const auto cBlock = makeReference<MemoryBlock>("xxhello");
    cBlock->setReadPosition(2);
    std::string errorText;
    EXPECT_FALSE(mcTransport->send(cBlock, errorText));
    EXPECT_EQ(errorText, "");
    EXPECT_EQ(mcPeer.receive(5), "hello");
}

TEST_F(TCPIPTransports, AReceiveUsesOneBlockUntilItsFreeRoomIsBelowTheChunkSize) {
    open();
    std::string errorText;
    EXPECT_FALSE(mcTransport->receive(0, errorText));
    mcPeer.send("ab");
    const auto cFirst = mcTransport->receive(5000, errorText);
    ASSERT_TRUE(cFirst);
    EXPECT_EQ(cFirst->getAllocated(), 1024u);
    mcPeer.send("cd");
    const auto cSecond = mcTransport->receive(5000, errorText);
    ASSERT_TRUE(cSecond);
    EXPECT_NE(cSecond, cFirst);  // two bytes of the first are taken
    EXPECT_EQ(cFirst->getText(), "ab");
    EXPECT_EQ(cSecond->getText(), "cd");
}

TEST_F(TCPIPTransports, AfterAFailureEveryTimeoutIsAnErrorAgain) {
    open();
    mcTransport->setCallback(&mcCollector, 5, 1024);
    mcPeer.reset();
    ASSERT_TRUE(waitUntil([&] { return mcCollector.error() != "" && !mcTransport->isPolling(); }));
    EXPECT_EQ(mcCollector.error(), "Socket failed with error code " + std::to_string(ECONNRESET));
    EXPECT_EQ(mcTransport->getLastError(), mcCollector.error());
    Collector cNext;
    mcTransport->clearCallback(&mcCollector);
    mcTransport->setCallback(&cNext, 5, 1024);
    EXPECT_TRUE(waitUntil([&] { return !cNext.error().empty() && !mcTransport->isPolling(); }));
    EXPECT_EQ(cNext.error(), mcCollector.error());
    EXPECT_EQ(mcTransport->getLastError(), mcCollector.error() + ", " + mcCollector.error());
    mcTransport->clearCallback(&cNext);
}

TEST_F(TCPIPTransports, APeerThatClosedCostsLessThanFivePercentOfAProcessor) {
    open();
    mcTransport->setCallback(&mcCollector, 10, 0x40000);
    mcPeer.close();
    const unsigned uCalls = mcCollector.muCalls.load();
    const double fBefore = processorSeconds();
    const uint64_t uStart = utils::steadyMilliseconds();
    ASSERT_TRUE(waitUntil([&] { return mcCollector.muCalls.load() > uCalls + 200; }));
    const double fWall = static_cast<double>(utils::steadyMilliseconds() - uStart) * 1e-3;
    // The share of the waiting loop of this test is in here too.
    EXPECT_GT(fWall, 0.6);
#ifndef VNK_SANITIZED
    EXPECT_LT((processorSeconds() - fBefore) / fWall, 0.05);
#else
    EXPECT_LT((processorSeconds() - fBefore) / fWall, 0.5);
#endif
    EXPECT_EQ(mcCollector.error(), "");
    mcTransport->clearCallback(&mcCollector);
}

TEST_F(TCPIPTransports, ATransactionWithAPeerThatClosedDoesNotHang) {
    open();
    mcPeer.close();
    const auto cReply = mcTransport->transact(makeReference<MemoryBlock>("Q?\n"), 300, 4);
    EXPECT_TRUE(!cReply || cReply->getSize() == 0);
}

TEST_F(TCPIPTransports, OneByteSegmentsArriveWholeWithBoundedMemory) {
    open();
    mcTransport->setCallback(&mcCollector, 10, 0x40000);
    const uint64_t uBefore = vnktest::residentBytes();
    std::string expected;
    for (int i = 0; i < 2000; ++i) {
        const std::string piece(1, static_cast<char>('a' + i % 26));
        expected += piece;
        ASSERT_TRUE(mcPeer.send(piece));
        if (i % 4 == 0) {
            ASSERT_TRUE(waitUntil([&] { return mcCollector.text().size() == expected.size(); }));
        }
    }
    EXPECT_TRUE(waitUntil([&] { return mcCollector.text() == expected; }));
#ifndef VNK_SANITIZED
    EXPECT_LT(vnktest::residentBytes(), uBefore + (16u << 20));
#endif
    (void)uBefore;
    mcTransport->clearCallback(&mcCollector);
}

TEST_F(TCPIPTransports, AReplyInTwoPiecesYieldsTheFirstAndTheNextRequestIsClean) {
    open();
    std::thread cUnit([&] {
        mcPeer.receive(3);
        mcPeer.send("one");
        mcPeer.receive(3);
        mcPeer.send("two");
    });
    EXPECT_EQ(mcTransport->transact(makeReference<MemoryBlock>("A?\n"), 5000, 0)->getText(), "one");
    mcPeer.send("late rest");
    // The request's own flush takes what has come by then.
    ASSERT_TRUE(waitUntil([&] { return mcTransport->flush(); }));
    EXPECT_EQ(mcTransport->transact(makeReference<MemoryBlock>("B?\n"), 5000, 0)->getText(), "two");
    cUnit.join();
}

TEST_F(TCPIPTransports, AFloodOfReplyGivesTheFirstPieceOnlyAndBoundsTheNextDrain) {
    open();
    std::thread cUnit([&] {
        mcPeer.receive(3);
        while (mcPeer.send(std::string(65536, 'f'))) {
        }
    });
    const auto cReply = mcTransport->transact(makeReference<MemoryBlock>("A?\n"), 5000, 0);
    ASSERT_TRUE(cReply);
    EXPECT_LE(cReply->getSize(), 1024u);
    const uint64_t uStart = utils::steadyMilliseconds();
    EXPECT_TRUE(mcTransport->flush());
    EXPECT_LT(utils::steadyMilliseconds() - uStart, 4000u);
    mcTransport = nullptr;
    cUnit.join();
}

TEST_F(TCPIPTransports, AClosedTransportOpensAgainAndGoesOn) {
    open();
    mcTransport->setCallback(&mcCollector, 5, 1024);
    EXPECT_TRUE(mcTransport->close());
    EXPECT_FALSE(mcTransport->isOpen());
    EXPECT_FALSE(mcTransport->close());
    ASSERT_TRUE(mcTransport->open());
    mcPeer = mcServer.accept();
    mcPeer.send("again");
    EXPECT_TRUE(waitUntil([&] { return mcCollector.text() == "again"; }));
    mcTransport->clearCallback(&mcCollector);
}

TEST_F(TCPIPTransports, AnOpenWithoutACloseFreesTheOldSocket) {
    open();
    auto cOldPeer = std::move(mcPeer);
    const size_t uDescriptors = vnktest::openDescriptors();
    ASSERT_TRUE(mcTransport->open());
    mcPeer = mcServer.accept();
    EXPECT_EQ(cOldPeer.receive(1), "");  // its end has come
    EXPECT_EQ(vnktest::openDescriptors(), uDescriptors + 1);
}

TEST_F(TCPIPTransports, ATransportWhoseSendIsBlockedIsFreedByAClose) {
    open();
    std::thread cSender([&] {
        std::string errorText;
        EXPECT_FALSE(mcTransport->send(makeReference<MemoryBlock>(std::string(64 << 20, 'x')), errorText));
    });
    EXPECT_NE(mcPeer.receive(1), "");
    EXPECT_TRUE(mcTransport->close());
    cSender.join();
}

TEST_F(TCPIPTransports, OpeningReadingAndClosingFromManyThreadsLeavesNothingBehind) {
    const size_t uDescriptors = vnktest::openDescriptors();
    const size_t uThreads = vnktest::idleThreads();
    {
        open();
        std::atomic<bool> bStop{false};
        std::thread cUnit([&] {
            std::vector<vnktest::TestSocket> lPeers;
            while (!bStop.load()) {
                auto cPeer = mcServer.accept(5);
                if (cPeer.get() < 0)
                    continue;
                cPeer.send("some data");
                lPeers.push_back(std::move(cPeer));
            }
        });
        mcTransport->setCallback(&mcCollector, 1, 1024);
        std::thread cSender([&] {
            std::string errorText;
            for (int i = 0; i < 300; ++i)
                mcTransport->send(makeReference<MemoryBlock>("s"), errorText);
        });
        for (int i = 0; i < 30; ++i) {
            mcTransport->close();
            mcTransport->flush();
            EXPECT_TRUE(mcTransport->open());
        }
        cSender.join();
        mcTransport->clearCallback(&mcCollector);
        mcTransport = nullptr;
        bStop.store(true);
        cUnit.join();
        mcPeer.close();
    }
    EXPECT_TRUE(waitUntil([&] { return vnktest::openDescriptors() == uDescriptors; }));
    EXPECT_TRUE(waitUntil([&] { return vnktest::liveThreads() == uThreads; }));
}

}  // namespace
