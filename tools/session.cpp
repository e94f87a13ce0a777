#include "tools/session.h"

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <thread>

namespace cli {

namespace {

constexpr int kAnswerTries = 4;
constexpr auto kBetweenTries = std::chrono::milliseconds(500);

/// The library's detail comes as "T-0.0123sec: text"; "no information" when there is none.
std::string takeDetail() {
    char* pText = vnkGetDetailedStatus();
    std::string detail = pText ? pText : "";
    vnkDisposeString(&pText);
    if (detail == "no information")
        return {};
    const auto uAt = detail.find("sec: ");
    return detail.rfind("T-", 0) == 0 && uAt != std::string::npos ? detail.substr(uAt + 5) : detail;
}

/// "[0]\t-0.0001s message(libvnk code -2000) @file:12"
bool splitNote(const std::string& line, std::string& message, int& code) {
    const auto uText = line.find("s ");
    const auto uCode = line.rfind("(libvnk code ");
    if (line.empty() || line[0] != '[' || uText == std::string::npos || uCode == std::string::npos ||
        uCode < uText + 2)
        return false;
    message = line.substr(uText + 2, uCode - uText - 2);
    code = std::atoi(line.c_str() + uCode + std::strlen("(libvnk code "));
    return true;
}

}  // namespace

std::string explain(int32_t status) {
    std::string text = vnkGetTextForStatus(status);
    if (const std::string detail = takeDetail(); !detail.empty())
        text += ": " + detail;
    for (int32_t iNext = vnkGetNextStatus(); iNext != 0; iNext = vnkGetNextStatus())
        if (iNext != status)
            text += "; " + std::string(vnkGetTextForStatus(iNext));
    return text;
}

std::string Session::version() {
    char* pText = vnkGetVersion();
    std::string version = pText ? pText : "";
    vnkDisposeString(&pText);
    return version;
}

uint32_t Session::addAddress(const std::string& address) {
    if (const auto known = mcIndices.find(address); known != mcIndices.end())
        return known->second;
    const int32_t iStatus = vnkAddDeviceAddress(address.c_str());
    if (iStatus != 0)
        throw Failure(Exit::failure, address + ": " + explain(iStatus));
    return mcIndices[address] = count(false) - 1;
}

uint32_t Session::count(bool search) {
    uint32_t uCount = 0;
    const int32_t iStatus = vnkEnumerateDevices(&uCount, search ? 1 : 0);
    if (iStatus != 0)
        throw Failure(Exit::failure, explain(iStatus));
    return uCount;
}

std::string Session::describe(uint32_t index) {
    Text text;
    return vnkExamineDevice(index, text.out()) == 0 ? text.str() : std::string();
}

void Session::takeNotes() {
    constexpr size_t kMostNotes = 1000;
    char* pText = vnkGetVerboseInternalErrorState(kMostNotes);
    const std::string text = pText ? pText : "";
    vnkDisposeString(&pText);
    const size_t uBefore = mlNotes.size();
    size_t uFrom = 0;
    while (uFrom < text.size()) {
        const auto uEnd = text.find("\r\n", uFrom);
        Note note;
        // The newest come first.
        if (splitNote(text.substr(uFrom, uEnd - uFrom), note.message, note.code))
            mlNotes.insert(mlNotes.begin() + static_cast<std::ptrdiff_t>(uBefore), note);
        uFrom = uEnd == std::string::npos ? text.size() : uEnd + 2;
    }
    while (mlNotes.size() > kMostNotes)
        mlNotes.pop_front();
}

std::vector<std::string> Session::notes(const std::function<bool(const std::string&, int)>& wanted,
                                        size_t limit) {
    takeNotes();
    std::vector<std::string> notes;
    for (auto it = mlNotes.rbegin(); it != mlNotes.rend() && notes.size() < limit; ++it)
        if (wanted(it->message, it->code))
            notes.insert(notes.begin(), it->message);
    return notes;
}

std::vector<std::string> Session::failureNotes() {
    return notes([](const std::string&, int code) { return code < 0; });
}

Device::Device(Session& session, const std::string& address) : muIndex(session.addAddress(address)) {
    std::string text;
    try {
        const int32_t iStatus = vnkOpenDevice(muIndex, &muHandle);
        if (iStatus == 0)
            return;
        text = address + ": " + explain(iStatus);
    } catch (...) {
        // Of the library's own kind: the unit serves data that contradict themselves.
        text = address + ": the unit's answers contradict themselves";
    }
    for (const std::string& note : session.failureNotes())
        text += "\n  " + note;
    throw Failure(Exit::cannotOpen, text);
}

void Device::send(const std::string& command) {
    const int32_t iStatus = vnkSendSCPI(muHandle, command.c_str());
    if (iStatus != 0)
        throw Failure(answers() ? Exit::failure : Exit::linkLost, command + ": " + explain(iStatus));
}

std::string Device::query(const std::string& query) {
    Text reply;
    const int32_t iStatus = vnkQuerySCPI(muHandle, query.c_str(), reply.out());
    if (iStatus != 0)
        throw Failure(answers() ? Exit::failure : Exit::linkLost, query + ": " + explain(iStatus));
    return reply.str();
}

// A question may fall into a reset of the connection, with which the library tries to get data flowing again.
bool Device::answers() {
    for (int i = 0; i < kAnswerTries; ++i) {
        if (i > 0)
            std::this_thread::sleep_for(kBetweenTries);
        Text reply;
        if (vnkQuerySCPI(muHandle, "*IDN?", reply.out()) == 0)
            return true;
    }
    return false;
}

std::string getParameters(uint32_t handle) {
    Text text;
    const int32_t iStatus = vnkGetParameters(handle, text.out());
    if (iStatus != 0)
        throw Failure(Exit::failure, explain(iStatus));
    return text.str();
}

std::string getParameterInfo(uint32_t handle) {
    Text text;
    const int32_t iStatus = vnkGetParameterInfo(handle, text.out());
    if (iStatus != 0)
        throw Failure(Exit::failure, explain(iStatus));
    return text.str();
}

void setParameters(uint32_t handle, const std::string& record) {
    // The library consumes the text, and frees it as it frees its own.
    char* pText = ::strdup(record.c_str());
    const int32_t iStatus = vnkSetParameters(handle, &pText);
    if (iStatus != 0)
        throw Failure(Exit::failure, explain(iStatus));
}

bool readNumber(const std::string& record, const char* key, float& value) {
    std::string copy = record;
    char* pText = copy.data();
    return vnkReadNumericParameter(&pText, key, &value) == 0;
}

IqStream::IqStream(double centreHz, double bandwidthHz, double referenceDbm) {
    const int32_t iStatus =
        vnkCreateIQStream(&muHandle, static_cast<float>(centreHz), static_cast<float>(bandwidthHz),
                          static_cast<float>(referenceDbm));
    if (iStatus != 0)
        throw Failure(Exit::failure, explain(iStatus));
}

SpectrumStream::SpectrumStream(double minimumHz, double maximumHz, double rbwHz, const char* window,
                               double referenceDbm) {
    const int32_t iStatus =
        vnkCreateSpectrumStream(&muHandle, static_cast<float>(minimumHz), static_cast<float>(maximumHz),
                                static_cast<float>(rbwHz), window, static_cast<float>(referenceDbm));
    if (iStatus != 0)
        throw Failure(Exit::failure, explain(iStatus));
}

SpectrumStream::SpectrumStream(Processor& processor, uint32_t bufferFrames) {
    muHandle = processor.makeOutput();
    // The processor implements no change of its stream's parameters, and the library says so, but the queue
    // is the stream's own: it takes the number all the same.
    char* pText = ::strdup(("{\"bufferFrames\":" + std::to_string(bufferFrames) + "}").c_str());
    const int32_t iStatus = vnkSetParameters(muHandle, &pText);
    float fFrames = 0;
    if (!readNumber(getParameters(muHandle), "bufferFrames", fFrames) ||
        fFrames != static_cast<float>(bufferFrames))
        throw Failure(Exit::failure, explain(iStatus));
    // Else the details would stand behind the next failure, which they do not explain.
    explain(iStatus);
}

Processor::Processor(const char* typeName) {
    const int32_t iStatus = vnkCreateProcessor(&muHandle, typeName);
    if (iStatus != 0)
        throw Failure(Exit::failure, std::string(typeName) + ": " + explain(iStatus));
}

void Processor::attach(const Stream& stream) {
    const int32_t iStatus = vnkAttachProcessorToStream(muHandle, stream.handle());
    if (iStatus != 0)
        throw Failure(Exit::failure, explain(iStatus));
}

uint32_t Processor::makeOutput() {
    uint32_t uStream = VNK_INVALID_HANDLE;
    const int32_t iStatus = vnkGetProcessorOutputStream(muHandle, &uStream);
    if (iStatus != 0)
        throw Failure(Exit::failure, explain(iStatus));
    return uStream;
}

void Stream::attach(const RecordingName& recording) {
    const int32_t iStatus = vnkAttachStreamToFile(muHandle, recording.libraryPath().c_str());
    if (iStatus != 0)
        throw Failure(Exit::file, recording.stem() + ": " + explain(iStatus));
}

void Stream::attach(Session& session, const Device& device) {
    const int32_t iStatus = vnkAttachStreamToDevice(muHandle, device.handle());
    if (iStatus == 0)
        return;
    std::string text = explain(iStatus);
    for (const std::string& note : session.notes([](const std::string&message, int) {
             return message.find("out of range") != std::string::npos;
         }))
        text += "\n  " + note;
    throw Failure(Exit::failure, text);
}

}  // namespace cli
