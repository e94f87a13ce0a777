#include "api/processors.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "libvnk.h"
#include "processors/processortype.h"
#include "streams/basebandstreamhandler.h"
#include "streams/iqstreamhandler.h"
#include "streams/spectrumstreamhandler.h"
#include "support/loopback.h"
#include "support/plainprocessor.h"
#include "unit/flows/flowsupport.h"

using vnktest::PlainProcessor;

namespace {

/// Lets nobody have its output.
class Refusing : public PlainProcessor {
 public:
    bool attachFrameSink(ReferencePtr<FrameSink>, ErrorList& lErrors) override {
        lErrors.push_back("no");
        return false;
    }
};

/// Takes IQ and makes IQ.
class IQPasser : public PlainProcessor {
 public:
    bool acceptsFrame(ReferencePtr<Frame> cFrame) override {
        return cFrame == nullptr || dynamic_cast<IQFrame*>(cFrame.get());
    }
};

}  // namespace

TEST(OutputStream, IsMadeOfEachOfTheThreeKinds) {
    EXPECT_TRUE(dynamicReferenceCast<IQStreamHandler>(exports::makeOutputStream(OutputKind::kIQ)));
    EXPECT_TRUE(dynamicReferenceCast<SpectrumStreamHandler>(exports::makeOutputStream(OutputKind::kSpectrum)));
    EXPECT_TRUE(dynamicReferenceCast<BasebandStreamHandler>(exports::makeOutputStream(OutputKind::kBaseband)));
}

TEST(OutputStream, OfAnyOtherKindIsAnAssertionFailure) {
    for (const uint32_t uKind : {0u, 4u, 0xFFFFFFFFu}) {
        try {
            exports::makeOutputStream(static_cast<OutputKind>(uKind));
            ADD_FAILURE() << uKind;
        } catch (const utils::FatalError& cError) {
            EXPECT_THAT(cError.message(), testing::HasSubstr("<cNewStreamHandler != nullptr>"));
        }
    }
}

TEST(OutputStream, ThatIsNoStreamHandlerHasAStatusOfItsOwn) {
    APIState cState;
    uint32_t uHandle = 7;
    EXPECT_EQ(exports::openOutputStream(cState, makeReference<PlainProcessor>(), makeReference<FrameSink>(), uHandle),
              -82);
    EXPECT_EQ(uHandle, 7u);
}

TEST(OutputStream, ThatTheProcessorRefusesIsTold) {
    ProcessorTypeOf<Refusing> cType{"Refusing"};
    uint32_t uProcessor = 0, uStream = 7;
    ASSERT_EQ(vnkCreateProcessor(&uProcessor, "Refusing"), 0);
    EXPECT_EQ(vnkGetProcessorOutputStream(uProcessor, &uStream), -83);
    EXPECT_EQ(uStream, 7u);
    EXPECT_EQ(vnkClose(&uProcessor), 0);
}

// A cycle of IQ, in which a frame goes round.
TEST(OutputStream, OfAProcessorThatTakesWhatItMakesMayBeItsOwnInput) {
    ProcessorTypeOf<IQPasser> cType{"IQPasser"};
    for (const bool bStreamFirst : {false, true}) {
        uint32_t uProcessor = 0, uStream = 0;
        ASSERT_EQ(vnkCreateProcessor(&uProcessor, "IQPasser"), 0);
        ASSERT_EQ(vnkGetProcessorOutputStream(uProcessor, &uStream), 0);
        ASSERT_EQ(vnkAttachProcessorToStream(uProcessor, uStream), 0);
        {
            const ReferencePtr<FrameSink> cStream = APIState::current()->findStream(uStream);
            cStream->receiveFrame(vnktest::iqFrame(1), false);
            EXPECT_TRUE(vnktest::waitUntil([&] { return cStream->discardCount() > 1000; })) << "round and round";
        }
        vnkIQRecord* pRecord = nullptr;
        EXPECT_EQ(vnkGetNextIQ(uStream, &pRecord, 1000), 0);
        EXPECT_EQ(vnkFreeIQ(&pRecord), 0);
        EXPECT_EQ(vnkClose(bStreamFirst ? &uStream : &uProcessor), 0);
        EXPECT_EQ(vnkClose(bStreamFirst ? &uProcessor : &uStream), 0);
    }
}

TEST(AttachedProcessor, OfOneThatTakesOtherFramesIsRefusedByTheStream) {
    class TakesNone : public PlainProcessor {
     public:
        bool acceptsFrame(ReferencePtr<Frame> cFrame) override { return cFrame == nullptr; }
    };
    ProcessorTypeOf<TakesNone> cType{"TakesNone"};
    uint32_t uProcessor = 0, uStream = 0;
    ASSERT_EQ(vnkCreateProcessor(&uProcessor, "TakesNone"), 0);
    ASSERT_EQ(vnkCreateIQStream(&uStream, 1e6f, 1e5f, -30.0f), 0);
    EXPECT_EQ(vnkAttachProcessorToStream(uProcessor, uStream), -75);
    EXPECT_EQ(vnkDetachProcessor(uProcessor), -76);
    EXPECT_EQ(vnkClose(&uProcessor), 0);
    EXPECT_EQ(vnkClose(&uStream), 0);
}
