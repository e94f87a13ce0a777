#include "streams/streamhandler.h"

#include "foundations/runtimeerrors.h"

namespace {

constexpr int32_t kStreamHandlerCode = -9000;

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
