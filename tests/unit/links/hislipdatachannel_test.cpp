#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hislippeer.h"
#include "links/datachannel.h"
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

class DataChannels : public testing::Test {
 protected:
    DataChannels() {
        vnktest::startSocketLayer();
        EXPECT_TRUE(mcProtocol->open(mcPeer.host() + ":37001"));
        vnktest::clearLog();
    }
    static HiSlipPeer::Handler sends(const std::string& bytes, bool bEnds = false) {
        return [=](TestSocket& cSocket, const PeerMessage&) {
            cSocket.send(bytes);
            if (bEnds)
                ::shutdown(cSocket.get(), SHUT_RDWR);
        };
    }
    /// What is told apart from the notes of the SCPI exchange.
    static std::vector<LogLine> failures() {
        auto lLog = vnktest::takeLog();
        std::erase_if(lLog, [](const LogLine& cLine) { return cLine.first == 1000; });
        return lLog;
    }

    TCPIPTransportType mcType;
    HiSlipPeer mcPeer;
    ReferencePtr<HiSlipProtocol> mcProtocol = makeReference<HiSlipProtocol>();
};

TEST_F(DataChannels, ItIsTiedToTheSessionThatTheUnitTells) {
    mcPeer.muSession = 77;  // what the query says counts, not what the handshake said
    const auto cTransport = openDataChannel(*mcProtocol);
    ASSERT_TRUE(cTransport);
    EXPECT_TRUE(cTransport->isOpen());
    EXPECT_EQ(cTransport->getDescription(), "TCP/IP:" + mcPeer.host() + ":4881");
    EXPECT_FALSE(cTransport->isPolling());
    const auto lRequests = mcPeer.received(0x80);
    ASSERT_EQ(lRequests.size(), 1u);
    EXPECT_EQ(lRequests[0].miControl, 0);
    EXPECT_EQ(lRequests[0].muParameter, 77u);
    EXPECT_EQ(lRequests[0].mPayload, "");
    EXPECT_THAT(failures(), testing::IsEmpty());
}

TEST_F(DataChannels, TheStreamFollowsTheHeaderWhateverLengthItTells) {
    mcPeer.on(0x80, sends(peerBytes(0x81, 9, 0x1234, "", 1000)));
    const auto cTransport = openDataChannel(*mcProtocol);
    ASSERT_TRUE(cTransport);
    ASSERT_TRUE(mcPeer.pushStream("stream"));
    std::string bytes;
    EXPECT_TRUE(waitUntil([&] {
        std::string errorText;
        if (const auto cBlock = cTransport->receive(1, errorText))
            bytes += cBlock->getText();
        return bytes.size() >= 6;
    }));
    EXPECT_EQ(bytes, "stream");
}

TEST_F(DataChannels, AnAnswerMayComeByteByByte) {
    mcPeer.on(0x80, [](TestSocket& cSocket, const PeerMessage&) {
        for (char c : peerBytes(0x81, 0, 0x1234))
            cSocket.send(std::string(1, c));
    });
    EXPECT_TRUE(openDataChannel(*mcProtocol));
}

TEST_F(DataChannels, ItOutlivesAReopenOfTheSession) {
    const auto cTransport = openDataChannel(*mcProtocol);
    ASSERT_TRUE(cTransport);
    ASSERT_TRUE(mcProtocol->reopen());
    EXPECT_TRUE(cTransport->isOpen());
    EXPECT_TRUE(waitUntil([&] { return mcPeer.connections() == 3; }));
}

TEST_F(DataChannels, AClosedSessionHasNone) {
    mcProtocol->close();
    vnktest::clearLog();
    EXPECT_FALSE(openDataChannel(*mcProtocol));
    EXPECT_THAT(failures(),
                testing::ElementsAre(LogLine(-4001, "Failed to open Varnik data connection at :4881")));
}

