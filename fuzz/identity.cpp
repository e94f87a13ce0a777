// Replies of a unit: its identity, its errors, its status and its correction data.
//
// The first byte of the input chooses what the rest is taken for.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "foundations/text.h"
#include "receivers/commandchannel.h"
#include "receivers/ifbwflatten.h"
#include "receivers/probe.h"
#include "zelvar/modeltable.h"
#include "receivers/unitstatus.h"

namespace {

void require(bool bHolds) {
    if (!bHolds)
        std::abort();
}

bool isPartOf(const std::string& part, const std::string& whole) {
    return whole.find(part) != std::string::npos;
}

void readIdentity(const std::string& reply) {
    const utils::VariantRecord cRecord = parseIdentity(reply);
    require(cRecord.size() == 4);
    for (const char* pKey : {"type", "version", "serial", "firmware"})
        require(isPartOf(cRecord.getText(pKey).value(), reply));
    const std::string type = cRecord.getText("type").value();
    require(!findModel(type) || namesAnyModel(type));
    const Connection cConnection = splitConnection(reply);
    require(isPartOf(cConnection.mcAddress, reply));
}

void readError(const std::string& reply) {
    const std::string text = systemErrorText(reply);
    const auto iNumber = utils::parseInt32(utils::strip(reply));
    // An error that brings no text of its own passes for none.
    if (!iNumber)
        require(!text.empty());
    else
        require(*iNumber == 0 ? text.empty() : isPartOf(text, reply));
}

void readStatus(const std::string& reply) {
    if (const auto cPosition = parsePosition(reply))
        require(cPosition->mfLatitude >= -90.0f && cPosition->mfLatitude <= 90.0f);
    hasOption(reply, "003");
    for (const ValueTable cTable : {pllSourceTable(), ppsSourceTable(), timeSyncTable()})
        if (const ValuePair* pPair = findByUnit(cTable, reply))
            require(findByParameter(cTable, pPair->mpParameter) == pPair);
}

void readCorrections(const std::string& bytes) {
    const auto* pBytes = reinterpret_cast<const uint8_t*>(bytes.data());
    if (bytes.size() < VectorFileHeader::kSize)
        return;
    const VectorFileHeader cHeader(pBytes, static_cast<uint32_t>(bytes.size()));
    pBytes += VectorFileHeader::kSize;
    const size_t uRest = bytes.size() - VectorFileHeader::kSize;
    // As the replies of a unit: never more than has come.
    const auto uRows = static_cast<uint32_t>(std::min<size_t>(cHeader.muRows, uRest / 6));
    const auto lTable = parseFrequencyTable(pBytes, uRows, cHeader.muVectors);
    require(lTable.size() <= uRows);
    for (const auto& cRow : lTable)
        require(chooseRow(lTable, cRow.mfFrequencyHz).mfFrequencyHz >= cRow.mfFrequencyHz);
    if (uRest < 2)
        return;
    const auto uPoints = static_cast<uint16_t>(std::min<size_t>(cHeader.muPoints, (uRest - 2) / 4));
    CorrectionVector cVector(pBytes, uPoints);
    for (const uint32_t uCount : {uint32_t{1}, uint32_t{uPoints}, uint32_t{cHeader.muFirstWord} % 4096})
        require(cVector.resampled(uCount).getActive() == uCount);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t uSize) {
    if (uSize == 0)
        return 0;
    const std::string rest(reinterpret_cast<const char*>(pData) + 1, uSize - 1);
    switch (pData[0]) {
        case 'I':
            readIdentity(rest);
            break;
        case 'E':
            readError(rest);
            break;
        case 'S':
            readStatus(rest);
            break;
        case 'C':
            readCorrections(rest);
            break;
        default:
            break;
    }
    return 0;
}
