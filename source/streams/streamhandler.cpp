#include "streams/streamhandler.h"

#include "foundations/runtimeerrors.h"

namespace {

constexpr int32_t kStreamHandlerCode = -9000;
constexpr int32_t kNoRecording = -70;
constexpr int32_t kNotRecording = -71;
constexpr uint32_t kFileEndLimitMs = 1000;

}  // namespace

StreamHandler::StreamHandler() : FrameSource("StreamHandler") {
    utils::reportError(kStreamHandlerCode, "StreamHandler created");
}

ReferencePtr<Entity> StreamHandler::getSource() {
    utils::ScopedLock cLock(mcHandlerLock);
    return mcSource;
}

ReferencePtr<Entity> StreamHandler::exchangeSource(ReferencePtr<Entity> cSource) {
    utils::ScopedLock cLock(mcHandlerLock);
    std::swap(mcSource, cSource);
    return cSource;
}

// Playing.

ReferencePtr<StreamInputFile> StreamHandler::getInputFile() {
    utils::ScopedLock cLock(mcHandlerLock);
    return mcInputFile;
}

ReferencePtr<StreamInputFile> StreamHandler::exchangeInputFile(ReferencePtr<StreamInputFile> cFile) {
    utils::ScopedLock cLock(mcHandlerLock);
    std::swap(mcInputFile, cFile);
    return cFile;
}

void StreamHandler::setInputFile(ReferencePtr<StreamInputFile> cFile) {
    exchangeInputFile(cFile);
    // Behind the exchange: a flag that is set meanwhile reaches the file one way or the other.
    if (cFile)
        cFile->setLooping(mbLooping);
}

void StreamHandler::setLooping(bool bLooping) {
    mbLooping = bLooping;
    if (const ReferencePtr<StreamInputFile> cFile = getInputFile())
        cFile->setLooping(bLooping);
}

bool StreamHandler::playFile(ReferencePtr<StreamInputFile> cFile) {
    const ReferencePtr<FrameSink> cSink(&sink());
    utils::ScopedLock cPlaying(mcPlayLock);
    if (const ReferencePtr<StreamInputFile> cBefore = exchangeInputFile(nullptr)) {
        cBefore->removeFrameSink(cSink);
        cBefore->stop(kFileEndLimitMs);
    }
    setInputFile(cFile);
    ErrorList lErrors;
    if (!cFile->attachFrameSink(cSink, lErrors))
        return false;
    if (isClosed())
        detachFromSource();
    if (!(getInputFile() == cFile)) {
        // Detached before the file knew of this stream: the detach stands.
        cFile->removeFrameSink(cSink);
        return false;
    }
    cFile->setPaced(true);
    try {
        cFile->play();
    } catch (...) {
        detachFromSource();
        throw;
    }
    return true;
}

// Recording.

ReferencePtr<StreamOutputFile> StreamHandler::getOutputFile() {
    utils::ScopedLock cLock(mcOutputLock);
    return mcOutputFile;
}

int32_t StreamHandler::setOutputFile(const std::string& path) {
    ReferencePtr<StreamOutputFile> cFile;
    if (!path.empty()) {
        cFile = makeReference<StreamOutputFile>(path, getSource());
        if (!cFile->isOpen())
            return kNotRecording;
    }
    utils::ScopedLock cLock(mcOutputLock);
    std::swap(mcOutputFile, cFile);
    cLock.unlock();
    if (cFile)
        cFile->finish();   // the one before
    return path.empty() && !cFile ? kNoRecording : 0;
}

void StreamHandler::close() {
    mbClosed = true;
    while (detachFromSource()) {
    }
    setOutputFile({});
    // A producer in the middle of a delivery may keep this object for long: those behind it are let go here.
    releaseSinks();
}

void StreamHandler::record(const ReferencePtr<Frame>& cFrame) {
    utils::ScopedLock cLock(mcOutputLock);
    if (mcOutputFile)
        mcOutputFile->addFrame(cFrame);
}
