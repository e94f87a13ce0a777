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

}  // namespace
