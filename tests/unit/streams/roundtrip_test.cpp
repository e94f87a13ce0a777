#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <cstring>
#include <future>

#include "streams/streamoutputfile.h"
#include "unit/streams/playbacksupport.h"

using vnktest::ClockedPlayer;
using vnktest::PlaybackSink;
using vnktest::readWhole;
using vnktest::TempFolder;

// What is recorded, played and recorded again. A recording takes a few milliseconds to end, so that each case
// makes several and ends them side by side.

namespace {

using Frames = std::vector<ReferencePtr<Frame>>;

constexpr size_t kRecordingsPerCase = 10;

rc::Gen<uint64_t> anyTime() {
    return rc::gen::oneOf(rc::gen::arbitrary<uint64_t>(),
                          rc::gen::element<uint64_t>(0, 1, UINT64_MAX, uint64_t{1} << 63),
                          rc::gen::map(rc::gen::arbitrary<uint32_t>(),
                                       [](uint32_t uOffset) { return 1700000000000000000u + uOffset; }));
}

rc::Gen<uint32_t> anySequence() {
    return rc::gen::oneOf(rc::gen::arbitrary<uint32_t>(),
                          rc::gen::element<uint32_t>(0, 1, 0xFFFFFFFE, 0xFFFFFFFF, 0x12F7A2E6));
}

/// Every pattern of bits, numbers or not.
rc::Gen<std::vector<float>> anySamples(size_t uCount) {
    return rc::gen::map(rc::gen::container<std::vector<uint32_t>>(uCount, rc::gen::arbitrary<uint32_t>()),
                        [](const std::vector<uint32_t>& lBits) {
                            std::vector<float> lValues(lBits.size());
                            if (!lBits.empty())
                                std::memcpy(lValues.data(), lBits.data(), 4 * lBits.size());
                            return lValues;
                        });
}

/// Values that the six decimals of the text hold exactly.
rc::Gen<float> anyNumber() {
    return rc::gen::element(0.0f, 1.0f, 0.015625f, 2.5e6f, 1.25e8f, 1.5e38f, 6e9f, 48000.0f, 44100.5f);
}

// Small ones mostly, and some around the sizes where reading changes its ways.
size_t anyCount() {
    return *rc::gen::weightedElement<size_t>(
        {{4, 1}, {4, 2}, {4, 7}, {3, 33}, {2, 500}, {2, 1023}, {1, 1024}, {1, 5000}, {1, 0}});
}

vnktest::FrameFields anyStream() {
    vnktest::FrameFields c;
    c.muResolution =
        *rc::gen::element<uint32_t>(kSeconds, kMilliseconds, kMicroseconds, kNanoseconds, kPicoseconds);
    c.mfCentreHz = *anyNumber();
    c.mfBandwidthHz = *rc::gen::element(0.0f, 1.0f, 2.5e6f, 4e7f);
    c.mfSampleRateHz = *anyNumber();
    c.mfRefdBm = *rc::gen::element(-30.0f, 0.0f, 10.0f);
    c.mfRBWHz = *anyNumber();
    c.mcWindowName = *rc::gen::element<std::string>("Hanning", "Kaiser", "", "Blackman Harris");
    c.mcUnits = *rc::gen::element<std::string>("", "sqrt-mw", "dBm", "dBm/Hz");
    return c;
}

Frames anyFrames(const std::function<ReferencePtr<Frame>(const vnktest::FrameFields&)>& make) {
    vnktest::FrameFields c = anyStream();
    Frames lFrames;
    const size_t uFrames = *rc::gen::inRange<size_t>(0, 8);
    for (size_t i = 0; i < uFrames; ++i) {
        c.muSequence = *anySequence();
        c.muTimestamp = *anyTime();
        c.muDuration = *anyTime();
        lFrames.push_back(make(c));
    }
    return lFrames;
}

ReferencePtr<Frame> anyIQ(const vnktest::FrameFields& c) {
    return vnktest::makeIQ(c, *anySamples(2 * anyCount()));
}

ReferencePtr<Frame> anySpectrum(const vnktest::FrameFields& c) {
    return vnktest::makeSpectrum(c, *anySamples(anyCount()));
}

ReferencePtr<Frame> anyBaseband(const vnktest::FrameFields& c) {
    std::vector<std::vector<float>> lChannels;
    const size_t uSamples = anyCount();
    for (size_t i = *rc::gen::inRange<size_t>(1, 4); i > 0; --i)
        lChannels.push_back(*anySamples(uSamples));
    return vnktest::makeBaseband(c, lChannels);
}

std::string storedBytes(const Frames& lFrames) {
    std::ostringstream cStream;
    for (const auto& cFrame : lFrames)
        cFrame->writeTo(cStream);
    return cStream.str();
}

uint64_t samplesOf(const Frame& cFrame) {
    uint32_t uCount = 0;
    if (const auto* pIQ = dynamic_cast<const IQFrame*>(&cFrame))
        pIQ->getSamples(uCount);
    else if (const auto* pSpectrum = dynamic_cast<const SpectrumFrame*>(&cFrame))
        pSpectrum->getSpectrum(uCount);
    else
        uCount = dynamic_cast<const BasebandFrame&>(cFrame).samplesPerChannel();
    return uCount;
}

/// What a player gives: a frame without samples ends the pass, and so does the total of samples once it has
/// been reached, which frames without samples at the end do not move.
Frames playable(const Frames& lFrames) {
    Frames lPlayable;
    for (const auto& cFrame : lFrames) {
        if (samplesOf(*cFrame) == 0)
            break;
        lPlayable.push_back(cFrame);
    }
    return lPlayable;
}

/// The stems of the recordings, all complete.
std::vector<std::string> record(const TempFolder& cFolder, const std::vector<Frames>& lStreams,
                                const std::string& name) {
    std::vector<std::string> lStems;
    std::vector<std::future<void>> lEnds;
    for (const Frames& lFrames : lStreams) {
        const std::string stem = cFolder.path(name + std::to_string(lStems.size()));
        auto cFile = makeReference<StreamOutputFile>(stem, nullptr);
        RC_ASSERT(cFile->getPath() == stem + ".json");
        for (const auto& cFrame : lFrames)
            RC_ASSERT(cFile->addFrame(cFrame));
        lStems.push_back(stem);
        lEnds.push_back(
            std::async(std::launch::async, [cEnding = std::move(cFile)]() mutable { cEnding.release(); }));
    }
    for (auto& cEnd : lEnds)
        cEnd.get();
    return lStems;
}

Frames play(const std::string& stem) {
    const auto cPlayer = makeReference<ClockedPlayer>(stem);
    RC_ASSERT(cPlayer->isOpen());
    auto cSink = makeReference<PlaybackSink>();
    ErrorList lErrors;
    cPlayer->attachFrameSink(cSink, lErrors);
    cPlayer->run();
    RC_ASSERT(cSink->nullCount() == 1u);
    Frames lFrames;
    for (const Frame* pFrame : cSink->frames<Frame>())
        lFrames.push_back(ReferencePtr<Frame>(const_cast<Frame*>(pFrame)));
    return lFrames;
}

std::string native(std::string path) {
    std::replace(path.begin(), path.end(), '\\', '/');
    return path;
}

void expectSameStream(const Frame& cPlayed, const Frame& cRecorded) {
    RC_ASSERT(cPlayed.getTypeName() == cRecorded.getTypeName());
    RC_ASSERT(cPlayed.timeResolution() == cRecorded.timeResolution());
    RC_ASSERT(cPlayed.referenceLevel() == 0.0f);
    RC_ASSERT(!cPlayed.isLive());
}

/// What the first frame of its stream told is what all played frames tell.
struct Comparison {
    uint64_t muPosition = 0;
    uint32_t muNumber = 0;
    ReferencePtr<Frame> mcFirst;

