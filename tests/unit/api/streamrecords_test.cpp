// Streams, their records and their files through the exports. Baseband streams, which have no create export,
// are put into the table as a processor does it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <vector>

#include "api/apistate.h"
#include "foundations/clock.h"
#include "libvnk.h"
#include "receivers/receiverdevice.h"
#include "streams/basebandstreamhandler.h"
#include "streams/iqstreamhandler.h"
#include "streams/spectrumstreamhandler.h"
#include "support/loopback.h"
#include "unit/flows/flowsupport.h"
#include "unit/streams/recordingsupport.h"

using vnktest::Bytes;
using vnktest::fieldsAt;
using vnktest::FrameFields;
using vnktest::logged;
using vnktest::makeBaseband;
using vnktest::makeIQ;
using vnktest::makeSpectrum;
using vnktest::ramp;
using vnktest::readWhole;
using vnktest::waitUntil;
using vnktest::writeWhole;

namespace {

/// A handler in the table of streams, closed with the object.
template <typename Handler>
class Stream {
 public:
    Stream() { muHandle = APIState::current()->addStream(mcHandler); }
    ~Stream() { close(); }
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;
    operator uint32_t() const { return muHandle; }
    Handler* operator->() const { return mcHandler.get(); }
    void receive(ReferencePtr<Frame> cFrame) { mcHandler->receiveFrame(std::move(cFrame), false); }
    void close() {
        if (!mcHandler)
            return;
        while (mcHandler->detachFromSource()) {
        }
        EXPECT_EQ(vnkClose(&muHandle), 0);
        mcHandler = nullptr;
    }

 private:
    ReferencePtr<Handler> mcHandler = makeReference<Handler>(utils::VariantRecord());
    uint32_t muHandle = kInvalidHandle;
};

using IQStream = Stream<IQStreamHandler>;
using SpectrumStream = Stream<SpectrumStreamHandler>;
using BasebandStream = Stream<BasebandStreamHandler>;

/// A sink in the table of streams that is no stream handler.
class PlainStream {
 public:
    PlainStream() : muHandle(APIState::current()->addStream(makeReference<IQFrameSink>())) {}
    ~PlainStream() { vnkClose(&muHandle); }
    PlainStream(const PlainStream&) = delete;
    PlainStream& operator=(const PlainStream&) = delete;
    operator uint32_t() const { return muHandle; }

 private:
    uint32_t muHandle;
};

uint32_t closedHandle() {
    uint32_t uHandle = 0, uClosing = 0;
    EXPECT_EQ(vnkCreateIQStream(&uHandle, 1e6f, 1e5f, -30.0f), 0);
    uClosing = uHandle;
    EXPECT_EQ(vnkClose(&uClosing), 0);
    return uHandle;
}

// The exports by the type of their record.
int32_t getNext(uint32_t uStream, vnkIQRecord** p) {
    return vnkGetNextIQ(uStream, p, 0);
}
int32_t getNext(uint32_t uStream, vnkSpectrumRecord** p) {
    return vnkGetNextSpectrum(uStream, p, 0);
}
int32_t getNext(uint32_t uStream, vnkBasebandRecord** p) {
    return vnkGetNextBaseband(uStream, p, 0);
}
int32_t giveBack(vnkIQRecord** p) {
    return vnkFreeIQ(p);
}
int32_t giveBack(vnkSpectrumRecord** p) {
    return vnkFreeSpectrum(p);
}
int32_t giveBack(vnkBasebandRecord** p) {
    return vnkFreeBaseband(p);
}

/// One record at a time.
template <typename T>
class Taken {
 public:
    ~Taken() { giveBackOne(); }
    int32_t next(uint32_t uStream) {
        giveBackOne();
        return getNext(uStream, &mpRecord);
    }
    T* operator->() const { return mpRecord; }
    T*& pointer() { return mpRecord; }

