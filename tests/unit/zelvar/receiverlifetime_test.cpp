#include <thread>

#include "receiversupport.h"

namespace {

class Lifetime : public ReceiverTest {};

/// A definite-length block.
std::string block(const std::string& payload) {
    const std::string digits = std::to_string(payload.size());
    return "#" + std::to_string(digits.size()) + digits + payload + "\n";
}

}  // namespace

TEST_F(Lifetime, AnOpenDeviceEndsWithItsLastReference) {
    ReferencePtr<Device> cDevice = open();
    ASSERT_TRUE(cDevice);
    ReferencePtr<Device> cSecond = cDevice;
    close(cDevice);
    EXPECT_TRUE(cSecond->isOpen());
    EXPECT_EQ(mcUnit->miLinks, 2);
    cSecond.release();
    EXPECT_TRUE(allBack());
}

TEST_F(Lifetime, AThousandFailedOpensLeaveNothing) {
    for (int i = 0; i < 250; ++i) {
        mcUnit->reply("*IDN?", {""});
        EXPECT_FALSE(open());  // silent
        mcUnit->reply("*IDN?", {"Maker,ZV100-AX,1,2\n"});
        EXPECT_FALSE(open());  // of an unknown type
        arrange("ZV100-A");
        mcUnit->reply(":SYSTem:CAPTure:MODE?", {"STREAMING\n"});
        EXPECT_FALSE(open());  // in the wrong mode
        mcUnit->mbRefuseData = true;
        EXPECT_FALSE(open());  // without a data port
        mcUnit->mbRefuseData = false;
    }
    EXPECT_TRUE(allBack());
}

TEST_F(Lifetime, AUnitThatDiesAfterAnyExchangeOfAnOpenLeavesNothing) {
    mcUnit->takeJournal();
    ReferencePtr<Device> cWhole = open();
    ASSERT_TRUE(cWhole);
    int iLines = 0;
    for (const std::string& line : mcUnit->takeJournal())
        iLines += line[0] != '[';
    close(cWhole);
    ASSERT_GT(iLines, 10);
    for (int i = 0; i <= iLines; ++i) {
        mcUnit->miSendsLeft = i;
        ReferencePtr<Device> cDevice = open();
        EXPECT_EQ(static_cast<bool>(cDevice), i == iLines) << i;
        if (cDevice)
            close(cDevice);
        EXPECT_TRUE(allBack()) << i;
    }
}

TEST_F(Lifetime, AnAssertionInsideAnOpenEscapesAndLeavesNothing) {
    std::string header(48, '\0');
    header[5] = 1;  // one vector
    mcUnit->reply("DATA:CORRECTION:SIGNAL:SIZE?", {"50\n"});
    mcUnit->reply("DATA:CORRECTION:NOISE:SIZE?", {"50\n"});
    mcUnit->reply("DATA:CORRECTION:SIGNAL:READ? 0, 48", {block(header)});
    mcUnit->reply("DATA:CORRECTION:SIGNAL:READ? 48, 0", {block("")});
    mcUnit->reply("DATA:CORRECTION:SIGNAL:READ? 48, 2", {block(std::string("\0\7", 2))});
    for (int i = 0; i < 20; ++i) {
        // Packets come in all the while: none may find the object on its way out.
        for (int iPacket = 0; iPacket < 20; ++iPacket)
            mcUnit->sendData(packet(0x90000001, {0}));
        EXPECT_THROW(open(), utils::FatalError);
    }
    EXPECT_TRUE(allBack());
}

TEST_F(Lifetime, ADeviceMayEndOnItsOwnReceiverThread) {
    for (int i = 0; i < 5; ++i) {
        ReferencePtr<Device> cDevice = open();
        ASSERT_TRUE(cDevice);
        auto* const pReceiver = dynamic_cast<ZelvarReceiver*>(cDevice.get());
        std::atomic<bool> bDropped{false};
        // A capture that starts asks the unit on the receiver thread.
        mcUnit->reply("SYST:LOCK:REQ? ACQ", {});
        mcUnit->reply("SYST:ERR?", {});
        mcUnit->otherwise([&](const std::string&) -> std::string {
            if (!bDropped && pReceiver->isOwnThread()) {
                close(cDevice);
                bDropped = true;
            }
            return "0\n";
        });
        auto cStream = makeReference<IQFrameSink>();
        utils::VariantRecord cRecord(R"({"FCentreHz":100000000.0,"IFBWHz":200000.0,"RefdBm":-30.0})");
        ErrorList lErrors;
        cStream->setSinkParameters(cRecord, lErrors, true);
        // The attach holds the device no longer than it takes.
        EXPECT_TRUE(source(ReferencePtr<Device>(cDevice)).attachFrameSink(cStream, lErrors));
        EXPECT_TRUE(vnktest::waitUntil([&] { return bDropped.load(); }));
        EXPECT_TRUE(allBack());
        EXPECT_FALSE(cStream->isAttached());
        mcUnit->otherwise({});
        arrange("ZV350-C");
    }
}

TEST_F(Lifetime, ADeviceMayEndOnThePollingThreadOfItsData) {
    for (int i = 0; i < 20; ++i) {
        ReferencePtr<Device> cDevice = open();
        ASSERT_TRUE(cDevice);
        std::atomic<bool> bDropped{false};
        mcUnit->onNextPoll([&] {
            close(cDevice);
            bDropped = true;
        });
        EXPECT_TRUE(vnktest::waitUntil([&] { return bDropped.load(); }));
        EXPECT_TRUE(allBack());
    }
}

TEST_F(Lifetime, ADeviceMayEndWhilePacketsComeIn) {
    for (int i = 0; i < 50; ++i) {
        ReferencePtr<Device> cDevice = open();
        ASSERT_TRUE(cDevice);
        std::string bytes;
        for (int iPacket = 0; iPacket < 200; ++iPacket)
            bytes += packet(0x90000001 + static_cast<uint32_t>(iPacket % 6), {0});
        mcUnit->sendData(bytes);
        close(cDevice);
    }
    EXPECT_TRUE(allBack());
}

TEST_F(Lifetime, ParametersMayBeSetAndReadDuringAReopen) {
    mcUnit->reply(":GNSS:POSition?", {"10.0,20.0,30.0\n"});
    ReferencePtr<Device> cDevice = open();
    ASSERT_TRUE(cDevice);
    std::atomic<bool> bDone{false};
    std::vector<std::thread> lThreads;
    for (int i = 0; i < 3; ++i)
        lThreads.emplace_back([&] {
            while (!bDone) {
                utils::VariantRecord cRecord(R"({"pllSource":"external","GNSSCons":"GPS"})");
                ErrorList lErrors;
                cDevice->setParameters(cRecord, lErrors);
                cDevice->getParameters();
                cDevice->getParameterInfo();
                std::string reply;
                cDevice->queryRaw("*IDN?", reply);
            }
        });
    for (int i = 0; i < 10; ++i)
        EXPECT_TRUE(cDevice->reopen());
    std::thread cOther([&] { EXPECT_TRUE(cDevice->reopen()); });
    EXPECT_TRUE(cDevice->reopen());
    cOther.join();
    bDone = true;
    for (auto& cThread : lThreads)
        cThread.join();
    EXPECT_EQ(mcUnit->miLinks, 2);
    close(cDevice);
    EXPECT_TRUE(allBack());
}
