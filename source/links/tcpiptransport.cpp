#include "links/tcpiptransport.h"

#include <charconv>
#include <new>
#include <stdexcept>

#include "foundations/runtimeerrors.h"
#include "foundations/text.h"

namespace {

/// The leading integer of a text: blanks and a sign before it, anything after it.
int32_t leadingInteger(std::string_view text) {
    text = utils::leftStrip(text, " \t\n\v\f\r");
    if (text.starts_with('+') && !text.starts_with("+-"))
        text.remove_prefix(1);
    int32_t iValue = 0;
    const auto cResult = std::from_chars(text.data(), text.data() + text.size(), iValue);
    if (cResult.ec == std::errc::result_out_of_range)
        throw std::out_of_range("stoi argument out of range");
    if (cResult.ec != std::errc())
        throw std::invalid_argument("invalid stoi argument");
    return iValue;
}

}  // namespace

TCPIPTransport::TCPIPTransport(std::string address)
    : Transport(address), mcConnectionText(std::move(address)), mcRecord(std::make_shared<SocketRecord>()) {}

TCPIPTransport::~TCPIPTransport() = default;

void TCPIPTransport::destroySelf() noexcept {
    try {
        if (isOpen())
            close();
    } catch (const std::exception&) {
        // Without memory for a log line: the record closes the descriptor when it goes.
    }
    Transport::destroySelf();
}

std::shared_ptr<SocketRecord> TCPIPTransport::record() const {
    std::lock_guard<std::mutex> cGuard(mcRecordMutex);
    return mcRecord;
}

bool TCPIPTransport::isOpen() const {
    return record()->isValid();
}

uint32_t TCPIPTransport::receiveTimeoutMs() const {
    return record()->muReceiveTimeoutMs;
}

bool TCPIPTransport::send(ReferencePtr<utils::MemoryBlock> cBlock, std::string& errorText) {
    if (!cBlock)
        return false;
    const uint32_t uSize = cBlock->getSize();
    const auto pRecord = record();
    const bool bWhole = socketSend(*pRecord, std::move(cBlock)) == uSize;
    if (!bWhole)
        errorText = socketErrorText(*pRecord);
    return bWhole;
}

/// Taken out for the length of a receive, so that two receives never fill one block.
ReferencePtr<utils::MemoryBlock> TCPIPTransport::takeReceiveBlock(std::string& errorText) {
    ReferencePtr<utils::MemoryBlock> cBlock;
    {
        std::lock_guard<std::mutex> cGuard(mcRecordMutex);
        cBlock = std::move(mcReceiveBlock);
    }
    const uint32_t uChunkSize = getChunkSize();
    if (cBlock && cBlock->getAllocated() - cBlock->getWritePosition() >= uChunkSize)
        return cBlock;
    try {
        return makeReference<utils::MemoryBlock>(uChunkSize);
    } catch (const std::bad_alloc&) {
        errorText = "Memory allocation error";
        utils::reportError(-1, errorText);
        return nullptr;
    }
}

ReferencePtr<utils::MemoryBlock> TCPIPTransport::receive(uint32_t uTimeoutMs, std::string& errorText) {
    auto cBlock = takeReceiveBlock(errorText);
    if (!cBlock)
        return nullptr;
    const auto pRecord = record();
    auto cReceived = socketReceive(*pRecord, uTimeoutMs, cBlock);
    if (!cReceived)
        errorText = socketErrorText(*pRecord);
    std::lock_guard<std::mutex> cGuard(mcRecordMutex);
    mcReceiveBlock = std::move(cBlock);
    return cReceived;
}

bool TCPIPTransport::flush() {
    return socketDrain(*record());
}

bool TCPIPTransport::close() {
    const auto pBefore = record();
    const auto pAfter = std::make_shared<SocketRecord>(*pBefore);
    if (!socketClose(*pAfter))
        return false;
    std::lock_guard<std::mutex> cGuard(mcRecordMutex);
    if (mcRecord == pBefore)
        mcRecord = pAfter;
    return true;
}

bool TCPIPTransport::open() {
    const auto tail = utils::afterFirst(mcConnectionText, "/");
    const uint32_t uTimeoutMs = tail.empty() ? 0 : static_cast<uint32_t>(leadingInteger(tail));
    const std::string address(utils::beforeFirst(mcConnectionText, "/"));
    const auto pRecord = std::make_shared<SocketRecord>(socketOpen(address, uTimeoutMs));
    std::shared_ptr<SocketRecord> pOld = pRecord;
    {
        std::lock_guard<std::mutex> cGuard(mcRecordMutex);
        std::swap(mcRecord, pOld);
    }
    // Whoever is still blocked on the socket that this one replaces comes free.
    socketWake(*pOld);
    return pRecord->isValid();
}

ReferencePtr<Transport> TCPIPTransportType::create(const std::string& address) {
    const auto cTransport = makeReference<TCPIPTransport>(address);
    cTransport->open();
    if (!cTransport->isOpen())
        return nullptr;
    return cTransport;
}
