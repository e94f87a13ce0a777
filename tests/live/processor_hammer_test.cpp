#include <array>
#include <atomic>
#include <cstdlib>
#include <random>
#include <thread>

#include "api/processing.h"
#include "live/session.h"
#include "support/resources.h"

namespace {

using namespace std::chrono_literals;

std::chrono::seconds hammerTime() {
    const char* pSeconds = std::getenv("VNK_HAMMER_SECONDS");
    return std::chrono::seconds(pSeconds ? std::atoi(pSeconds) : 10);
}

/// What all threads use at once. A slot holds a handle that any of them may close or put another into.
struct Shared {
    using Slot = std::atomic<uint32_t>;

    Shared(uint32_t uDevice, const std::string& path) : muDevice(uDevice), mcPath(path) {
        for (auto* pSlots : {&mlIQ, &mlFromIQ, &mlTraces, &mlOfIQ, &mlOfSpectra})
            for (Slot& uSlot : *pSlots)
                uSlot = VNK_INVALID_HANDLE;
    }
    ~Shared() {
        for (auto* pSlots : {&mlIQ, &mlFromIQ, &mlTraces, &mlOfIQ, &mlOfSpectra})
            for (Slot& uSlot : *pSlots)
                put(uSlot, VNK_INVALID_HANDLE);
    }
    static void put(Slot& uSlot, uint32_t uHandle) {
        uint32_t uBefore = uSlot.exchange(uHandle);
        if (uBefore != VNK_INVALID_HANDLE) {
            EXPECT_EQ(vnkClose(&uBefore), 0);   // whoever takes it out of its slot is alone with it
        }
    }

    const uint32_t muDevice;
    const std::string mcPath;
    std::atomic<bool> mbStop{false};
    std::atomic<uint64_t> muFrames{0};
    using Slots = std::array<Slot, 3>;
    Slots mlIQ, mlFromIQ, mlTraces;    // streams
    Slots mlOfIQ, mlOfSpectra;         // processors
};

void expectTold(int32_t iStatus) {
    EXPECT_TRUE(iStatus >= -88 && iStatus <= 5) << iStatus;
}

class Hand {
 public:
    Hand(Shared& cShared, unsigned uSeed) : mcShared(cShared), mcRandom(uSeed) {}
    void work() {
        while (!mcShared.mbStop)
            act();
    }

 private:
    unsigned draw(unsigned n) { return static_cast<unsigned>(mcRandom() % n); }
    Shared::Slot& any(Shared::Slots& lSlots) { return lSlots[draw(static_cast<unsigned>(lSlots.size()))]; }

    void act() {
        switch (draw(10)) {
        case 0: newStream(); break;
        case 1: newProcessor(); break;
        case 2: newOutput(); break;
        case 3:
        case 4: attach(); break;
        case 5: expectTold(vnkDetachProcessor(draw(2) ? any(mcShared.mlOfIQ) : any(mcShared.mlOfSpectra))); break;
        case 6: leave(); break;
        case 7: change(); break;
        default: read(); break;
        }
    }
    void newStream() {
        uint32_t uStream = VNK_INVALID_HANDLE;
        expectTold(vnkCreateIQStream(&uStream, 100e6f, 100e3f, -30.0f));
        if (draw(2)) {
            expectTold(vnkAttachStreamToDevice(uStream, mcShared.muDevice));
        } else {
            Text cLoop("{\"LoopingFlag\":true}");
            expectTold(vnkSetParameters(uStream, cLoop.address()));
            expectTold(vnkAttachStreamToFile(uStream, mcShared.mcPath.c_str()));
        }
        Shared::put(any(mcShared.mlIQ), uStream);
    }
    void newProcessor() {
        const unsigned uType = draw(4);
        uint32_t uProcessor = VNK_INVALID_HANDLE;
        expectTold(vnkCreateProcessor(&uProcessor, processing::kTypes[uType].c_str()));
        Shared::put(uType < 3 ? any(mcShared.mlOfIQ) : any(mcShared.mlOfSpectra), uProcessor);
    }
    void newOutput() {
        const bool bTraces = draw(2) != 0;
        uint32_t uStream = VNK_INVALID_HANDLE;
        expectTold(vnkGetProcessorOutputStream(bTraces ? any(mcShared.mlOfSpectra) : any(mcShared.mlOfIQ), &uStream));
        if (uStream != VNK_INVALID_HANDLE)
            Shared::put(bTraces ? any(mcShared.mlTraces) : any(mcShared.mlFromIQ), uStream);
    }
    void attach() {
        if (draw(3))
            expectTold(vnkAttachProcessorToStream(any(mcShared.mlOfIQ), any(mcShared.mlIQ)));
        else
            expectTold(vnkAttachProcessorToStream(any(mcShared.mlOfSpectra), any(mcShared.mlFromIQ)));
    }
    void leave() {
        Shared::Slots* const pSlots[] = {&mcShared.mlIQ, &mcShared.mlFromIQ, &mcShared.mlTraces, &mcShared.mlOfIQ,
                                         &mcShared.mlOfSpectra};
        Shared::Slot& uSlot = any(*pSlots[draw(5)]);
        if (draw(2))
            Shared::put(uSlot, VNK_INVALID_HANDLE);
        else
            expectTold(vnkDetachStream(uSlot));
    }
    void change() {
        static const char* const kTexts[] = {
            "{\"RBWHz\":3000.0,\"FFTOverlap\":0.3}", "{\"FollowIQ\":true}", "{\"FollowIQ\":false}",
            "{\"type\":\"USB\"}", "{\"OutputSampleRate\":12000.0}", "{\"bufferFrames\":3}"};
        Text cText(kTexts[draw(6)]), cRead;
        expectTold(vnkSetParameters(any(mcShared.mlOfIQ), cText.address()));
        Text cAverage(draw(2) ? "{\"Average\":3}" : "{\"ClearMaxHoldTrace\":true,\"Average\":5}");
        expectTold(vnkSetParameters(any(mcShared.mlOfSpectra), cAverage.address()));
        expectTold(vnkGetParameters(any(mcShared.mlOfIQ), cRead.address()));
    }
    void read() {
        const uint32_t uTimeoutMs = draw(20);
        recordings::HeldIQ cIQ;
        recordings::HeldSpectrum cSpectrum, cTrace;
        processing::HeldBaseband cAudio;
        const uint32_t uFromIQ = any(mcShared.mlFromIQ);
        for (const int32_t iStatus : {cIQ.take(any(mcShared.mlIQ), uTimeoutMs), cSpectrum.take(uFromIQ, uTimeoutMs),
                                      cAudio.take(uFromIQ, 0), cTrace.take(any(mcShared.mlTraces), uTimeoutMs)}) {
            expectTold(iStatus);
            mcShared.muFrames += iStatus == 0;
        }
    }

