#include "tools/iqfeed.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "tools/interrupt.h"

namespace cli {

namespace {

constexpr uint32_t kPollMs = 100;
// A start takes a unit up to two seconds and is tried again; after this nothing more is to be hoped for.
constexpr auto kSilenceLimit = std::chrono::seconds(15);
// Too short an input makes no frame at the end of a chain, and then the end does not show there either.
constexpr auto kDrainLimit = std::chrono::seconds(2);
constexpr int32_t kNoteDiscarded = -3003;

}  // namespace

IqFeed::IqFeed(IqInput& input)
    : mcInput(input),
      mcStream(input.isRecording() ? 0 : input.request().centreHz,
               input.isRecording() ? 0 : input.request().bandwidthHz,
               input.isRecording() ? 0 : input.request().referenceDbm) {
    setParameters(mcStream.handle(), "{\"bufferFrames\":256" + input.source().streamParameters() + "}");
}

void IqFeed::start() {
    mcInput.source().attach(mcStream);
    mcLast = mcLastOutput = Clock::now();
}

bool IqFeed::waitForFirst() {
    while (!begun()) {
        IqRecord record;
        const int32_t iStatus = mcStream.next(record, kPollMs);
        if (iStatus == kStatusFrame)
            take(*record);
        else if (interrupted())
            meEnding = Ending::interrupted;
        else if (iStatus == kStatusEnded)
            meEnding = mcInput.source().endOfStream();
        else if (look())
            continue;
        if (!begun())
            return false;
    }
    return true;
}

bool IqFeed::look() {
    for (;;) {
        IqRecord record;
        const int32_t iStatus = mcStream.next(record, 0);
        if (iStatus == kStatusFrame) {
            take(*record);
            continue;
        }
        if (iStatus == kStatusNotResponding) {
            meEnding = Ending::linkLost;
            return false;
        }
        if (iStatus < 0)
            throw Failure(Exit::failure, explain(iStatus));
        if (iStatus == kStatusEnded && !mbEnded)
            noteEnd();
        break;
    }
    if (mbEnded || Clock::now() - mcLast < kSilenceLimit)
        return true;
    const std::optional<Ending> ending = mcInput.source().silence();
    meEnding = ending.value_or(meEnding);
    return !ending;
}

void IqFeed::noteEnd() {
    mbEnded = true;
    mcEnd = Clock::now();
    meEnding = mcInput.source().endOfStream();
}

void IqFeed::take(const vnkIQRecord& record) {
    mcLast = Clock::now();
    mdCentreHz = record.centreHz;
    mdBandwidthHz = static_cast<double>(record.bandwidthHz);
    mdSampleRateHz = static_cast<double>(record.sampleRateHz);
    muGaps += muFrames > 0 && record.sequenceGap;
    muOverflows += record.extras && std::strstr(record.extras, "overflow") != nullptr;
    ++muFrames;
    muSamples += record.sampleCount;
    mcLevels.feed(record.samples, record.sampleCount);
}

bool IqFeed::hasDrained() const {
    return mbEnded && Clock::now() - std::max(mcEnd, mcLastOutput) > kDrainLimit;
}

uint64_t droppedFrames(Session& session) {
    constexpr size_t kAll = 1000000;
    constexpr const char* kBefore = "FRAME DISCARD: ";
    uint64_t uDropped = 0;
    for (const std::string& note :
         session.notes([](const std::string&, int code) { return code == kNoteDiscarded; }, kAll))
        if (const auto uAt = note.find(kBefore); uAt != std::string::npos)
            uDropped += std::strtoull(note.c_str() + uAt + std::strlen(kBefore), nullptr, 10);
    return uDropped;
}

}  // namespace cli