 private:
    void giveBackOne() {
        if (mpRecord) {
            EXPECT_EQ(giveBack(&mpRecord), 0);
        }
    }
    T* mpRecord = nullptr;
};

/// The status of a read that leaves the caller's variable alone.
template <typename T>
int32_t refusal(uint32_t uStream) {
    T cUntouched{};
    T* pRecord = &cUntouched;
    const int32_t iStatus = getNext(uStream, &pRecord);
    EXPECT_EQ(pRecord, &cUntouched) << "written though there was nothing";
    return iStatus;
}

class DeviceLike : public Entity, public FrameSource {
 public:
    DeviceLike() : FrameSource("DeviceLike") {}
    ~DeviceLike() override { releaseSinks(); }
    utils::ReferenceCountedObject* countedSelf() override { return this; }
    bool isExhausted() override { return mbExhausted; }
    std::atomic<bool> mbExhausted{false};
};

/// A receiver without a unit, whose link has been silent for as long as the test says.
class SilentReceiver : public ReceiverDevice {
 public:
    SilentReceiver() : ReceiverDevice("TCP/IP", "127.0.0.1", "SilentReceiver") {}
    ~SilentReceiver() override { releaseSinks(); }
    void silentFor(uint64_t uMs) { mcLinkWatch->setLastActivityMs(utils::steadyMilliseconds() - uMs); }
    utils::VariantRecord getParameterInfo() override { return {}; }
    utils::VariantRecord getParameters() override { return {}; }
    void setParameters(utils::VariantRecord&, ErrorList&) override {}
    bool sendRawCommand(const std::string&) override { return false; }
    bool queryRaw(const std::string&, std::string&) override { return false; }
    bool isOpen() override { return true; }
    bool testLink() override { return false; }
    FloatRange centreRange() const override { return {}; }
    FloatRange sweepRange() const override { return {}; }
    FloatRange rbwRange() const override { return {}; }
    FloatRange ifbwRange() const override { return {}; }
    FloatRange referenceLevelRange() const override { return {}; }
};

/// Tells when the frame ends.
class WatchedSpectrum : public SpectrumFrame {
 public:
    WatchedSpectrum(bool& bGone, const std::vector<float>& lPoints)
        : SpectrumFrame(1u, uint64_t{0}, uint64_t{0}, kNanoseconds, 0.0f, 1.0f, 1.0f, 0.0f, {},
                        vnktest::floatArray(lPoints), {}),
          mbGone(bGone) {}
    ~WatchedSpectrum() override { mbGone = true; }

 private:
    bool& mbGone;
};

template <typename T>
T* onHeap(size_t uCount = 1) {
    return static_cast<T*>(std::calloc(uCount, sizeof(T)));
}

}  // namespace

class StreamRecordsTest : public vnktest::FlowTest {};

// What get next says.

TEST_F(StreamRecordsTest, NewStreamsHaveNotStarted) {
    EXPECT_EQ(refusal<vnkIQRecord>(IQStream()), 3);
    EXPECT_EQ(refusal<vnkSpectrumRecord>(SpectrumStream()), 3);
    EXPECT_EQ(refusal<vnkBasebandRecord>(BasebandStream()), 3);
}

TEST_F(StreamRecordsTest, UnknownHandleComesBeforeAllElse) {
    const uint32_t uClosed = closedHandle();
    EXPECT_EQ(refusal<vnkIQRecord>(uClosed), -17);
    EXPECT_EQ(refusal<vnkSpectrumRecord>(uClosed), -17);
    EXPECT_EQ(refusal<vnkBasebandRecord>(uClosed), -17);
}

TEST_F(StreamRecordsTest, StreamOfAnotherKindHasTheStatusOfTheExport) {
    IQStream cIQ;
    SpectrumStream cSpectrum;
    BasebandStream cBaseband;
    PlainStream cPlain;
    for (const uint32_t uOther : {uint32_t{cSpectrum}, uint32_t{cBaseband}, uint32_t{cPlain}})
        EXPECT_EQ(refusal<vnkIQRecord>(uOther), -19);
    for (const uint32_t uOther : {uint32_t{cIQ}, uint32_t{cBaseband}, uint32_t{cPlain}})
        EXPECT_EQ(refusal<vnkSpectrumRecord>(uOther), -25);
    for (const uint32_t uOther : {uint32_t{cIQ}, uint32_t{cSpectrum}, uint32_t{cPlain}})
        EXPECT_EQ(refusal<vnkBasebandRecord>(uOther), -78);
}

namespace {

/// From the first frame over the waiting to the end, for a stream of one kind.
template <typename T, typename Handler>
void goThroughStates(Stream<Handler>& cStream, const ReferencePtr<Frame>& cFrame) {
    const auto cDevice = makeReference<DeviceLike>();
    ErrorList lErrors;
    ASSERT_TRUE(cStream->attachToSource(cDevice, lErrors));
    EXPECT_EQ(refusal<T>(cStream), 3);
    cDevice->deliverFrame(nullptr, false);
    EXPECT_EQ(refusal<T>(cStream), 3) << "an end is no frame";
    cDevice->deliverFrame(cFrame, false);
    Taken<T> cTaken;
    EXPECT_EQ(cTaken.next(cStream), 0);
    EXPECT_EQ(refusal<T>(cStream), 1);
    cDevice->deliverFrame(nullptr, false);
    EXPECT_EQ(refusal<T>(cStream), 1) << "the source decides, and it has more";
    cDevice->mbExhausted = true;
    EXPECT_EQ(refusal<T>(cStream), 2);
    cDevice->deliverFrame(cFrame, false);
    EXPECT_EQ(cTaken.next(cStream), 0) << "what is queued comes before the end";
    EXPECT_EQ(refusal<T>(cStream), 2);
    cDevice->mbExhausted = false;
    EXPECT_EQ(refusal<T>(cStream), 1);
    ASSERT_TRUE(cStream->detachFromSource());
    EXPECT_EQ(refusal<T>(cStream), 2) << "neither source nor file";
}

}  // namespace

