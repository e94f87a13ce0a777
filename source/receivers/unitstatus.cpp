#include "receivers/unitstatus.h"

#include <algorithm>
#include <array>
#include <optional>

#include "foundations/text.h"

namespace {

constexpr std::array<ValuePair, 4> kPLLSources = {
    {{"internal", "INT"}, {"external", "EXT"}, {"gnss", "GNSS"}, {"gps", "GNSS"}}};
constexpr std::array<ValuePair, 3> kPPSSources = {{{"external", "EXT"}, {"gnss", "GNSS"}, {"gps", "GNSS"}}};
constexpr std::array<ValuePair, 3> kTimeSyncs = {
    {{"disable", "DISABLE"}, {"once", "NTP,ONCE"}, {"continuous", "NTP,CONTINUOUS"}}};
constexpr std::array<const char*, 9> kDynamicModes = {"portable",   "",      "stationary",  "pedestrian",
                                                      "automotive", "atSea", "airborne<1g", "airborne<2g",
                                                      "airborne<4g"};

constexpr uint32_t kAbsentPattern = 0x7FFFFFFF;

void takePresent(float& fField, float fValue) {
    if (std::bit_cast<uint32_t>(fValue) != kAbsentPattern)
        fField = fValue;
}

}  // namespace

ValueTable pllSourceTable() {
    return kPLLSources;
}

ValueTable ppsSourceTable() {
    return kPPSSources;
}

ValueTable timeSyncTable() {
    return kTimeSyncs;
}

const ValuePair* findByParameter(ValueTable cTable, std::string_view value) {
    const auto it = std::find_if(cTable.begin(), cTable.end(),
                                 [&](const auto& cPair) { return value == cPair.mpParameter; });
    return it == cTable.end() ? nullptr : &*it;
}

const ValuePair* findByUnit(ValueTable cTable, std::string_view value) {
    const auto it =
        std::find_if(cTable.begin(), cTable.end(), [&](const auto& cPair) { return value == cPair.mpUnit; });
    return it == cTable.end() ? nullptr : &*it;
}

std::span<const char* const> dynamicModeNames() {
    return kDynamicModes;
}

std::string dynamicModeName(uint32_t uMode) {
    return uMode < kDynamicModes.size() ? kDynamicModes[uMode] : "";
}

std::optional<GNSSPosition> parsePosition(std::string_view reply) {
    const auto fLatitude = utils::parseFloat(utils::takeBefore(reply, ","));
    if (!fLatitude || !(*fLatitude >= -90.0f && *fLatitude <= 90.0f))
        return std::nullopt;
    const auto fLongitude = utils::parseFloat(utils::takeBefore(reply, ","));
    const auto fAltitude = utils::parseFloat(utils::takeBefore(reply, ","));
    return GNSSPosition{*fLatitude, fLongitude, fAltitude};
}

bool hasOption(std::string_view reply, std::string_view option) {
    while (!reply.empty())
        if (utils::strip(utils::takeBefore(reply, ",")) == option)
            return true;
    return false;
}

UnitStatus::UnitStatus(ReferencePtr<LinkWatch> cWatch, std::function<uint64_t()> steadyMs)
    : mcWatch(std::move(cWatch)), mcSteadyMs(std::move(steadyMs)) {}

UnitStatusFields UnitStatus::fields() const {
    const utils::ScopedLock cLock(mcLock);
    return mcFields;
}

std::optional<std::string> UnitStatus::ask(SCPIProtocol& cProtocol, const char* pQuery) {
    std::string reply;
    if (!scpiQueryText(cProtocol, pQuery, reply))
        return std::nullopt;
    mcWatch->stamp();
    return reply;
}

void UnitStatus::readMapped(SCPIProtocol& cProtocol, const char* pQuery, ValueTable cTable,
                              std::string UnitStatusFields::*pField) {
    const auto reply = ask(cProtocol, pQuery);
    if (!reply)
        return;
    if (const ValuePair* pPair = findByUnit(cTable, *reply))
        change([&](UnitStatusFields& cFields) { cFields.*pField = pPair->mpParameter; });
}

void UnitStatus::readText(SCPIProtocol& cProtocol, const char* pQuery,
                            std::string UnitStatusFields::*pField) {
    if (const auto reply = ask(cProtocol, pQuery))
        change([&](UnitStatusFields& cFields) { cFields.*pField = *reply; });
}

