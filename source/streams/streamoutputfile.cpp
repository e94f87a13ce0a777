#include "streams/streamoutputfile.h"

#include <csignal>
#include <cstring>
#include <exception>
#include <thread>
#include <utility>

#include "foundations/runtimeerrors.h"
#include "foundations/text.h"
#include "streams/recordingpath.h"

namespace {

constexpr int32_t kWriteFailedCode = -71;
constexpr int32_t kWrongFrameCode = -28;
constexpr uint32_t kWriterPriority = 4;
constexpr uint64_t kQueueLimitBytes = 104857600;
constexpr uint64_t kIdleWaitUs = 100000;
constexpr uint32_t kIdleWaits = 10;
constexpr uint64_t kDrainWaitUs = 100000;
constexpr uint32_t kEndLimitMs = 1000;

/// A limit on the size of files shall fail a write and not end the process. The thread is left as it was.
class FileSizeSignalBlock {
 public:
    FileSizeSignalBlock() {
        sigemptyset(&mcSignal);
        sigaddset(&mcSignal, SIGXFSZ);
        mbChanged = pthread_sigmask(SIG_BLOCK, &mcSignal, &mcBefore) == 0 && !sigismember(&mcBefore, SIGXFSZ);
    }
    ~FileSizeSignalBlock() {
        if (!mbChanged)
            return;
        constexpr timespec kAtOnce{};
        sigtimedwait(&mcSignal, nullptr, &kAtOnce);   // one that a write has left pending
        pthread_sigmask(SIG_SETMASK, &mcBefore, nullptr);
    }
    FileSizeSignalBlock(const FileSizeSignalBlock&) = delete;
    FileSizeSignalBlock& operator=(const FileSizeSignalBlock&) = delete;

 private:
    sigset_t mcSignal;
    sigset_t mcBefore;
    bool mbChanged;
};

}  // namespace

/// A frame leaves the list when it has been dealt with, also by an exception: no frame is met for ever.
class StreamOutputFile::HeadRemover {
 public:
    HeadRemover(StreamOutputFile& cFile, uint64_t uNumber) : mcFile(cFile), muNumber(uNumber) {}
    ~HeadRemover() { mcFile.removeHead(muNumber); }
    HeadRemover(const HeadRemover&) = delete;
    HeadRemover& operator=(const HeadRemover&) = delete;

 private:
    StreamOutputFile& mcFile;
    uint64_t muNumber;
};

StreamOutputFile::StreamOutputFile(const std::string& path, ReferencePtr<Entity> cSource)
    : utils::Thread("StreamOutputFile") {
    const std::string wanted = RecordingPath::stemOf(path) + ".json";
    mcPath = RecordingPath::makeUnique(wanted);
    mbOpen = !mcPath.empty();
    if (!mbOpen)
        return;
    if (cSource)
        mcDescription.takeSource(cSource->getParameters());
    openFiles(wanted);
}

// Another recording may take the name between the look and the opening: then the look is repeated. A file that
// is there and cannot be read is taken over.
void StreamOutputFile::openFiles(const std::string& wanted) {
    while (!mcJSON.buffer().open(mcPath, true)) {
        std::string next = RecordingPath::makeUnique(wanted);
        if (next.empty() || next == mcPath) {
            mcJSON.buffer().open(mcPath, false);
            break;
        }
        mcPath = std::move(next);
    }
    mcData.buffer().open(RecordingPath::stemOf(mcPath) + ".data", false);
}

StreamOutputFile::~StreamOutputFile() {
    finish();
    closeFiles();
}

void StreamOutputFile::destroySelf() noexcept {
    finish();
    retire(kEndLimitMs, [this] { delete this; });
}

// The producer's side.

bool StreamOutputFile::addFrame(ReferencePtr<Frame> cFrame) {
    if (!mbOpen || cFrame == nullptr)
        return false;
    std::list<ReferencePtr<Frame>> lNew(1, cFrame);
    std::list<ReferencePtr<Frame>> lDropped;   // freed after the lock has been let go
    utils::ScopedLock cLock(mcFrameListLock);
    if (mbFinished)
        return false;
    mlFrames.splice(mlFrames.end(), lNew);
    dropBeyondLimit(*cFrame, lDropped);
    const bool bStart = !std::exchange(mbWriting, true);
    cLock.unlock();
    wakeWriter(bStart);
    return true;
}

// The oldest go first; the head may be one that is being written. The limit is on the newest frame's size.
void StreamOutputFile::dropBeyondLimit(const Frame& cNewest, std::list<ReferencePtr<Frame>>& lDropped) {
    const uint64_t uBytes = cNewest.getDataBytes();
    while (uBytes * mlFrames.size() > kQueueLimitBytes) {
        lDropped.splice(lDropped.end(), mlFrames, mlFrames.begin());
        ++muRemoved;
    }
}

void StreamOutputFile::wakeWriter(bool bStart) {
    if (!bStart) {
        mcFrameListBarrier.signal();
        return;
    }
    try {
        // A writer that has just found nothing to do is at its very end.
        while (!start(kWriterPriority))
            std::this_thread::yield();
    } catch (const std::exception&) {
        // No thread to be had now: the next frame asks again, and the end of the recording writes what is left.
        setWriting(false);
    }
}

bool StreamOutputFile::setWriting(bool bWriting) {
    utils::ScopedLock cLock(mcFrameListLock);
    return std::exchange(mbWriting, bWriting);
}