TEST_F(StreamRecordsTest, StreamsGoFromNotStartedOverWaitingToEnded) {
    IQStream cIQ;
    goThroughStates<vnkIQRecord>(cIQ, makeIQ(fieldsAt(0), ramp(4)));
    SpectrumStream cSpectrum;
    goThroughStates<vnkSpectrumRecord>(cSpectrum, makeSpectrum(fieldsAt(0), ramp(4)));
    BasebandStream cBaseband;
    goThroughStates<vnkBasebandRecord>(cBaseband, makeBaseband(fieldsAt(0), {ramp(4)}));
}

TEST_F(StreamRecordsTest, StreamThatWasFedWithoutASourceHasEnded) {
    BasebandStream cStream;
    cStream.receive(makeBaseband(fieldsAt(0), {ramp(4)}));
    Taken<vnkBasebandRecord> cTaken;
    EXPECT_EQ(cTaken.next(cStream), 0);
    EXPECT_EQ(refusal<vnkBasebandRecord>(cStream), 2);
}

TEST_F(StreamRecordsTest, SilentUnitIsToldForIQAndSpectraAndNotForBaseband) {
    const auto cDevice = makeReference<SilentReceiver>();
    Device::forget(cDevice.get());
    ErrorList lErrors;
    IQStream cIQ;
    SpectrumStream cSpectrum;
    BasebandStream cBaseband;
    ASSERT_TRUE(cIQ->attachToSource(cDevice, lErrors));
    ASSERT_TRUE(cSpectrum->attachToSource(cDevice, lErrors));
    ASSERT_TRUE(cBaseband->attachToSource(cDevice, lErrors));
    cDevice->silentFor(20000);
    EXPECT_EQ(refusal<vnkIQRecord>(cIQ), 3) << "before its first frame that is all there is to say";
    EXPECT_EQ(refusal<vnkSpectrumRecord>(cSpectrum), 3);
    cIQ.receive(makeIQ(fieldsAt(0), ramp(4)));
    cSpectrum.receive(makeSpectrum(fieldsAt(0), ramp(4)));
    cBaseband.receive(makeBaseband(fieldsAt(0), {ramp(4)}));
    for (FrameSink* pSink : {&cIQ->sink(), &cSpectrum->sink(), &cBaseband->sink()})
        vnktest::drain(*pSink);
    EXPECT_EQ(refusal<vnkIQRecord>(cIQ), -86);
    EXPECT_EQ(refusal<vnkSpectrumRecord>(cSpectrum), -86);
    EXPECT_EQ(refusal<vnkBasebandRecord>(cBaseband), 1);
    cDevice->silentFor(5000);
    EXPECT_EQ(refusal<vnkIQRecord>(cIQ), 1);
    EXPECT_EQ(refusal<vnkSpectrumRecord>(cSpectrum), 1);
}

TEST_F(StreamRecordsTest, FrameOfAnotherTypeStartsAStreamAndIsNeverDelivered) {
    SpectrumStream cStream;
    cStream.receive(makeIQ(fieldsAt(0), ramp(4)));
    EXPECT_EQ(refusal<vnkSpectrumRecord>(cStream), 2);
}

// Spectrum records.

TEST_F(StreamRecordsTest, SpectrumRecordHasTheFieldsOfTheFrame) {
    FrameFields c = fieldsAt(0xFFFFFFFF, 1700000000123456789);
    c.muDuration = 5000000001;
    const auto cFrame = makeSpectrum(c, {-100.5f, 0.0f, 20.0f});
    SpectrumStream cStream;
    cStream.receive(cFrame);
    Taken<vnkSpectrumRecord> cRecord;
    ASSERT_EQ(cRecord.next(cStream), 0);
    EXPECT_EQ(cRecord->status, 0);
    EXPECT_EQ(cRecord->sequence, 0xFFFFFFFFu);
    EXPECT_EQ(cRecord->timestamp, 1700000000123456789u);
    EXPECT_EQ(cRecord->duration, 5000000001u);
    EXPECT_EQ(cRecord->minimumHz, 99500000.0);
    EXPECT_EQ(cRecord->maximumHz, 100500000.0);
    EXPECT_EQ(cRecord->rbwHz, 1000.0f);
    ASSERT_EQ(cRecord->pointCount, 3u);
    uint32_t uCount = 0;
    EXPECT_EQ(cRecord->points, cFrame->getSpectrum(uCount)) << "not a copy";
    EXPECT_EQ(std::vector<float>(cRecord->points, cRecord->points + 3),
              (std::vector<float>{-100.5f, 0.0f, 20.0f}));
    EXPECT_EQ(cRecord->extras, nullptr);
    EXPECT_EQ(cRecord->traceCount, 0u);
    EXPECT_EQ(cRecord->traces, nullptr);
}