TEST_F(DataChannels, AUnitWithoutThePortIsReported) {
    mcPeer.refuse();
    EXPECT_FALSE(openDataChannel(*mcProtocol));
    EXPECT_EQ(failures().back(), LogLine(-4001, "Failed to open Varnik data connection at :4881"));
}

TEST_F(DataChannels, AUnitThatTellsNoSessionIsReported) {
    for (const char* answer : {"", "none\n", "-1\n", "4294967296\n"}) {
        mcPeer.answerWith([=](const std::string&) { return answer; });
        EXPECT_FALSE(openDataChannel(*mcProtocol));
        EXPECT_THAT(failures(),
                    testing::ElementsAre(LogLine(-4001, "SCPI session query over HiSlip control failed")));
        EXPECT_TRUE(waitUntil([&] { return mcPeer.connections() == 2; }));
    }
}

struct AnswerFault {
    const char* mpName;
    HiSlipPeer::Handler mcFault;
    const char* mpText;
};

const char* const kNone = "No response to Varnik initialization within timeout";
const char* const kBad = "Bad response to Varnik initialization request";
const char* const kInvalid = "Server response invalid";

std::vector<AnswerFault> answerFaults() {
    const auto sends = [](const std::string& bytes, bool bEnds = false) {
        return [=](TestSocket& cSocket, const PeerMessage&) {
            cSocket.send(bytes);
            if (bEnds)
                ::shutdown(cSocket.get(), SHUT_RDWR);
        };
    };
    const std::string good = peerBytes(0x81, 0, 0x1234);
    return {
        {"Silent", [](TestSocket&, const PeerMessage&) {}, kNone},
        {"Late",
         [good](TestSocket& cSocket, const PeerMessage&) {
             char cByte;
             ::recv(cSocket.get(), &cByte, 1, 0);
             cSocket.send(good);
         },
         kNone},
        {"Ends", sends("", true), kNone},
        {"Cut", sends(good.substr(0, 15)), kBad},
        {"CutAndEnds", sends(good.substr(0, 1), true), kBad},
        {"WrongPrefix", sends("SH" + good.substr(2)), kBad},
        {"WrongType", sends(peerBytes(1, 0, 0x1234)), kBad},
        {"Echo", sends(peerBytes(0x80, 0, 0x1234)), kBad},
        {"WrongTypeAndUnknownSession", sends(peerBytes(1, 0, 0x80000000)), kBad},
        {"UnknownSession", sends(peerBytes(0x81, 0, 0x80000000)), "Server reports session ID not found"},
        {"WrongSession", sends(peerBytes(0x81, 0, 0x1235)), kInvalid},
        {"WrongSessionAbove", sends(peerBytes(0x81, 0, 0x11234)), kInvalid},
        {"NoSession", sends(peerBytes(0x81, 0, 0)), kInvalid},
        {"Noise",
         [](TestSocket& cSocket, const PeerMessage&) {
             while (cSocket.send(std::string(5000, 'x')))
                 continue;
         },
         kBad},
    };
}

class DataChannelAnswers : public DataChannels, public testing::WithParamInterface<AnswerFault> {};

TEST_P(DataChannelAnswers, AFaultIsToldAndLeavesNothingOpen) {
    const AnswerFault& cFault = GetParam();
    mcPeer.on(0x80, cFault.mcFault);
    EXPECT_FALSE(openDataChannel(*mcProtocol));
    EXPECT_THAT(failures(), testing::ElementsAre(LogLine(-4001, cFault.mpText)));
    EXPECT_TRUE(waitUntil([&] { return mcPeer.connections() == 2; }));
    EXPECT_TRUE(mcProtocol->isOpen());
    mcPeer.on(0x80, sends(peerBytes(0x81, 0, 0x1234)));
    EXPECT_TRUE(openDataChannel(*mcProtocol));
}

INSTANTIATE_TEST_SUITE_P(Faults, DataChannelAnswers, testing::ValuesIn(answerFaults()),
                         [](const auto& cInfo) { return std::string(cInfo.param.mpName); });

}  // namespace
