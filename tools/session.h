#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "libvnk.h"
#include "tools/exitcodes.h"

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
    /// The newest of the library's notes that are wanted, by message and code, oldest first. Reading
    /// takes all notes out of the library.
    std::vector<std::string> notes(const std::function<bool(const std::string&, int)>& wanted,
                                   size_t limit = 4);
    /// Those about failures.
    std::vector<std::string> failureNotes();
    /// All notes, newest first.
    std::string log();

 private:
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
class IqRecord {
 public:
    IqRecord() = default;
    ~IqRecord() {
        if (mpRecord)
            vnkFreeIQ(&mpRecord);
    }
    IqRecord(const IqRecord&) = delete;
    IqRecord& operator=(const IqRecord&) = delete;

    vnkIQRecord** out() { return &mpRecord; }
    const vnkIQRecord* operator->() const { return mpRecord; }
    const vnkIQRecord& operator*() const { return *mpRecord; }

 private:
    vnkIQRecord* mpRecord = nullptr;
};

class IqStream {
 public:
    IqStream(double centreHz, double bandwidthHz, double referenceDbm);
    ~IqStream() { vnkClose(&muHandle); }
    IqStream(const IqStream&) = delete;
    IqStream& operator=(const IqStream&) = delete;

    uint32_t handle() const { return muHandle; }
    void attach(Session& session, const Device& device);
    /// The status of vnkGetNextIQ.
    int32_t next(IqRecord& record, uint32_t timeoutMs) {
        return vnkGetNextIQ(muHandle, record.out(), timeoutMs);
    }

 private:
    uint32_t muHandle = VNK_INVALID_HANDLE;
};

/// "Failed to attach Stream.: <details>" for a status, with what the library has to say about it.
std::string explain(int32_t status);

}  // namespace cli