TEST_F(StreamRecordsTest, EdgesAreThoseOfSinglePrecision) {
    const auto cFrame = makeSpectrum(fieldsAt(0), ramp(2));
    cFrame->setCentreFrequency(1.0e9f);
    cFrame->setBandwidth(100.0f);
    SpectrumStream cStream;
    cStream.receive(cFrame);
    Taken<vnkSpectrumRecord> cRecord;
    ASSERT_EQ(cRecord.next(cStream), 0);
    // Numbers of this size lie 64 apart; in double precision these would be 999999950 and 1000000050.
    EXPECT_EQ(cRecord->minimumHz, 999999936.0);
    EXPECT_EQ(cRecord->maximumHz, 1000000064.0);
}

TEST_F(StreamRecordsTest, TimesAreInNanosecondsWhateverTheFramesAre) {
    struct Case {
        uint32_t muResolution;
        uint64_t muExpected;
    };
    for (const Case& cCase :
         {Case{0, 7000000198}, Case{1, 7000001}, Case{2, 7000}, Case{3, 7}, Case{4, 0}, Case{77, 7000001}}) {
        FrameFields c = fieldsAt(0, 7);
        c.muDuration = 7;
        c.muResolution = cCase.muResolution;
        SpectrumStream cStream;
        cStream.receive(makeSpectrum(c, ramp(2)));
        Taken<vnkSpectrumRecord> cRecord;
        ASSERT_EQ(cRecord.next(cStream), 0);
        EXPECT_EQ(cRecord->timestamp, cCase.muExpected) << cCase.muResolution;
        EXPECT_EQ(cRecord->duration, cCase.muExpected) << "converted as if it were a timestamp";
    }
}

TEST_F(StreamRecordsTest, SpectrumRecordPointsToEachTraceOfTheFrame) {
    const auto cFrame = makeSpectrum(fieldsAt(0), ramp(5));
    std::vector<const float*> lTraces;
    for (int i = 0; i < 3; ++i) {
        uint32_t uBefore = 0;
        float* const pTrace = cFrame->addTrace(uBefore);
        for (int k = 0; k < 5; ++k)
            pTrace[k] = static_cast<float>(10 * i + k);
        lTraces.push_back(pTrace);
    }
    SpectrumStream cStream;
    cStream.receive(cFrame);
    Taken<vnkSpectrumRecord> cRecord;
    ASSERT_EQ(cRecord.next(cStream), 0);
    ASSERT_EQ(cRecord->traceCount, 3u);
    EXPECT_EQ(std::vector<const float*>(cRecord->traces, cRecord->traces + 3), lTraces);
    EXPECT_EQ(cRecord->traces[2][4], 24.0f);
    EXPECT_EQ(cRecord->pointCount, 5u);
}

TEST_F(StreamRecordsTest, SpectrumWithoutPointsHasARecordWithoutPoints) {
    SpectrumStream cStream;
    cStream.receive(makeSpectrum(fieldsAt(3), ReferencePtr<FloatArray>()));
    Taken<vnkSpectrumRecord> cRecord;
    ASSERT_EQ(cRecord.next(cStream), 0);
    EXPECT_EQ(cRecord->sequence, 3u);
    EXPECT_EQ(cRecord->pointCount, 0u);
    EXPECT_EQ(cRecord->points, nullptr);
}

// Baseband records.

TEST_F(StreamRecordsTest, BasebandRecordHasTheFieldsOfTheFrame) {
    FrameFields c = fieldsAt(12, 99);
    c.mfSampleRateHz = 48000.0f;
    const auto cFrame = makeBaseband(c, {{1.0f, 2.0f, 3.0f}, {-1.0f, -2.0f, -3.0f}});
    BasebandStream cStream;
    cStream.receive(cFrame);
    Taken<vnkBasebandRecord> cRecord;
    ASSERT_EQ(cRecord.next(cStream), 0);
    EXPECT_EQ(cRecord->sequence, 12u);
    EXPECT_EQ(cRecord->timestamp, 99u);
    EXPECT_EQ(cRecord->sampleRateHz, 48000.0f);
    EXPECT_EQ(cRecord->bandwidthHz, 1.0e6f) << "of the frame, not what of it is usable";
    EXPECT_EQ(cRecord->samplesPerChannel, 3u);
    ASSERT_EQ(cRecord->channelCount, 2u);
    EXPECT_EQ(cRecord->channels[0], cFrame->getChannel(0)->getData()) << "not a copy";
    EXPECT_EQ(cRecord->channels[1], cFrame->getChannel(1)->getData());
    EXPECT_EQ(cRecord->channels[1][2], -3.0f);
    EXPECT_EQ(cRecord->extras, nullptr);
}

TEST_F(StreamRecordsTest, BasebandSamplesAreThoseOfTheLastChannel) {
    const auto cFrame = makeBaseband(fieldsAt(0), {ramp(8), ramp(8)});
    cFrame->getChannel(1)->setActive(3);
    BasebandStream cStream;
    cStream.receive(cFrame);
    Taken<vnkBasebandRecord> cRecord;
    ASSERT_EQ(cRecord.next(cStream), 0);
    EXPECT_EQ(cRecord->samplesPerChannel, 3u);
    cFrame->getChannel(1)->setActive(8);
    cFrame->getChannel(0)->setActive(3);
    cStream.receive(cFrame);
    ASSERT_EQ(cRecord.next(cStream), 0);
    EXPECT_EQ(cRecord->samplesPerChannel, 8u);
}

