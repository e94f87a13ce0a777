// A stream of HiSLIP messages in pieces, against a plain reading of the wire format: what comes out, who gets
// it, and how much memory it takes. The first byte says how long the pieces are and whether the unit counts
// its replies by itself.

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "foundations/runtimeerrors.h"
#include "links/hsdatatransport.h"

namespace {

constexpr uint32_t kSentID = 0xFFFFFF00;

void require(bool bCondition) {
    if (!bCondition)
        __builtin_trap();
}

/// Takes everything and gives nothing; nobody polls it.
class MemoryTransport : public Transport {
 public:
    MemoryTransport() : Transport("memory") {}
    bool isOpen() const override { return true; }
    bool send(ReferencePtr<utils::MemoryBlock> cBlock, std::string&) override {
        mSent += cBlock->getText();
        return true;
    }
    ReferencePtr<utils::MemoryBlock> receive(uint32_t, std::string&) override { return nullptr; }
    bool flush() override { return false; }
    bool close() override { return true; }
    bool open() override { return true; }

    std::string mSent;
};

uint64_t number(const std::string& bytes, size_t uFrom, size_t uCount) {
    uint64_t uValue = 0;
    for (size_t i = uFrom; i < uFrom + uCount; ++i)
        uValue = uValue << 8 | static_cast<uint8_t>(bytes[i]);
    return uValue;
}

/// The whole messages at the front of the bytes, taken off; everything goes when what follows is no message.
void readPlainly(std::string& bytes, std::vector<std::string>& lMessages) {
    const std::string prefix = "HS";
    while (!bytes.empty()) {
        const bool bPrefix = bytes.compare(0, 2, prefix, 0, std::min<size_t>(2, bytes.size())) == 0;
        const uint64_t uLength = bPrefix && bytes.size() >= 16 ? number(bytes, 8, 8) : 0;
        if (!bPrefix || uLength > 268435456u)
            return bytes.clear();
        if (bytes.size() < 16 || bytes.size() - 16 < uLength)
            return;
        lMessages.push_back(bytes.substr(0, 16 + uLength));
        bytes.erase(0, 16 + uLength);
    }
}

std::vector<std::string> cut(const uint8_t* pData, size_t uSize, size_t uPiece) {
    std::vector<std::string> lPieces;
    for (size_t uAt = 0; uAt < uSize; uAt += uPiece)
        lPieces.emplace_back(reinterpret_cast<const char*>(pData) + uAt, std::min(uPiece, uSize - uAt));
    return lPieces;
}

std::vector<std::string> assemble(const std::vector<std::string>& lPieces) {
    HiSlip::Assembler cAssembler;
    std::string plain;
    std::vector<std::string> lExpected;
    std::vector<std::string> lFound;
    for (const std::string& piece : lPieces) {
        const size_t uThere = plain.size() + piece.size();
        readPlainly(plain += piece, lExpected);
        cAssembler.append(*makeReference<utils::MemoryBlock>(piece));
        require(cAssembler.allocated() <= std::max<size_t>(256, 2 * uThere) ||
                cAssembler.allocated() <= 65536);
        HiSlip::Message cMessage;
        while (cAssembler.take(cMessage) == HiSlip::Parsing::kWhole) {
            require(cMessage.mbValid);
            lFound.push_back(HiSlip::serialise(cMessage)->getText());
        }
        require(!cMessage.mbValid && !cMessage.mcPayload);
        require(cAssembler.size() == plain.size());
    }
    require(lFound == lExpected);
    return lExpected;
}

struct Reply {
    std::string mText;
    bool mbAny = false;
    bool mbEnded = false;
};

/// What the wait gets, and what is kept behind it.
void share(const std::vector<std::string>& lMessages, bool bOverlap, Reply& cWaited, Reply& cKept) {
    for (const std::string& message : lMessages) {
        const int iType = static_cast<uint8_t>(message[2]);
        if ((iType != 6 && iType != 7) || (!bOverlap && number(message, 4, 4) != kSentID))
            continue;
        Reply& cReply = cWaited.mbEnded ? cKept : cWaited;
        if (cReply.mbEnded)
            continue;
        cReply.mText += message.substr(16);
        cReply.mbAny = true;
        cReply.mbEnded = iType == 7;
    }
}

void requireReply(const ReferencePtr<utils::MemoryBlock>& cFound, const Reply& cExpected) {
    require(bool(cFound) == cExpected.mbAny);
    require(!cFound || cFound->getText() == cExpected.mText);
}

void marshal(const std::vector<std::string>& lPieces, const std::vector<std::string>& lMessages,
             bool bOverlap) {
    const auto cTransport = makeReference<MemoryTransport>();
    const auto cMarshaller =
        makeReference<_Marshaller>(makeReference<HiSlipHandlers>(), HiSlip::Assembler(), bOverlap);
    const auto cFirst = makeReference<HSTransaction>(0u);
    std::string errorText;
    require(
        cMarshaller->send(*cTransport, makeReference<utils::MemoryBlock>("*IDN?"), cFirst.get(), errorText));
    require(cTransport->mSent.substr(0, 8) == std::string("HS\x07\0\xFF\xFF\xFF\0", 8));
    for (const std::string& piece : lPieces) {
        const auto cBlock = makeReference<utils::MemoryBlock>(piece);
        require(cMarshaller->onData(cBlock) && cBlock->getReadableDataLength() == 0);
    }
    Reply cWaited;
    Reply cKept;
    share(lMessages, bOverlap, cWaited, cKept);
    requireReply(cMarshaller->takeReply(*cFirst, errorText), cWaited);
    const auto cSecond = makeReference<HSTransaction>(0u);
    cMarshaller->resume(*cSecond);
    requireReply(cMarshaller->takeReply(*cSecond, errorText), cKept);
    require(!cMarshaller->dropKept());
    require(errorText.empty());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t uSize) {
    if (uSize == 0)
        return 0;
    const auto lPieces = cut(pData + 1, uSize - 1, size_t{1} << (pData[0] & 15));
    marshal(lPieces, assemble(lPieces), (pData[0] & 0x80) != 0);
    utils::RuntimeErrors::instance().clear();
    return 0;
}
