#include "receivers/ifbwflatten.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include "foundations/runtimeerrors.h"
#include "foundations/text.h"

namespace {

constexpr uint32_t kReadTimeoutMs = 1000;
constexpr uint32_t kRowBytes = 6;

uint16_t readU16(const uint8_t* pBytes) {
    return static_cast<uint16_t>(pBytes[0] << 8 | pBytes[1]);
}

uint32_t readU32(const uint8_t* pBytes) {
    return uint32_t{readU16(pBytes)} << 16 | readU16(pBytes + 2);
}

std::string replaced(std::string text, std::string_view what, const std::string& by) {
    const size_t uAt = text.find(what);
    return uAt == std::string::npos ? text : text.replace(uAt, what.size(), by);
}

/// "#", a digit count and the digits.
uint32_t prefixLength(uint32_t uBytes) {
    return static_cast<uint32_t>(std::to_string(uBytes).size()) + 2;
}

/// A read of `uBytes`, with the set's name and the offset, if it has one, put into the command text. Null
/// unless the reply has its full length.
ReferencePtr<utils::MemoryBlock> readBlock(SCPIProtocol& cProtocol, const char* pCommand, const char* pName,
                                           std::string offset, uint32_t uBytes, const char* pCondition) {
    std::string command = replaced(pCommand, "%s", pName);
    if (!offset.empty())
        command = replaced(command, "%d", offset);
    command = replaced(command, "%d", std::to_string(uBytes));
    const uint32_t uExpected = prefixLength(uBytes) + uBytes + 1;
    ReferencePtr<utils::MemoryBlock> cReply = cProtocol.callBinary(command, uExpected, kReadTimeoutMs);
    if (cReply && cReply->getReadableDataLength() == uExpected)
        return cReply;
    utils::reportTrace(pCondition);
    return {};
}

}  // namespace

VectorFileHeader::VectorFileHeader(const uint8_t* pBytes, uint32_t uRemaining) {
    VNK_ASSERT_TEXT(uRemaining >= kSize, "uRemaining >= Size");
    muFirstWord = readU16(pBytes);
    muRows = readU16(pBytes + 2);
    muVectors = readU16(pBytes + 4);
    muPoints = readU16(pBytes + 6);
    std::memcpy(mRaw, pBytes + 8, sizeof mRaw);
}

CorrectionVector::CorrectionVector(const uint8_t* pBytes, uint16_t uPoints)
    : muIndex(readU16(pBytes)), mcPoints(makeReference<FloatArray>(uPoints)) {
    float* pPoints = mcPoints->getData();
    for (uint32_t i = 0; i < uPoints; ++i) {
        const auto iLoss = static_cast<int32_t>(readU32(pBytes + 2 + 4 * i));
        pPoints[i] = std::pow(10.0f, static_cast<float>(iLoss) / -1000000.0f / 20.0f);
    }
}

const FloatArray& CorrectionVector::resampled(uint32_t uCount) {
    if (mcResampled && mcResampled->getActive() == uCount)
        return *mcResampled;
    auto cCopy = makeReference<FloatArray>(uCount);
    const uint32_t uPoints = mcPoints->getActive();
    const float* pSource = mcPoints->getData();
    for (uint32_t i = 0; i < uCount; ++i) {
        if (uPoints == 0) {
            cCopy->getData()[i] = 1.0f;
            continue;
        }
        const float fX = static_cast<float>(i) / static_cast<float>(uCount) * static_cast<float>(uPoints);
        const uint32_t uLow = static_cast<uint32_t>(std::floor(fX));
        const float fRest = fX - static_cast<float>(uLow);
        // The last point has no successor to lean on; it stands for it.
        const uint32_t uFirst = std::min(uLow, uPoints - 1);
        const uint32_t uNext = std::min(uLow < uCount - 1 ? uLow + 1 : uLow, uPoints - 1);
        cCopy->getData()[i] = fRest * pSource[uNext] + (1.0f - fRest) * pSource[uFirst];
    }
    mcResampled = cCopy;
    return *mcResampled;
}

_IFBWFlatten::_IFBWFlatten(ReferencePtr<SCPIProtocol> cProtocol, const CorrectionCommands& cCommands) {
    cProtocol->sendCommand("*CLS");
    scpiQueryInt(*cProtocol, cCommands.mpSignalSize, mcSignal.miSize);
    if (mcSignal.miSize < 1)
        return;
    scpiQueryInt(*cProtocol, cCommands.mpNoiseSize, mcNoise.miSize);
    if (mcNoise.miSize < 1)
        return;
    const bool bSignal = readSet(*cProtocol, cCommands, cCommands.mpSignalName, mcSignal);
    const bool bNoise = readSet(*cProtocol, cCommands, cCommands.mpNoiseName, mcNoise);
    mbValid = bSignal && bNoise;
}