TEST_F(StreamRecordsTest, BasebandFrameWithoutChannelsHasNoSamples) {
    const auto cTuning = makeIQ(fieldsAt(1), ReferencePtr<ComplexArray>());
    BasebandStream cStream;
    cStream.receive(makeReference<BasebandFrame>(*cTuning, 1u, 48000.0f, 24000.0f, 500u));
    Taken<vnkBasebandRecord> cRecord;
    ASSERT_EQ(cRecord.next(cStream), 0);
    EXPECT_EQ(cRecord->channelCount, 0u);
    EXPECT_EQ(cRecord->samplesPerChannel, 0u);
}

TEST_F(StreamRecordsTest, TimeOfABasebandRecordIsInNanoseconds) {
    FrameFields c = fieldsAt(0, 7);
    c.muResolution = kMicroseconds;
    BasebandStream cStream;
    cStream.receive(makeBaseband(c, {ramp(2)}));
    Taken<vnkBasebandRecord> cRecord;
    ASSERT_EQ(cRecord.next(cStream), 0);
    EXPECT_EQ(cRecord->timestamp, 7000u);
}

// What all records share.

TEST_F(StreamRecordsTest, ExtrasAreTheCompactTextOfTheFramesRecord) {
    const auto withExtras = [](auto cFrame) {
        cFrame->getExtras()->set("MatchIQ", true);
        cFrame->getExtras()->set("Level", -1.5f);
        return cFrame;
    };
    constexpr const char* kText = "{\"Level\":-1.500000,\"MatchIQ\":true}";
    IQStream cIQ;
    cIQ.receive(withExtras(makeIQ(fieldsAt(0), ramp(4))));
    Taken<vnkIQRecord> cIQRecord;
    ASSERT_EQ(cIQRecord.next(cIQ), 0);
    EXPECT_STREQ(cIQRecord->extras, kText);
    SpectrumStream cSpectrum;
    cSpectrum.receive(withExtras(makeSpectrum(fieldsAt(0), ramp(4))));
    Taken<vnkSpectrumRecord> cSpectrumRecord;
    ASSERT_EQ(cSpectrumRecord.next(cSpectrum), 0);
    EXPECT_STREQ(cSpectrumRecord->extras, kText);
    BasebandStream cBaseband;
    cBaseband.receive(withExtras(makeBaseband(fieldsAt(0), {ramp(4)})));
    Taken<vnkBasebandRecord> cBasebandRecord;
    ASSERT_EQ(cBasebandRecord.next(cBaseband), 0);
    EXPECT_STREQ(cBasebandRecord->extras, kText);
}

TEST_F(StreamRecordsTest, ReadingMakesNoExtrasWhereThereAreNone) {
    const auto cFrame = makeSpectrum(fieldsAt(0), ramp(4));
    SpectrumStream cStream;
    cStream.receive(cFrame);
    Taken<vnkSpectrumRecord> cRecord;
    ASSERT_EQ(cRecord.next(cStream), 0);
    EXPECT_EQ(cFrame->peekExtras(), nullptr);
}

TEST_F(StreamRecordsTest, RecordKeepsItsFrameUntilItIsGivenBackWhateverBecomesOfTheStream) {
    bool bGone = false;
    SpectrumStream cStream;
    cStream.receive(makeReference<WatchedSpectrum>(bGone, ramp(1000)));
    Taken<vnkSpectrumRecord> cRecord;
    ASSERT_EQ(cRecord.next(cStream), 0);
    cStream.close();
    EXPECT_FALSE(bGone);
    EXPECT_EQ(cRecord->points[999], ramp(1000)[999]);
    EXPECT_EQ(vnkFreeSpectrum(&cRecord.pointer()), 0);
    EXPECT_TRUE(bGone);
    EXPECT_EQ(cRecord.pointer(), nullptr);
}

TEST_F(StreamRecordsTest, EachRecordHoldsAReferenceOfItsOwn) {
    const auto cFrame = makeBaseband(fieldsAt(0), {ramp(4)});
    BasebandStream cStream;
    cStream.receive(cFrame);
    cStream.receive(cFrame);
    Taken<vnkBasebandRecord> cFirst, cSecond;
    ASSERT_EQ(cFirst.next(cStream), 0);
    ASSERT_EQ(cSecond.next(cStream), 0);
    EXPECT_NE(cFirst.pointer(), cSecond.pointer());
    EXPECT_EQ(cFirst->channels[0], cSecond->channels[0]);
    EXPECT_EQ(cFrame->referenceCount(), 3u);
    EXPECT_EQ(vnkFreeBaseband(&cFirst.pointer()), 0);
    EXPECT_EQ(cFrame->referenceCount(), 2u);
    EXPECT_EQ(cSecond->channels[0][3], 0.75f);
    EXPECT_EQ(vnkFreeBaseband(&cSecond.pointer()), 0);
    EXPECT_EQ(cFrame->referenceCount(), 1u);
}

