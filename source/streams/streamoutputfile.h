#pragma once

#include <atomic>
#include <list>

#include "flows/entity.h"
#include "foundations/namedlock.h"
#include "foundations/thread.h"
#include "streams/recordingdescription.h"
#include "streams/recordingfile.h"

/// Records frames to a pair of files, on a thread of its own, so that a slow disk never stalls the producer.
///
/// Queued frames are held by reference. The data file holds whole frames up to the last one written, however the
/// process ends; the description is written when the recording is finished, after all queued frames. A disk that
/// fails is reported once; frames that come after that are counted and lost.
class StreamOutputFile : public utils::ReferenceCountedObject, private utils::Thread {
 public:
    /// Any extension of the path is replaced, and a name that is taken is numbered. What the source's parameters
    /// tell under "source" goes into the description. Throws as RecordingPath::makeUnique.
    StreamOutputFile(const std::string& path, ReferencePtr<Entity> cSource);
    ~StreamOutputFile() override;

    /// False: no such folder, nothing was made. Files that could not be opened do not show here.
    bool isOpen() const { return mbOpen; }
    /// Of the description; empty unless open.
    const std::string& getPath() const { return mcPath; }
    /// From any thread; never waits for the disk. False for a null frame, while not open, and once finished.
    bool addFrame(ReferencePtr<Frame> cFrame);
    /// Completes the recording: waits until all queued frames are written, then writes the description. The
    /// last reference that goes does so too.
    void finish() noexcept;
    using utils::Thread::isRunning;

 protected:
    void run() override;
    void destroySelf() noexcept override;

 private:
    struct Head {
        ReferencePtr<Frame> mcFrame;
        uint64_t muNumber = 0;
    };
    class HeadRemover;

    void openFiles(const std::string& wanted);
    void wakeWriter(bool bStart);
    /// The flag before.
    bool setWriting(bool bWriting);
    void writeUntilIdle();
    Head head();
    size_t queued();
    void removeHead(uint64_t uNumber);
    void dropBeyondLimit(const Frame& cNewest, std::list<ReferencePtr<Frame>>& lDropped)
        REQUIRES(mcFrameListLock);
    bool endIfIdle();
    void writeQueued();
    bool writeFrame(const Head& cHead);
    void refuseType(const Head& cHead);
    void giveUp(OutputFile& cFile);
    void reportOnce(OutputFile& cFile);
    void drain();
    void writeDescription();
    void closeFiles();

    RecordingDescription mcDescription;
    bool mbOpen = false;
    std::string mcPath;
    utils::NamedLock mcFrameListLock{"StreamFile::mcFrameListLock"};
    utils::Barrier mcFrameListBarrier{"StreamFile::mcFrameListBarrier"};
    std::list<ReferencePtr<Frame>> mlFrames GUARDED_BY(mcFrameListLock);
    uint64_t muRemoved GUARDED_BY(mcFrameListLock) = 0;   // the number of the frame at the head
    bool mbWriting GUARDED_BY(mcFrameListLock) = false;   // a writer will look at the list again
    bool mbFinished GUARDED_BY(mcFrameListLock) = false;   // takes no more frames
    std::atomic<bool> mbDraining{false};
    uint64_t muRefused = ~uint64_t{0};     // the number of the last frame of a wrong type
    std::atomic<bool> mbComplete{false};   // the description has been written and the files are closed
    bool mbFailed = false;
    OutputFile mcJSON;
    OutputFile mcData;
};
