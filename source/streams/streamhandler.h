#pragma once

#include "flows/framesource.h"
#include "streams/streaminputfile.h"
#include "streams/streamoutputfile.h"

/// What a stream handle stands for: a sink that queues frames for the caller and a source that passes them
/// on, to processors and to a recording. Used through its concrete classes, which have the typed sink as second
/// base.
class StreamHandler : public FrameSource {
 public:
    StreamHandler();

    virtual bool attachToSource(ReferencePtr<Entity> cSource, ErrorList& lErrors) = 0;
    /// Leaves the file that plays, or else the source.
    virtual bool detachFromSource() = 0;
    virtual bool isSinkExhausted() = 0;
    /// The other base.
    virtual FrameSink& sink() = 0;

    ReferencePtr<Entity> getSource();
    ReferencePtr<StreamInputFile> getInputFile();
    ReferencePtr<StreamOutputFile> getOutputFile();
    /// Replaces an earlier one and passes the looping flag on.
    void setInputFile(ReferencePtr<StreamInputFile> cFile);
    /// Feeds the stream from a file, in place of one that plays already. False if the file refuses, or if the
    /// stream is detached meanwhile.
    bool playFile(ReferencePtr<StreamInputFile> cFile);
    /// Begins a recording in place of an earlier one, or ends it with an empty path. Waits until the one that
    /// ends is on disk. 0; -71 not begun, the earlier one goes on; -70 there was none to end.
    int32_t setOutputFile(const std::string& path);
    /// The end of the stream's handle: leaves all that feeds it, completes the recording, and lets nobody feed it
    /// any more.
    void close();
    /// The first non-null frame has arrived.
    bool isStarted() const { return mbStarted.load(std::memory_order_relaxed); }

 protected:
    /// Stores a source and gives the one before.
    ReferencePtr<Entity> exchangeSource(ReferencePtr<Entity> cSource);
    ReferencePtr<StreamInputFile> exchangeInputFile(ReferencePtr<StreamInputFile> cFile);
    void setLooping(bool bLooping);
    bool isClosed() const { return mbClosed; }
    /// Hands a frame to the recording, if there is one.
    void record(const ReferencePtr<Frame>& cFrame);

    std::atomic<bool> mbStarted{false};

 private:
    /// One file at a time begins to play. Held while the one before is stopped.
    utils::NamedLock mcPlayLock{"StreamHandler::mcPlayLock"};
    /// Guards what frames come from; a leaf, never held across a call to another object.
    utils::NamedLock mcHandlerLock{"StreamHandler::mcHandlerLock"};
    ReferencePtr<Entity> mcSource GUARDED_BY(mcHandlerLock);
    ReferencePtr<StreamInputFile> mcInputFile GUARDED_BY(mcHandlerLock);
    /// The producer adds frames under this lock and never holds a reference of its own: the end of a
    /// recording, which waits for the disk, falls to whoever replaces it.
    utils::NamedLock mcOutputLock{"StreamHandler::mcOutputLock"};
    ReferencePtr<StreamOutputFile> mcOutputFile GUARDED_BY(mcOutputLock);
    std::atomic<bool> mbLooping{false};
    std::atomic<bool> mbClosed{false};
};