TEST_F(StreamRecordsTest, GivingBackNothingIsTold) {
    EXPECT_EQ(vnkFreeIQ(nullptr), -4);
    EXPECT_EQ(vnkFreeSpectrum(nullptr), -4);
    EXPECT_EQ(vnkFreeBaseband(nullptr), -4);
    vnkIQRecord* pIQ = nullptr;
    vnkSpectrumRecord* pSpectrum = nullptr;
    vnkBasebandRecord* pBaseband = nullptr;
    EXPECT_EQ(vnkFreeIQ(&pIQ), -20);
    EXPECT_EQ(vnkFreeSpectrum(&pSpectrum), -20);
    EXPECT_EQ(vnkFreeBaseband(&pBaseband), -20);
}

TEST_F(StreamRecordsTest, SecondGivingBackOfAVariableIsTold) {
    SpectrumStream cSpectrum;
    cSpectrum.receive(makeSpectrum(fieldsAt(0), ramp(4)));
    vnkSpectrumRecord* pSpectrum = nullptr;
    ASSERT_EQ(getNext(cSpectrum, &pSpectrum), 0);
    EXPECT_EQ(vnkFreeSpectrum(&pSpectrum), 0);
    EXPECT_EQ(vnkFreeSpectrum(&pSpectrum), -20);
    BasebandStream cBaseband;
    cBaseband.receive(makeBaseband(fieldsAt(0), {ramp(4)}));
    vnkBasebandRecord* pBaseband = nullptr;
    ASSERT_EQ(getNext(cBaseband, &pBaseband), 0);
    EXPECT_EQ(vnkFreeBaseband(&pBaseband), 0);
    EXPECT_EQ(vnkFreeBaseband(&pBaseband), -20);
}

// What is freed, and what not twice, is for a run under the address sanitizer to see.
TEST_F(StreamRecordsTest, RecordsOfTheCallersOwnMakingAreFreedWithWhatTheyHold) {
    auto* pIQ = onHeap<vnkIQRecord>();
    pIQ->samples = onHeap<float>(8);
    pIQ->extras = ::strdup("{}");
    EXPECT_EQ(vnkFreeIQ(&pIQ), 0);
    EXPECT_EQ(pIQ, nullptr);
    auto* pSpectrum = onHeap<vnkSpectrumRecord>();
    pSpectrum->points = onHeap<float>(8);
    pSpectrum->traces = onHeap<const float*>(2);
    pSpectrum->extras = ::strdup("{}");
    EXPECT_EQ(vnkFreeSpectrum(&pSpectrum), 0);
    EXPECT_EQ(pSpectrum, nullptr);
    auto* pBaseband = onHeap<vnkBasebandRecord>();
    pBaseband->channels = onHeap<const float*>(2);
    pBaseband->extras = ::strdup("{}");
    EXPECT_EQ(vnkFreeBaseband(&pBaseband), 0);
    EXPECT_EQ(pBaseband, nullptr);
}

TEST_F(StreamRecordsTest, EmptyRecordsOfTheCallersOwnMakingAreFreedToo) {
    auto* pIQ = onHeap<vnkIQRecord>();
    auto* pSpectrum = onHeap<vnkSpectrumRecord>();
    auto* pBaseband = onHeap<vnkBasebandRecord>();
    EXPECT_EQ(vnkFreeIQ(&pIQ), 0);
    EXPECT_EQ(vnkFreeSpectrum(&pSpectrum), 0);
    EXPECT_EQ(vnkFreeBaseband(&pBaseband), 0);
}

// Recording.

class StreamFilesTest : public vnktest::FlowTest {
 protected:
    /// A pair with one frame of four samples or points; of an unknown kind without any.
    std::string writePair(const std::string& type) {
        writeWhole(mcFolder.file(type + ".json"), "{\"DataType\":\"" + type +
                                                      "\",\"Sampling\":{\"FCentreHz\":5.0},\"" + type +
                                                      "\":{\"TimeResolution\":\"ns\",\"Samples\":4}}");
        Bytes cBytes;
        if (type == "IQ")
            cBytes.u32(0x12F7A2E6).u64(11).u32(3).u32(4).floats(ramp(8));
        else if (type == "Spectrum")
            cBytes.u32(0x59EC7422).u64(11).u64(0).u32(3).u32(4).floats(ramp(4));
        else if (type == "Baseband")
            cBytes.u32(0xBA5EBA4D).u32(4).u32(1).floats(ramp(4));
        writeWhole(mcFolder.file(type + ".data"), cBytes.text());
        return mcFolder.path(type + ".json");
    }
    int32_t recordTo(uint32_t uStream, const std::string& name) {
        return vnkSetStreamOutputFile(uStream, mcFolder.path(name).c_str());
    }
    vnktest::TempFolder mcFolder;
};