    Shared& mcShared;
    std::mt19937 mcRandom;
};

/// Makes processors of their own streams, asks and ends them.
void goRound(const Shared& cShared, unsigned uSeed) {
    std::mt19937 cRandom(uSeed);
    while (!cShared.mbStop) {
        processing::Processor cFirst("SpectrumCharacterization"), cSecond("SpectrumCharacterization");
        processing::Output cOne(cFirst), cTwo(cSecond);
        EXPECT_EQ(cSecond.attach(cOne), 0);
        EXPECT_EQ(cFirst.attach(cRandom() % 2 ? cOne : cTwo), 0);
        std::thread cAsking([&] {
            for (int i = 0; i < 100; ++i) {
                recordings::HeldSpectrum cRecord;
                expectTold(cTwo.read(cRecord));
            }
        });
        for (int i = 0; i < 100; ++i) {
            recordings::HeldSpectrum cRecord;
            expectTold(cOne.read(cRecord));
        }
        processing::Handle* const pHandles[] = {&cFirst, &cSecond, &cOne};
        EXPECT_EQ(pHandles[cRandom() % 3]->close(), 0);
        cAsking.join();
    }
}

}  // namespace

TEST(ProcessorHammer, ThreadsThatMakeAttachDetachReadAndCloseAtRandomLeaveNothingBehind) {
    const recordings::Folder cFolder;
    recordings::writePair(cFolder, "x", processing::makeTone(20, 1024, 2'000'000));
    const size_t uThreads = vnktest::idleThreads();
    auto cOptions = live::options("ZV150-C");
    cOptions.corrections.signalSize = 0;   // a short open
    vnksim::Unit cUnit(cOptions, vnksim::Scene().tone(100e6, -40).noise(-150));
    cUnit.start();
    const size_t uWithUnit = vnktest::liveThreads();
    {
        live::Device cDevice(cOptions.address);
        ASSERT_EQ(cDevice.status(), 0) << live::log();
        Shared cShared(cDevice.handle(), cFolder.name("x"));
        std::vector<std::thread> lThreads;
        for (unsigned i = 0; i < 6; ++i)
            lThreads.emplace_back([&cShared, i] { Hand(cShared, i).work(); });
        lThreads.emplace_back([&cShared] { goRound(cShared, 100); });
        std::this_thread::sleep_for(hammerTime());
        cShared.mbStop = true;
        for (std::thread& cThread : lThreads)
            cThread.join();
        EXPECT_GT(cShared.muFrames.load(), 0u);
    }
    EXPECT_GE(uWithUnit, uThreads);
    EXPECT_TRUE(vnktest::waitUntil([&] { return vnktest::liveThreads() <= uWithUnit; }))
        << vnktest::liveThreads() << " threads, " << uWithUnit << " before";
}