// The writer's side.

void StreamOutputFile::run() {
    const FileSizeSignalBlock cBlock;
    try {
        writeUntilIdle();
    } catch (...) {
        setWriting(false);
        throw;
    }
}

void StreamOutputFile::writeUntilIdle() {
    uint32_t uIdle = 0;
    while (!isStopping()) {
        const Head cHead = head();
        if (cHead.mcFrame) {
            if (writeFrame(cHead))
                uIdle = 0;
            continue;
        }
        if (!mcFrameListBarrier.wait(kIdleWaitUs))
            ++uIdle;
        if ((uIdle > kIdleWaits || mbDraining) && endIfIdle())
            return;
    }
}

StreamOutputFile::Head StreamOutputFile::head() {
    utils::ScopedLock cLock(mcFrameListLock);
    Head cHead;
    cHead.muNumber = muRemoved;
    if (!mlFrames.empty())
        cHead.mcFrame = mlFrames.front();
    return cHead;
}

size_t StreamOutputFile::queued() {
    utils::ScopedLock cLock(mcFrameListLock);
    return mlFrames.size();
}

/// Unless it has been dropped while it was written.
void StreamOutputFile::removeHead(uint64_t uNumber) {
    std::list<ReferencePtr<Frame>> lRemoved;
    utils::ScopedLock cLock(mcFrameListLock);
    if (muRemoved == uNumber && !mlFrames.empty()) {
        lRemoved.splice(lRemoved.end(), mlFrames, mlFrames.begin());
        ++muRemoved;
    }
    const bool bEmpty = mlFrames.empty();
    cLock.unlock();
    if (bEmpty)
        notify();   // whoever drains
}

bool StreamOutputFile::endIfIdle() {
    utils::ScopedLock cLock(mcFrameListLock);
    if (!mlFrames.empty())
        return false;
    mbWriting = false;
    return true;
}

bool StreamOutputFile::writeFrame(const Head& cHead) {
    const Frame& cFrame = *cHead.mcFrame;
    if (!mcDescription.dataType().empty() && mcDescription.dataType() != cFrame.getTypeName()) {
        refuseType(cHead);
        return false;
    }
    const HeadRemover cRemover(*this, cHead.muNumber);
    mcDescription.note(cFrame);
    cFrame.writeTo(mcData);
    // Flushed with each frame: a process that is killed loses what was queued, and nothing else.
    if (!mbFailed && !(mcData.good() && mcData.buffer().commit()))
        giveUp(mcData);
    return true;
}

// Sinks let one type through only, so that such a frame stays where it is, for all to see; but an end of the
// recording that waits for an empty list must come.
void StreamOutputFile::refuseType(const Head& cHead) {
    if (std::exchange(muRefused, cHead.muNumber) != cHead.muNumber)
        utils::reportError(kWrongFrameCode, "StreamFile::addFrame called with incorrect frame type");
    if (mbDraining)
        removeHead(cHead.muNumber);
    else
        mcFrameListBarrier.wait(kIdleWaitUs);
}

void StreamOutputFile::giveUp(OutputFile& cFile) {
    reportOnce(cFile);
    cFile.setstate(std::ios_base::badbit);
    cFile.buffer().rollBack();
}

void StreamOutputFile::reportOnce(OutputFile& cFile) {
    if (!std::exchange(mbFailed, true))
        utils::reportError(kWriteFailedCode,
                           utils::formatText("StreamOutputFile: writing '%s' failed: %s", mcPath.c_str(),
                                             std::strerror(cFile.buffer().lastError())));
}

// The end.

void StreamOutputFile::finish() noexcept {
    {
        utils::ScopedLock cLock(mcFrameListLock);
        mbFinished = true;
    }
    drain();
    // A writer that is later than that still uses the files: the end of the object waits for it.
    if (stop(kEndLimitMs) && !isOwnThread())
        closeFiles();
}

void StreamOutputFile::closeFiles() {
    if (!mbOpen || mbComplete.exchange(true))
        return;
    try {
        writeDescription();
        for (OutputFile* pFile : {&mcJSON, &mcData})
            if (!pFile->buffer().close())
                reportOnce(*pFile);
    } catch (...) {
        // No memory for the text: as after a process that was killed.
    }
}

void StreamOutputFile::drain() {
    mbDraining = true;
    if (isOwnThread()) {
        writeQueued();
        return;
    }
    while (queued() != 0) {
        wakeWriter(!setWriting(true));
        sleepMicroseconds(kDrainWaitUs);
        if (!isRunning())
            writeQueued();
    }
    mcFrameListBarrier.signal();
}

/// On the thread that ends the recording, where the system has none for a writer.
void StreamOutputFile::writeQueued() {
    const FileSizeSignalBlock cBlock;
    for (Head cHead = head(); cHead.mcFrame; cHead = head()) {
        try {
            writeFrame(cHead);
        } catch (...) {
            // The frame has left the list.
        }
    }
}

void StreamOutputFile::writeDescription() {
    const FileSizeSignalBlock cBlock;
    const std::string text = mcDescription.toText();
    mcJSON.write(text.data(), static_cast<std::streamsize>(text.size()));
    // Rather none than half of one: what is left is then the same as after a process that was killed.
    if (!(mcJSON.good() && mcJSON.buffer().commit()))
        giveUp(mcJSON);
}
