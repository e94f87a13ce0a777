// SCPI commands, queries and replies over a transport in memory. The input is cut at its zero bytes: the
// first part is the text that is sent, the others are the pieces in which a reply comes.

#include <cstdint>
#include <deque>
#include <string>

#include "foundations/runtimeerrors.h"
#include "foundations/text.h"
#include "links/scpiprotocol.h"
#include "links/transaction.h"

namespace {

void require(bool bCondition) {
    if (!bCondition)
        __builtin_trap();
}

/// Runs a transaction on the calling thread, piece by piece.
class MemoryTransport : public Transport {
 public:
    explicit MemoryTransport(std::deque<std::string> lPieces)
        : Transport("memory"), mlPieces(std::move(lPieces)) {}

    bool isOpen() const override { return true; }
    bool send(ReferencePtr<utils::MemoryBlock> cBlock, std::string&) override {
        mSent += cBlock->getText();
        return true;
    }
    ReferencePtr<utils::MemoryBlock> receive(uint32_t, std::string&) override { return nullptr; }
    ReferencePtr<utils::MemoryBlock> transact(ReferencePtr<utils::MemoryBlock> cRequest, int32_t,
                                              uint32_t uLeastSize) override {
        mSent += cRequest->getText();
        _Transaction cTransaction(uLeastSize, 1000);
        for (const std::string& piece : mlPieces)
            if (!cTransaction.onData(makeReference<utils::MemoryBlock>(piece)))
                break;
        return cTransaction.takeReply();
    }
    bool flush() override { return false; }
    bool close() override { return true; }
    bool open() override { return true; }

    std::string mSent;

 private:
    std::deque<std::string> mlPieces;
};

std::deque<std::string> cut(const uint8_t* pData, size_t uSize) {
    std::deque<std::string> lParts(1);
    for (size_t i = 0; i < uSize; ++i)
        if (pData[i] == 0)
            lParts.emplace_back();
        else
            lParts.back().push_back(static_cast<char>(pData[i]));
    return lParts;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t uSize) {
    auto lPieces = cut(pData, uSize);
    const std::string text = lPieces.front();
    lPieces.pop_front();
    const std::string first = lPieces.empty() ? std::string() : lPieces.front();
    const auto cTransport = makeReference<MemoryTransport>(std::move(lPieces));
    const auto cProtocol = makeReference<SCPIProtocol>(cTransport);

    const bool bSent = cProtocol->sendCommand(text);
    require(bSent == (!text.empty() && text.back() != '?'));
    require(bSent || cTransport->mSent.empty());
    const std::string trimmed(utils::strip(text));
    if (bSent)
        require(cTransport->mSent == (text.back() == '\n' ? trimmed : trimmed + "\n"));

    const bool bQuery = trimmed.find('?') != std::string::npos;
    require(cProtocol->call(text, 1000) == (bQuery ? first : std::string()));
    std::string reply;
    require(scpiQueryText(*cProtocol, text, reply) == !reply.empty());
    int32_t iValue = 7;
    if (!scpiQueryInt(*cProtocol, text, iValue))
        require(iValue == 7);
    uint32_t uValue = 7;
    if (!scpiQueryUnsigned(*cProtocol, text, uValue))
        require(uValue == 7);
    const auto cBinary = cProtocol->callBinary(text, static_cast<uint32_t>(uSize), 1000);
    require(!cBinary || cBinary->getSize() <= uSize);
    utils::RuntimeErrors::instance().clear();
    return 0;
}
