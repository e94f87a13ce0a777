#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>

#include "receivers/enginecontext.h"
#include "support/errorlog.h"
#include "support/fakescpi.h"

namespace vnktest {

/// What an engine needs around it: a stream, and a command link with no unit behind it.
template <typename Stream>
class EngineFixture : public testing::Test {
 protected:
    EngineFixture() { mcChannel->setProtocol(mcSCPI); }
    template <typename T>
    void set(const char* pKey, T value) {
        utils::VariantRecord cRecord;
        cRecord.set(pKey, value);
        ErrorList lErrors;
        ASSERT_TRUE(mcStream->setSinkParameters(cRecord, lErrors, false));
    }
    /// The number at the end of a command.
    static uint32_t numberOf(const std::string& text) {
        return static_cast<uint32_t>(std::stoll(text.substr(text.rfind(' '))));
    }
    /// Starts and stops an IQ engine while packets come in all the time, of the capture started last as far as
    /// `packets` is told; then the stream leaves.
    template <typename Engine, typename Packets>
    void restartUnderPackets(Engine& cEngine, Packets packets) {
        std::atomic<uint32_t> uStarted{0};
        mcSCPI->mcOnSend = [&](const std::string& text) {
            if (text.rfind(":TRACe:STReam:STARt ", 0) == 0)
                uStarted = numberOf(text);
        };
        std::atomic<bool> bDone{false};
        std::thread cPackets([&] {
            while (!bDone)
                packets(uStarted.load());
        });
        std::thread cLoop([&] {
            for (int i = 0; i < 50; ++i) {
                EXPECT_TRUE(cEngine.start());
                cEngine.process();
                cEngine.isExhausted();
                cEngine.stop(false);
            }
        });
        cLoop.join();
        cEngine.removeFrameSink(mcStream);
        bDone = true;
        cPackets.join();
        mcSCPI->mcOnSend = nullptr;
        EXPECT_FALSE(mcStream->isAttached());
    }

    ReferencePtr<FakeSCPI> mcSCPI = makeReference<FakeSCPI>();
    ReferencePtr<CommandChannel> mcChannel =
        makeReference<CommandChannel>(makeReference<LinkWatch>(), CommandWords{"no access"});
    ReferencePtr<EngineContext> mcContext = makeReference<EngineContext>(mcChannel, "unit one");
    ReferencePtr<Stream> mcStream = makeReference<Stream>();
};

}  // namespace vnktest