TEST_F(StreamFilesTest, HandleThatNamesNoStreamCannotBeRecorded) {
    PlainStream cPlain;
    for (const uint32_t uHandle : {closedHandle(), uint32_t{cPlain}}) {
        EXPECT_EQ(recordTo(uHandle, "x.json"), -17);
        EXPECT_EQ(vnkSetStreamOutputFile(uHandle, nullptr), -17);
    }
    EXPECT_TRUE(mcFolder.names().empty());
}

TEST_F(StreamFilesTest, NullPathEndsARecordingAsAnEmptyOneDoes) {
    for (const char* pPath : {static_cast<const char*>(nullptr), ""}) {
        BasebandStream cStream;
        EXPECT_EQ(vnkSetStreamOutputFile(cStream, pPath), -70);
        ASSERT_EQ(recordTo(cStream, "x.json"), 0);
        EXPECT_EQ(vnkSetStreamOutputFile(cStream, pPath), 0);
        EXPECT_EQ(vnkSetStreamOutputFile(cStream, pPath), -70);
    }
    EXPECT_EQ(readWhole(mcFolder.file("x(1).json")), "{\r\n}");
}

TEST_F(StreamFilesTest, RecordingThatCannotBeginLeavesTheEarlierOne) {
    SpectrumStream cStream;
    EXPECT_EQ(recordTo(cStream, "missing\\x.json"), -71);
    ASSERT_EQ(recordTo(cStream, "x.json"), 0);
    cStream.receive(makeSpectrum(fieldsAt(3, 11), ramp(4)));
    EXPECT_EQ(recordTo(cStream, "missing\\x.json"), -71);
    cStream.receive(makeSpectrum(fieldsAt(4, 12), ramp(4)));
    EXPECT_EQ(vnkSetStreamOutputFile(cStream, nullptr), 0);
    EXPECT_EQ(readWhole(mcFolder.file("x.data")),
              Bytes().u32(0x59EC7422).u64(11).u64(0).u32(3).u32(4).floats(ramp(4)).text() +
                  Bytes().u32(0x59EC7422).u64(12).u64(0).u32(4).u32(4).floats(ramp(4)).text());
}

TEST_F(StreamFilesTest, ClosingAStreamEndsItsRecording) {
    BasebandStream cStream;
    ASSERT_EQ(recordTo(cStream, "x.json"), 0);
    cStream.receive(makeBaseband(fieldsAt(0), {ramp(4)}));
    cStream.close();
    EXPECT_NE(readWhole(mcFolder.file("x.json")).find("\"DataType\":\"Baseband\""), std::string::npos);
    EXPECT_EQ(readWhole(mcFolder.file("x.data")),
              Bytes().u32(0xBA5EBA4D).u32(4).u32(1).floats(ramp(4)).text());
}

TEST_F(StreamFilesTest, NamesThatCannotBeNumberedPassTheirExceptionAndLeaveTheStreamAsItIs) {
    writeWhole(mcFolder.file("x(abc).json"), "");
    writeWhole(mcFolder.file("x(99999999999).json"), "");
    IQStream cStream;
    ASSERT_EQ(recordTo(cStream, "y.json"), 0);
    EXPECT_THROW(recordTo(cStream, "x(abc).json"), std::invalid_argument);
    EXPECT_THROW(recordTo(cStream, "x(99999999999).json"), std::out_of_range);
    cStream.receive(makeIQ(fieldsAt(0), ramp(4)));
    EXPECT_EQ(vnkSetStreamOutputFile(cStream, ""), 0);
    EXPECT_EQ(readWhole(mcFolder.file("y.data")).size(), 36u);
}

// Playing.

TEST_F(StreamFilesTest, FileIsLookedAtBeforeTheHandle) {
    const uint32_t uClosed = closedHandle();
    IQStream cStream;
    for (const uint32_t uHandle : {uClosed, uint32_t{cStream}}) {
        EXPECT_EQ(vnkAttachStreamToFile(uHandle, mcFolder.path("missing.json").c_str()), -29);
        EXPECT_EQ(vnkAttachStreamToFile(uHandle, "missing.json"), -29);
        EXPECT_EQ(vnkAttachStreamToFile(uHandle, ""), -29);
        EXPECT_EQ(vnkAttachStreamToFile(uHandle, nullptr), -29);
    }
}

