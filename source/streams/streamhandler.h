#pragma once

#include "flows/framesource.h"

/// What a stream handle stands for: a sink that queues frames for the caller and a source that passes them
/// on. Used through its concrete classes, which have the typed sink as second base.
class StreamHandler : public FrameSource {
 public:
    StreamHandler();

    virtual bool attachToSource(ReferencePtr<Entity> cSource, ErrorList& lErrors) = 0;
    virtual bool detachFromSource() = 0;
    virtual bool isSinkExhausted() = 0;

    ReferencePtr<Entity> getSource();
    /// The first non-null frame has arrived.
    bool isStarted() const { return mbStarted.load(std::memory_order_relaxed); }

 protected:
    /// Stores a source and gives the one before.
    ReferencePtr<Entity> exchangeSource(ReferencePtr<Entity> cSource);

    /// Guards the source field; a leaf, never held across a call to another object.
    utils::NamedLock mcHandlerLock{"StreamHandler::mcHandlerLock"};
    ReferencePtr<Entity> mcSource GUARDED_BY(mcHandlerLock);
    std::atomic<bool> mbStarted{false};
    std::atomic<bool> mbLooping{false};
};