bool _IFBWFlatten::readSet(SCPIProtocol& cProtocol, const CorrectionCommands& cCommands, const char* pName,
                           DataSet& cSet) {
    constexpr uint32_t kHeader = VectorFileHeader::kSize;
    auto cHData = readBlock(cProtocol, cCommands.mpReadHeader, pName, {}, kHeader,
                            "(cHData != nullptr) && (cHData->getSize() == uHReadSize)");
    if (!cHData)
        return false;
    cSet.mcHeader = makeReference<VectorFileHeader>(cHData->getReadable() + prefixLength(kHeader), kHeader);

    cSet.mlTable.clear();
    const uint32_t uTableBytes = kRowBytes * cSet.mcHeader->muRows;
    auto cFT = readBlock(cProtocol, cCommands.mpReadTable, pName, std::to_string(kHeader), uTableBytes,
                         "(cFT != nullptr) && (cFT->getSize() == uFTReadSize)");
    if (!cFT)
        return false;
    const uint32_t uVectors = cSet.mcHeader->muVectors;
    cSet.mlTable =
        parseFrequencyTable(cFT->getReadable() + prefixLength(uTableBytes), cSet.mcHeader->muRows, uVectors);

    cSet.mlVectors.clear();
    const uint32_t uVectorBytes = 2 + 4 * uint32_t{cSet.mcHeader->muPoints};
    const uint64_t uTotal = uint64_t{kHeader} + uTableBytes + uint64_t{uVectors} * uVectorBytes;
    // Its far end could not be asked for: an offset is a signed 32-bit number.
    if (uTotal > static_cast<uint64_t>(std::numeric_limits<int32_t>::max())) {
        utils::reportTrace(utils::formatText("Correction data of %llu bytes refused",
                                             static_cast<unsigned long long>(uTotal)));
        return false;
    }
    for (uint32_t i = 0; i < uVectors; ++i) {
        const uint32_t uOffset = kHeader + uTableBytes + i * uVectorBytes;
        auto cCVec =
            readBlock(cProtocol, cCommands.mpReadVector, pName, std::to_string(uOffset), uVectorBytes,
                      "(cCVec != nullptr) && (cCVec->getReadableDataLength() == uCVReadSize)");
        if (!cCVec)
            return false;
        auto cVector = makeReference<CorrectionVector>(cCVec->getReadable() + prefixLength(uVectorBytes),
                                                       cSet.mcHeader->muPoints);
        VNK_ASSERT_TEXT(cVector->muIndex == i, "cVector->muIndex == i");
        cSet.mlVectors.push_back(cVector);
    }
    return true;
}

bool _IFBWFlatten::flatten(float* pMagnitudes, uint32_t uCount, float fFrequencyHz) {
    if (mcSignal.mlTable.empty())
        return true;
    const uint16_t uIndex = chooseRow(mcSignal.mlTable, fFrequencyHz).muVector;
    const ReferencePtr<CorrectionVector> cVector =
        uIndex < mcSignal.mlVectors.size() ? mcSignal.mlVectors[uIndex] : ReferencePtr<CorrectionVector>();
    const float* pMultipliers = cVector->resampled(uCount).getData();
    for (uint32_t i = 0; i < uCount; ++i)
        pMagnitudes[i] *= pMultipliers[i];
    return true;
}

std::vector<_IFBWFlatten::Row> parseFrequencyTable(const uint8_t* pBytes, uint32_t uRows, uint32_t uVectors) {
    std::vector<_IFBWFlatten::Row> lTable;
    lTable.reserve(uRows);
    for (uint32_t i = 0; i < uRows; ++i, pBytes += kRowBytes) {
        const float fFrequencyHz = static_cast<float>(uint64_t{readU32(pBytes)} * 1000);
        const uint16_t uVector = readU16(pBytes + 4);
        // An index equal to the number of vectors passes, though no vector stands behind it.
        if (fFrequencyHz > 0.0f && uVector <= uVectors)
            lTable.push_back({fFrequencyHz, uVector});
    }
    std::stable_sort(lTable.begin(), lTable.end(),
                     [](const auto& a, const auto& b) { return a.mfFrequencyHz < b.mfFrequencyHz; });
    return lTable;
}

const _IFBWFlatten::Row& chooseRow(const std::vector<_IFBWFlatten::Row>& lTable, float fFrequencyHz) {
    const auto it = std::find_if(lTable.begin(), lTable.end(),
                                 [&](const auto& cRow) { return cRow.mfFrequencyHz > fFrequencyHz; });
    return it == lTable.end() ? lTable.back() : *it;
}