TEST_F(StreamFilesTest, KindOfTheFileMustBeThatOfTheStream) {
    IQStream cIQ;
    SpectrumStream cSpectrum;
    BasebandStream cBaseband;
    for (const char* pType : {"IQ", "Spectrum", "Baseband", "Video"}) {
        const std::string path = writePair(pType);
        const auto status = [&](uint32_t uStream) { return vnkAttachStreamToFile(uStream, path.c_str()); };
        EXPECT_EQ(status(cIQ), std::strcmp(pType, "IQ") == 0 ? 0 : -30) << pType;
        EXPECT_EQ(status(cSpectrum), std::strcmp(pType, "Spectrum") == 0 ? 0 : -31) << pType;
        EXPECT_EQ(status(cBaseband), std::strcmp(pType, "Baseband") == 0 ? 0 : -79) << pType;
    }
}

TEST_F(StreamFilesTest, StreamOfNoKindIsToldWithALine) {
    const std::string path = writePair("IQ");
    PlainStream cPlain;
    for (const uint32_t uHandle : {closedHandle(), uint32_t{cPlain}}) {
        utils::RuntimeErrors::instance().clear();
        EXPECT_EQ(vnkAttachStreamToFile(uHandle, path.c_str()), -87);
        EXPECT_THAT(logged(1000),
                    testing::Contains("Unresolved stream handler type - should not be possible").Times(1));
    }
}

TEST_F(StreamFilesTest, RefusedFileLeavesTheStreamAsItIs) {
    const std::string spectrum = writePair("Spectrum");
    BasebandStream cStream;
    ASSERT_EQ(vnkAttachStreamToFile(cStream, spectrum.c_str()), -79);
    EXPECT_EQ(cStream->getInputFile(), nullptr);
    EXPECT_EQ(vnkIsAttached(cStream), 5);
    EXPECT_EQ(refusal<vnkBasebandRecord>(cStream), 3);
}

TEST_F(StreamFilesTest, PlayedFramesComeAsRecordsAndThenTheEnd) {
    SpectrumStream cSpectrum;
    ASSERT_EQ(vnkAttachStreamToFile(cSpectrum, writePair("Spectrum").c_str()), 0);
    vnkSpectrumRecord* pSpectrum = nullptr;
    ASSERT_TRUE(waitUntil([&] { return vnkGetNextSpectrum(cSpectrum, &pSpectrum, 100) == 0; }));
    EXPECT_EQ(pSpectrum->sequence, 3u);
    EXPECT_EQ(pSpectrum->timestamp, 11u);
    EXPECT_EQ(std::vector<float>(pSpectrum->points, pSpectrum->points + pSpectrum->pointCount), ramp(4));
    EXPECT_TRUE(waitUntil([&] { return refusal<vnkSpectrumRecord>(cSpectrum) == 2; }));
    EXPECT_EQ(vnkIsAttached(cSpectrum), 5);
    EXPECT_EQ(pSpectrum->points[3], 0.75f) << "of a file that has ended";
    EXPECT_EQ(vnkFreeSpectrum(&pSpectrum), 0);

    BasebandStream cBaseband;
    ASSERT_EQ(vnkAttachStreamToFile(cBaseband, writePair("Baseband").c_str()), 0);
    vnkBasebandRecord* pBaseband = nullptr;
    ASSERT_TRUE(waitUntil([&] { return vnkGetNextBaseband(cBaseband, &pBaseband, 100) == 0; }));
    EXPECT_EQ(pBaseband->channelCount, 1u);
    EXPECT_EQ(pBaseband->samplesPerChannel, 4u);
    EXPECT_TRUE(waitUntil([&] { return refusal<vnkBasebandRecord>(cBaseband) == 2; }));
    EXPECT_EQ(vnkFreeBaseband(&pBaseband), 0);
}

TEST_F(StreamFilesTest, LoopingFileIsDetachedOnce) {
    BasebandStream cStream;
    auto cRecord = vnktest::record("{\"LoopingFlag\":true}");
    cStream->setSinkParameters(cRecord, mlErrors, false);
    ASSERT_EQ(vnkAttachStreamToFile(cStream, writePair("Baseband").c_str()), 0);
    EXPECT_EQ(vnkIsAttached(cStream), 0);
    Taken<vnkBasebandRecord> cTaken;
    for (int i = 0; i < 20; ++i)
        ASSERT_TRUE(waitUntil([&] { return cTaken.next(cStream) == 0; }));
    EXPECT_EQ(vnkDetachStream(cStream), 0);
    EXPECT_EQ(vnkIsAttached(cStream), 5);
    EXPECT_EQ(vnkDetachStream(cStream), -44);
}

TEST_F(StreamFilesTest, StreamIsClosedWhileItsFilePlays) {
    const std::string path = writePair("IQ");
    for (int i = 0; i < 20; ++i) {
        uint32_t uStream = 0;
        ASSERT_EQ(vnkCreateIQStream(&uStream, 1e6f, 1e5f, -30.0f), 0);
        char* pParameters = ::strdup("{\"LoopingFlag\":true}");
        ASSERT_EQ(vnkSetParameters(uStream, &pParameters), 0);
        ASSERT_EQ(vnkAttachStreamToFile(uStream, path.c_str()), 0);
        EXPECT_EQ(vnkClose(&uStream), 0);
    }
}