    void operator()(const IQFrame& cPlayed, const IQFrame& cRecorded) {
        RC_ASSERT(cPlayed.timestamp() == cRecorded.timestamp());
        RC_ASSERT(cPlayed.sequence() == cRecorded.sequence());
        RC_ASSERT(cPlayed.centreFrequency() == cRecorded.centreFrequency());
        RC_ASSERT(cPlayed.bandwidth() == cRecorded.bandwidth());
        RC_ASSERT(cPlayed.sampleRate() == cRecorded.sampleRate());
        RC_ASSERT(cPlayed.getUnits() == cRecorded.getUnits());
        RC_ASSERT(cPlayed.zerothSample() == muPosition);
        muPosition += samplesOf(cPlayed);
    }
    void operator()(const SpectrumFrame& cPlayed, const SpectrumFrame& cRecorded) {
        const float fMinimum = cRecorded.centreFrequency() - cRecorded.bandwidth() * 0.5f;
        const float fMaximum = cRecorded.centreFrequency() + cRecorded.bandwidth() * 0.5f;
        RC_ASSERT(cPlayed.timestamp() == cRecorded.timestamp());
        RC_ASSERT(cPlayed.duration() == cRecorded.duration());
        RC_ASSERT(cPlayed.sequence() == cRecorded.sequence());
        RC_ASSERT(cPlayed.centreFrequency() == (fMinimum + fMaximum) * 0.5f);
        RC_ASSERT(cPlayed.bandwidth() == fMaximum - fMinimum);
        RC_ASSERT(cPlayed.rbw() == cRecorded.rbw());
        RC_ASSERT(cPlayed.windowName() == cRecorded.windowName());
        RC_ASSERT(cPlayed.getUnits() == cRecorded.getUnits());
    }
    void operator()(const BasebandFrame& cPlayed, const BasebandFrame& cRecorded) {
        // Neither is in the file: the time is that of the first frame, in nanoseconds.
        RC_ASSERT(cPlayed.timestamp() == mcFirst->getTimestamp(kNanoseconds));
        RC_ASSERT(cPlayed.sequence() == muNumber++);
        RC_ASSERT(cPlayed.sampleRate() == cRecorded.sampleRate());
        RC_ASSERT(cPlayed.usableBandwidth() == cRecorded.bandwidth());
        RC_ASSERT(cPlayed.channelCount() == cRecorded.channelCount());
    }
};

template <typename T>
void expectSame(const Frames& lPlayed, const Frames& lRecorded) {
    const Frames lExpected = playable(lRecorded);
    RC_ASSERT(lPlayed.size() == lExpected.size());
    Comparison cComparison;
    cComparison.mcFirst = lRecorded.empty() ? nullptr : lRecorded.front();
    for (size_t i = 0; i < lPlayed.size(); ++i) {
        expectSameStream(*lPlayed[i], *lExpected[i]);
        cComparison(dynamic_cast<const T&>(*lPlayed[i]), dynamic_cast<const T&>(*lExpected[i]));
    }
}

template <typename T>
void expectRoundTrip(const std::function<ReferencePtr<Frame>(const vnktest::FrameFields&)>& make) {
    const TempFolder cFolder;
    std::vector<Frames> lStreams;
    for (size_t i = 0; i < kRecordingsPerCase; ++i)
        lStreams.push_back(anyFrames(make));
    const auto lStems = record(cFolder, lStreams, "first");
    std::vector<Frames> lPlayed;
    for (size_t i = 0; i < lStreams.size(); ++i) {
        RC_ASSERT(readWhole(native(lStems[i]) + ".data") == storedBytes(lStreams[i]));
        if (lStreams[i].empty()) {  // which has a description of nothing
            RC_ASSERT(!makeReference<StreamInputFile>(lStems[i])->isOpen());
            lPlayed.push_back({});
            continue;
        }
        lPlayed.push_back(play(lStems[i]));
        expectSame<T>(lPlayed[i], lStreams[i]);
    }
    const auto lAgain = record(cFolder, lPlayed, "second");
    for (size_t i = 0; i < lPlayed.size(); ++i)
        RC_ASSERT(readWhole(native(lAgain[i]) + ".data") == storedBytes(playable(lStreams[i])));
}

}  // namespace

RC_GTEST_PROP(RoundTrip, samplesComeBackAsTheyWereRecorded, ()) {
    expectRoundTrip<IQFrame>(anyIQ);
}

RC_GTEST_PROP(RoundTrip, spectraComeBackAsTheyWereRecorded, ()) {
    expectRoundTrip<SpectrumFrame>(anySpectrum);
}

RC_GTEST_PROP(RoundTrip, basebandComesBackAsItWasRecorded, ()) {
    expectRoundTrip<BasebandFrame>(anyBaseband);
}
