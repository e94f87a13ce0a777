#include "receivers/quietwait.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>

#include "links/vita49protocol.h"
#include "links/zelvar-vita49protocol.h"

namespace {

class GenericCounter : public VITA49Protocol::Listener {
 public:
    void handleIFData(ReferencePtr<VITA49::IFData>) override { ++muPackets; }
    void handleIFContext(ReferencePtr<VITA49::IFContext>) override {}
    void handleExtensionData(ReferencePtr<VITA49::ExtensionData>) override {}
    void handleExtensionContext(ReferencePtr<VITA49::ExtensionContext>) override {}
    std::atomic<uint32_t> muPackets{0};
};

class ZelvarCounter : public VITA49ZelvarProtocol::Listener {
 public:
    void handleReceiverContext(ReferencePtr<VITA49Zelvar::ReceiverContext>) override {}
    void handleDigitizerContext(ReferencePtr<VITA49Zelvar::DigitizerContext>) override {}
    void handleExtensionContext(ReferencePtr<VITA49Zelvar::ExtensionContext>) override {}
    void handleIFDataIQ14(ReferencePtr<VITA49Zelvar::IFDataIQ14>) override { ++muPackets; }
    void handleIFDataI14(ReferencePtr<VITA49Zelvar::IFDataI14>) override {}
    void handleIFDataI24(ReferencePtr<VITA49Zelvar::IFDataI24>) override {}
    std::atomic<uint32_t> muPackets{0};
};

struct Generic {
    using Protocol = VITA49Protocol;
    using Counter = GenericCounter;
};

struct Zelvar {
    using Protocol = VITA49ZelvarProtocol;
    using Counter = ZelvarCounter;
};

/// A data packet that both forms take.
std::string packet() {
    std::string bytes(40, 'g');
    const unsigned char header[8] = {0x10, 0x60, 0, 10, 0x90, 0, 0, 3};
    bytes.replace(0, sizeof header, reinterpret_cast<const char*>(header), sizeof header);
    return bytes;
}

template <typename Family>
class QuietWait : public testing::Test {
 protected:
    QuietWait() { mcProtocol->addListener(&mcCounter); }
    void feed(const std::string& bytes) { mcProtocol->onData(makeReference<utils::MemoryBlock>(bytes)); }

    typename Family::Counter mcCounter;
    ReferencePtr<typename Family::Protocol> mcProtocol = makeReference<typename Family::Protocol>(nullptr);
};

using Families = testing::Types<Generic, Zelvar>;
TYPED_TEST_SUITE(QuietWait, Families);

TYPED_TEST(QuietWait, ForgetsThePartialPacketAndEndsTheDrain) {
    this->feed(packet().substr(0, 30));
    drainVRTData(*this->mcProtocol);
    this->feed(packet());
    EXPECT_EQ(this->mcCounter.muPackets.load(), 1u);
    EXPECT_FALSE(this->mcProtocol->takeActivity());
}

TYPED_TEST(QuietWait, GivesTheRestOfAPacketTimeToCome) {
    this->feed(packet().substr(0, 30));
    std::thread cWaiting([&] { drainVRTData(*this->mcProtocol); });
    // Longer than the quiet that ends a wait between packets.
    std::this_thread::sleep_for(std::chrono::milliseconds(250));
    this->feed(packet().substr(30));
    cWaiting.join();
    EXPECT_EQ(this->mcCounter.muPackets.load(), 1u);
}

TYPED_TEST(QuietWait, DeliversWhatIsStillInThePipe) {
    std::thread cWaiting([&] { drainVRTData(*this->mcProtocol); });
    for (int i = 0; i < 20; ++i)
        this->feed(packet());
    cWaiting.join();
    EXPECT_EQ(this->mcCounter.muPackets.load(), 20u);
}

/// Something comes in each pass, until the last one.
class Busy {
 public:
    explicit Busy(int iActive) : miActive(iActive) {}
    void setDrain(bool bDrain) { mSteps += bDrain ? 'd' : 'e'; }
    bool isInsidePacket() { return false; }
    bool takeActivity() {
        ++miPasses;
        return miActive-- > 0;
    }
    void clearBuffer() { mSteps += 'c'; }
    int miActive;
    int miPasses = 0;
    std::string mSteps;
};

TEST(QuietWaitPasses, FiveQuietPassesInARowEndIt) {
    Busy cBusy(7);
    drainVRTData(cBusy);
    EXPECT_EQ(cBusy.miPasses, 12);
    EXPECT_EQ(cBusy.mSteps, "dce");
}

TEST(QuietWaitPasses, TwoHundredPassesAreTheMost) {
    Busy cBusy(1000);
    drainVRTData(cBusy);
    EXPECT_EQ(cBusy.miPasses, 200);
    EXPECT_EQ(cBusy.mSteps, "dce");
}

}  // namespace