void UnitStatus::readAtOpen(const ReferencePtr<SCPIProtocol>& cProtocol) {
    queryGNSS(cProtocol, false);
    if (!cProtocol)
        return;
    readMapped(*cProtocol, ":SOURce:REFerence:PLL?", pllSourceTable(), &UnitStatusFields::mcPLLSource);
    readMapped(*cProtocol, ":SOURce:REFerence:PPS?", ppsSourceTable(), &UnitStatusFields::mcPPSSource);
    readMapped(*cProtocol, ":SYSTEM:TIME:SYNC?", timeSyncTable(), &UnitStatusFields::mcTimeSync);
    readText(*cProtocol, ":SYSTem:TIME?", &UnitStatusFields::mcTime);
    readText(*cProtocol, ":SYSTem:DATE?", &UnitStatusFields::mcDate);
}

void UnitStatus::readGNSSSettings(SCPIProtocol& cProtocol) {
    int32_t iDelay = 0;
    if (scpiQueryInt(cProtocol, ":GNSS:ADELay?", iDelay)) {
        mcWatch->stamp();
        change([&](UnitStatusFields& cFields) { cFields.miAntennaDelayNs = iDelay; });
    }
    readText(cProtocol, ":GNSS:CONStellation?", &UnitStatusFields::mcConstellation);
    uint32_t uMode = 0;
    if (scpiQueryUnsigned(cProtocol, ":GNSS:DYNamic:MODE?", uMode)) {
        mcWatch->stamp();
        change([&](UnitStatusFields& cFields) { cFields.muDynamicMode = uMode; });
    }
}

void UnitStatus::queryGNSS(const ReferencePtr<SCPIProtocol>& cProtocol, bool bShort) {
    if (!isGNSSFitted() || !cProtocol)
        return;
    if (!bShort)
        readGNSSSettings(*cProtocol);
    const auto cPosition = parsePosition(ask(*cProtocol, ":GNSS:POSition?").value_or(""));
    const uint64_t uNowMs = mcSteadyMs();
    const utils::ScopedLock cLock(mcLock);
    if (cPosition) {
        mcFields.mfLatitude = cPosition->mfLatitude;
        mcFields.mfLongitude = cPosition->mcLongitude.value_or(mcFields.mfLongitude);
        mcFields.mfAltitude = cPosition->mcAltitude.value_or(mcFields.mfAltitude);
        mcFields.muGNSSTimeNs = 0;
        mcFields.muGNSSEpochMs = utils::systemMicroseconds() / 1000;
        mcFields.mbGNSSValid = true;
        mcPositionMs = uNowMs;
    }
    if (!mcPositionMs || uNowMs - *mcPositionMs > kRefreshMs)
        mcFields.mbGNSSValid = false;
}

bool UnitStatus::queryTemperature(const ReferencePtr<SCPIProtocol>& cProtocol) {
    if (!cProtocol)
        return false;
    const auto reply = ask(*cProtocol, ":STATus:TEMPerature?");
    if (reply)
        change([&](UnitStatusFields& cFields) { cFields.mcTemperature = *reply; });
    return reply.has_value();
}

void UnitStatus::refresh(const ReferencePtr<SCPIProtocol>& cProtocol) {
    const uint64_t uNowMs = mcSteadyMs();
    const auto isOld = [uNowMs](const std::optional<uint64_t>& cStamp) {
        return !cStamp || uNowMs - *cStamp >= kRefreshMs;
    };
    bool bTemperature = false;
    bool bPosition = false;
    {
        const utils::ScopedLock cLock(mcLock);
        bTemperature = isOld(mcTemperatureMs);
        bPosition = isOld(mcPositionMs);
        if (bTemperature)
            mcTemperatureMs = uNowMs;
    }
    if (bTemperature)
        queryTemperature(cProtocol);
    if (bPosition)
        queryGNSS(cProtocol, true);
}

void UnitStatus::takeFix(const VITA49Zelvar::GNSSFix& cFix) {
    if (!isGNSSFitted())
        return;
    const utils::ScopedLock cLock(mcLock);
    takePresent(mcFields.mfLatitude, cFix.mfLatitude);
    takePresent(mcFields.mfLongitude, cFix.mfLongitude);
    takePresent(mcFields.mfAltitude, cFix.mfAltitude);
    mcFields.mfSpeed = cFix.mfSpeed;
    mcFields.mfHeading = cFix.mfHeading;
    mcFields.mfTrack = cFix.mfTrack;
    mcFields.mfMagneticVariation = cFix.mfMagneticVariation;
    mcFields.muGNSSTimeNs = uint64_t{cFix.muSeconds} * 1000000000u + cFix.muPicoseconds / 1000u;
}
