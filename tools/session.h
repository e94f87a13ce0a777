#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "libvnk.h"
#include "tools/exitcodes.h"
#include "tools/recordingname.h"

namespace cli {

/// A text that the library allocated.
class Text {
 public:
    Text() = default;
    ~Text() { vnkDisposeString(&mpText); }
    Text(const Text&) = delete;
    Text& operator=(const Text&) = delete;

    char** out() { return &mpText; }
    std::string str() const { return mpText ? mpText : ""; }

 private:
    char* mpText = nullptr;
};

/// The library in use: one for the whole program.
class Session {
 public:
    Session() { vnkInitAPI(); }
    ~Session() { vnkShutdownAPI(); }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    static std::string version();
    /// Makes the address known, once, and gives its index.
    uint32_t addAddress(const std::string& address);
    /// Number of all known addresses, after a search if wanted.
    uint32_t count(bool search);
    /// The record that describes a unit, in its text form; empty when it does not answer.
    std::string describe(uint32_t index);
    /// The newest of the library's notes that are wanted, by message and code, oldest first.
    std::vector<std::string> notes(const std::function<bool(const std::string&, int)>& wanted,
                                   size_t limit = 4);
    /// Those about failures.
    std::vector<std::string> failureNotes();

 private:
    struct Note {
        std::string message;
        int code = 0;
    };
    /// Reading takes the notes out of the library: they are kept here, oldest first.
    void takeNotes();

    std::deque<Note> mlNotes;
    std::map<std::string, uint32_t> mcIndices;
};

/// An open unit.
class Device {
 public:
    /// Throws Failure with Exit::cannotOpen.
    Device(Session& session, const std::string& address);
    ~Device() { vnkClose(&muHandle); }
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;

    uint32_t handle() const { return muHandle; }
    uint32_t index() const { return muIndex; }
    void send(const std::string& command);
    std::string query(const std::string& query);
    /// Asks the unit for its identity; false when it does not answer.
    bool answers();

 private:
    uint32_t muIndex = 0;
    uint32_t muHandle = VNK_INVALID_HANDLE;
};

/// Parameters of whatever a handle names, in their text form. Throws Failure.
std::string getParameters(uint32_t handle);
std::string getParameterInfo(uint32_t handle);
void setParameters(uint32_t handle, const std::string& record);
/// A number of such a text.
bool readNumber(const std::string& record, const char* key, float& value);

/// One delivered frame; given back when it goes.
template <typename Plain, int32_t (*free)(Plain**)>
class Record {
 public:
    Record() = default;
    ~Record() {
        if (mpRecord)
            free(&mpRecord);
    }
    Record(const Record&) = delete;
    Record& operator=(const Record&) = delete;

    Plain** out() { return &mpRecord; }
    const Plain* operator->() const { return mpRecord; }
    const Plain& operator*() const { return *mpRecord; }

 private:
    Plain* mpRecord = nullptr;
};
using IqRecord = Record<vnkIQRecord, vnkFreeIQ>;
using SpectrumRecord = Record<vnkSpectrumRecord, vnkFreeSpectrum>;
using BasebandRecord = Record<vnkBasebandRecord, vnkFreeBaseband>;

/// What all streams can.
class Stream {
 public:
    ~Stream() { vnkClose(&muHandle); }
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    uint32_t handle() const { return muHandle; }
    void attach(Session& session, const Device& device);
    /// Plays the recording. Throws Failure with Exit::file when the library cannot.
    void attach(const RecordingName& recording);
    /// Waits until nothing more comes. What is queued can still be read.
    void detach() { vnkDetachStream(muHandle); }

 protected:
    Stream() = default;
    uint32_t muHandle = VNK_INVALID_HANDLE;
};

class IqStream : public Stream {
 public:
    IqStream(double centreHz, double bandwidthHz, double referenceDbm);
    /// The status of vnkGetNextIQ.
    int32_t next(IqRecord& record, uint32_t timeoutMs) {
        return vnkGetNextIQ(muHandle, record.out(), timeoutMs);
    }
};

class Processor;

class SpectrumStream : public Stream {
 public:
    /// Without a window's name it is the library's choice.
    SpectrumStream(double minimumHz, double maximumHz, double rbwHz, const char* window = nullptr,
                   double referenceDbm = 0);
    /// Of what a processor makes, with room for so many spectra.
    SpectrumStream(Processor& processor, uint32_t bufferFrames);
    int32_t next(SpectrumRecord& record, uint32_t timeoutMs) {
        return vnkGetNextSpectrum(muHandle, record.out(), timeoutMs);
    }
};

/// What turns the frames of one stream into those of another.
class Processor {
 public:
    explicit Processor(const char* typeName);
    ~Processor() { vnkClose(&muHandle); }
    Processor(const Processor&) = delete;
    Processor& operator=(const Processor&) = delete;

    uint32_t handle() const { return muHandle; }
    void attach(const Stream& stream);
    void detach() { vnkDetachProcessor(muHandle); }
    /// A new stream of what it makes.
    uint32_t makeOutput();

 private:
    uint32_t muHandle = VNK_INVALID_HANDLE;
};

class BasebandStream : public Stream {
 public:
    explicit BasebandStream(Processor& processor) { muHandle = processor.makeOutput(); }
    int32_t next(BasebandRecord& record, uint32_t timeoutMs) {
        return vnkGetNextBaseband(muHandle, record.out(), timeoutMs);
    }
};

/// What the next functions of streams say.
constexpr int32_t kStatusFrame = 0, kStatusNothing = 1, kStatusEnded = 2, kStatusNotResponding = -86;

/// "Failed to attach Stream.: <details>" for a status, with what the library has to say about it.
std::string explain(int32_t status);

}  // namespace cli
