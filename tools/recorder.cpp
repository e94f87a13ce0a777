#include "tools/recorder.h"

#include <sys/statvfs.h>

#include "tools/output.h"
#include "tools/units.h"

namespace cli {

namespace {

constexpr int kWriteFailedCode = -71;
/// What the disk must keep beyond the recording: the description, and data that wait to be written.
constexpr double kReserveBytes = 4e6, kReserveSeconds = 2;

std::string roomFor(uint64_t bytes) {
    return "the disk has room for " + formatBytes(bytes);
}

}  // namespace

std::optional<uint64_t> freeBytes(const std::string& path) {
    struct statvfs status {};
    if (::statvfs(path.c_str(), &status) != 0 || status.f_blocks == 0)
        return std::nullopt;
    return uint64_t{status.f_bavail} * status.f_frsize;
}

uint64_t Recorder::reserveBytes() const {
    return static_cast<uint64_t>(kReserveBytes + kReserveSeconds * mdBytesPerSecond);
}

void Recorder::start(Stream& stream, double sampleRateHz, double seconds) {
    mdSampleRateHz = sampleRateHz;
    mdBytesPerSecond = sampleRateHz * mdSampleBytes;
    checkRoom(seconds);
    const int32_t iStatus = vnkSetStreamOutputFile(stream.handle(), mcName.name().libraryPath().c_str());
    if (iStatus != 0)
        throw Failure(Exit::file, mcName.name().stem() + ": " + explain(iStatus));
    mcName.keep();
    mbStarted = true;
    vnkFlushStream(stream.handle());
}

void Recorder::checkRoom(double seconds) {
    const auto room = freeBytes(mcName.name().data());
    const double dNeeded = seconds * mdBytesPerSecond;
    if (!room || dNeeded + static_cast<double>(reserveBytes()) <= static_cast<double>(*room))
        return;
    std::string text = mcName.name().data() + ": ";
    if (seconds > 0)
        text += formatDuration(seconds) + " at " + formatSI(mdSampleRateHz, "S/s", 4) + " need " +
                formatSI(dNeeded, "B", 3) + ", ";
    text += roomFor(*room);
    if (!mbForced)
        throw Failure(Exit::file, text + ", of which " + formatBytes(reserveBytes()) +
                                      " stay free; --force records until it is full");
    printErr("Warning: " + text);
}

std::string Recorder::roomText() const {
    const auto room = freeBytes(mcName.name().data());
    if (!room || !(mdBytesPerSecond > 0))
        return {};
    return "room for " + formatBytes(*room) + ", " +
           formatDuration(static_cast<double>(*room) / mdBytesPerSecond);
}

void Recorder::noteFailure() {
    for (const std::string& note :
         mcSession.notes([](const std::string&, int code) { return code == kWriteFailedCode; }))
        mcFailure = note;
}

std::optional<Ending> Recorder::watch() {
    noteFailure();
    if (!mcFailure.empty())
        return Ending::writeFailed;
    const auto room = freeBytes(mcName.name().data());
    if (!mbForced && room && *room < reserveBytes())
        return Ending::diskFull;
    return std::nullopt;
}

void Recorder::end(Stream& stream) {
    if (!mbStarted)
        return;
    // The source first: a frame that was read from the queue is on its way to the file until its thread is
    // done.
    stream.detach();
    vnkSetStreamOutputFile(stream.handle(), nullptr);
    noteFailure();
    mcDescription = readDescription(mcName.name().description());
    muRecorded = countOf(mcDescription.summary, "Samples").value_or(0);
    RecordingReader reader(mcName.name().data());
    muDataBytes = reader.size();
    // After a failure the description tells also of frames that were lost.
    if (!mcFailure.empty())
        muRecorded = summarize(reader, mcDescription.secondsPerTick(), mdSampleRateHz).samples;
}

}  // namespace cli
