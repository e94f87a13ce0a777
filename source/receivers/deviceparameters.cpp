#include "receivers/deviceparameters.h"

#include <algorithm>

#include "dsp/windowfunctions.h"
#include "foundations/text.h"

namespace {

std::list<std::string> valuesOf(ValueTable cTable) {
    std::list<std::string> lValues;
    for (const ValuePair& cPair : cTable)
        lValues.push_back(cPair.mpParameter);
    return lValues;
}

std::list<std::string> namedDynamicModes() {
    std::list<std::string> lNames;
    for (const char* pName : dynamicModeNames())
        if (*pName)
            lNames.push_back(pName);
    return lNames;
}

// A parameter without a unit and without a list of values is described by its plain text, one with either by
// the nested form.

void addQuantity(utils::VariantRecord& cSchema, const char* pKey, const char* pDescription,
                 const char* pUnits) {
    addNumericSchema(cSchema, pKey, pDescription, 0.0f, 0.0f, 0.0f, pUnits, true);
}

void addGNSSInfo(utils::VariantRecord& cSchema) {
    cSchema.set("GNSSCons", "<Programmed GNSS Constellation set (1 or 2 of GPS, BEIDOU, GLONASS)>");
    addEnumSchema(cSchema, "GNSSDynamic", "<GNSS Dynamic mode>", namedDynamicModes(), false);
    addNumericSchema(cSchema, "GNSSAntDelay", "<Programmed GNSS Antenna delay integer>", 0.0f, 0.0f, 0.0f,
                     "nanoseconds", false);
    cSchema.set("GNSSPosnEpoch", "<Epoch(msec UTC) of last GNSS position report received>");
    cSchema.set("GNSSTimeNanosec", "<Epoch(nanosec UTC) from GNSS information - available during streaming");
    cSchema.set("GNSSValid", "<GNSS data available flag>");
    addQuantity(cSchema, "latitude", "<GNSS-reported latitude>", "degrees North");
    addQuantity(cSchema, "longitude", "<GNSS-reported longitude>", "degrees East");
    addQuantity(cSchema, "altitude", "<GNSS-reported altitude>", "meters MSL");
    addQuantity(cSchema, "GNSSSpeed", "<GNSS reported ground speed>", "m/sec");
    addQuantity(cSchema, "GNSSHeading", "<GNSS reported heading>", "degrees true");
    addQuantity(cSchema, "GNSSTrack", "<GNSS reported track>", "degrees true");
    addQuantity(cSchema, "GNSSMagVar", "<GNSS reported magnetic variation>", "degrees true");
}

void addStreamInfo(utils::VariantRecord& cSchema) {
    cSchema.set("FMinHz", "<minimum extent of sweep frequency range>");
    cSchema.set("FMaxHz", "<maximum extent of sweep frequency range>");
    cSchema.set("RBWHz", "<spectrum resolution bandwidth>");
    addEnumSchema(cSchema, "WindowFn", "<window used to reconstruct spectrum>",
                  WindowFunctions::listWindowNames(), false);
    cSchema.set("FCentreHz", "<centre frequency for IQ streaming>");
    cSchema.set("IFBWHz", "<IF bandwidth for IQ streaming>");
}

void addGNSSParameters(utils::VariantRecord& cRecord, const UnitStatusFields& cStatus) {
    cRecord.set("GNSSPosnEpoch", cStatus.muGNSSEpochMs);
    cRecord.set("GNSSAntDelay", cStatus.miAntennaDelayNs);
    cRecord.set("GNSSCons", cStatus.mcConstellation);
    cRecord.set("GNSSDynamic", dynamicModeName(cStatus.muDynamicMode));
    cRecord.set("GNSSValid", cStatus.mbGNSSValid);
    if (!cStatus.mbGNSSValid)
        return;
    cRecord.set("latitude", cStatus.mfLatitude);
    cRecord.set("longitude", cStatus.mfLongitude);
    cRecord.set("altitude", cStatus.mfAltitude);
    cRecord.set("GNSSSpeed", cStatus.mfSpeed);
    cRecord.set("GNSSHeading", cStatus.mfHeading);
    cRecord.set("GNSSTrack", cStatus.mfTrack);
    cRecord.set("GNSSMagVar", cStatus.mfMagneticVariation);
    if (cStatus.muGNSSTimeNs != 0)
        cRecord.set("GNSSTimeNanosec", cStatus.muGNSSTimeNs);
}

void takeNTPServers(utils::VariantRecord& cRecord, ErrorList& lErrors, DeviceSettings& cSettings) {
    const auto servers = cRecord.takeText("NTPServers");
    if (!servers)
        return;
    cSettings.mcChannel.send("SYSTEM:COMMUNICATE:NTP " + *servers);
    const std::string error = cSettings.mcChannel.querySystemError();
    if (!error.empty()) {
        lErrors.push_back(error);
        return;
    }
    const std::string reply = cSettings.mcChannel.query("SYSTEM:COMMUNICATE:NTP?");
    if (!reply.empty())
        cSettings.mcStatus.change(
            [&](UnitStatusFields& cFields) { cFields.mcNTPServers = utils::strip(reply); });
}

void takeDynamicMode(utils::VariantRecord& cRecord, ErrorList& lErrors, DeviceSettings& cSettings) {
    const auto name = cRecord.takeText("GNSSDynamic");
    if (!name)
        return;
    const auto lNames = dynamicModeNames();
    const auto it = std::find_if(lNames.begin(), lNames.end(),
                                 [&](const char* pName) { return *pName && *name == pName; });
    if (it == lNames.end()) {
        lErrors.push_back("Parameter GNSSDynamic value '" + *name + "' is invalid");
        return;
    }
    const auto uMode = static_cast<uint32_t>(it - lNames.begin());
    cSettings.mcStatus.change([&](UnitStatusFields& cFields) { cFields.muDynamicMode = uMode; });
    cSettings.mcChannel.send(":GNSS:DYNamic:MODE " + std::to_string(uMode));
}

void takeGNSS(utils::VariantRecord& cRecord, ErrorList& lErrors, DeviceSettings& cSettings) {
    int32_t iDelay = 0;
    if (cRecord.takeInt32("GNSSAntDelay", iDelay)) {
        cSettings.mcStatus.change([&](UnitStatusFields& cFields) { cFields.miAntennaDelayNs = iDelay; });
        cSettings.mcChannel.send(":GNSS:ADELay " + std::to_string(iDelay));
    }
    if (const auto constellation = cRecord.takeText("GNSSCons")) {
        cSettings.mcStatus.change(
            [&](UnitStatusFields& cFields) { cFields.mcConstellation = *constellation; });
        cSettings.mcChannel.send(":GNSS:CONStellation " + *constellation);
    }
    takeDynamicMode(cRecord, lErrors, cSettings);
}

/// A parameter whose values stand in a table beside the unit's words for them.
struct TableParameter {
    const char* mpKey;
    const char* mpName;  // as the texts have it
    const char* mpCommand;
    ValueTable mcTable;
    std::string UnitStatusFields::*mpField;
    bool (*mpNeedsGNSS)(std::string_view unitValue);
};

bool isGNSSSource(std::string_view unitValue) {
    return unitValue == "GNSS";
}

bool isNetworkTime(std::string_view unitValue) {
    // The second spelling is not the table's, so that "continuous" passes on every model.
    return unitValue == "NTP,ONCE" || unitValue == "NTP,CONTinuous";
}

void takeFromTable(utils::VariantRecord& cRecord, ErrorList& lErrors, DeviceSettings& cSettings,
                   const TableParameter& cParameter) {
    const auto value = cRecord.takeText(cParameter.mpKey);
    if (!value)
        return;
    const std::string subject = std::string(cParameter.mpName) + " '" + *value + "'";
    const ValuePair* pPair = findByParameter(cParameter.mcTable, *value);
    if (!pPair) {
        lErrors.push_back(subject + " is not valid");
        return;
    }
    if (!cSettings.mcStatus.isGNSSFitted() && cParameter.mpNeedsGNSS(pPair->mpUnit)) {
        lErrors.push_back(subject + " is invalid for non-GNSS enabled device.");
        return;
    }
    cSettings.mcChannel.send(std::string(cParameter.mpCommand) + " " + pPair->mpUnit);
    cSettings.mcStatus.change([&](UnitStatusFields& cFields) { cFields.*cParameter.mpField = *value; });
}

}  // namespace

utils::VariantRecord deviceParameterInfo(bool bGNSS) {
    utils::VariantRecord cSchema;
    cSchema.set("RefdBm", "<Maximum expected signal level - program via stream>");
    cSchema.set("RxSampleRate", "<Receiver base sampling rate>");
    cSchema.set("iqequalization", "<true iff IFBW equalization is available>");
    cSchema.set("SweepActive", "<spectrum sweep active flag>");
    cSchema.set("IQActive", "<IQ streaming active flag>");
    cSchema.set("NTPServers", "<Comma-separated IP NTP server list (up to 3)>");
    cSchema.set("SCPIQueryTimeout", "<timeout in msec for SCPI call completion>");
    cSchema.set("deviceTemperature", "<device temperatures in degC - RF, Mixer, Digital sections>");
    if (bGNSS)
        addGNSSInfo(cSchema);
    addEnumSchema(cSchema, "pllSource", "<PLL disciplining source>", valuesOf(pllSourceTable()), false);
    addEnumSchema(cSchema, "ppsSource", "<PPS disciplining source>", valuesOf(ppsSourceTable()), false);
    addEnumSchema(cSchema, "timeSync", "<Time Sync option>", valuesOf(timeSyncTable()), false);
    addStreamInfo(cSchema);
    return cSchema;
}

void addDeviceParameters(utils::VariantRecord& cRecord, const DeviceState& cState,
                         const UnitStatusFields& cStatus) {
    cRecord.set("RxSampleRate", cState.mfSampleRateHz);
    cRecord.set("iqequalization", cState.mbFlatten);
    cRecord.set("SweepActive", cState.mbSweepActive);
    cRecord.set("IQActive", cState.mbIQActive);
    cRecord.set("NTPServers", cStatus.mcNTPServers);
    cRecord.set("SCPIQueryTimeout", cState.muQueryTimeoutMs);
    cRecord.set("deviceTemperature", cStatus.mcTemperature);
    if (cState.mbGNSS)
        addGNSSParameters(cRecord, cStatus);
    cRecord.set("pllSource", cStatus.mcPLLSource);
    cRecord.set("ppsSource", cStatus.mcPPSSource);
    cRecord.set("timeSync", cStatus.mcTimeSync);
    cRecord.set("Date", cStatus.mcDate);
    cRecord.set("Time", cStatus.mcTime);
}

void takeDeviceParameters(utils::VariantRecord& cRecord, ErrorList& lErrors, DeviceSettings cSettings) {
    takeNTPServers(cRecord, lErrors, cSettings);
    if (const auto uTimeoutMs = takeCount(cRecord, "SCPIQueryTimeout"))
        cSettings.mcChannel.setQueryTimeoutMs(*uTimeoutMs);
    if (cSettings.mpInhibitContinuousSweep)
        if (const auto bInhibit = cRecord.takeBool("InhibitContinuousSweep"))
            cSettings.mpInhibitContinuousSweep->store(*bInhibit, std::memory_order_relaxed);
    if (cSettings.mcStatus.isGNSSFitted())
        takeGNSS(cRecord, lErrors, cSettings);
    takeFromTable(cRecord, lErrors, cSettings,
                  {"pllSource", "PLLSource", ":SOURce:REFerence:PLL", pllSourceTable(),
                   &UnitStatusFields::mcPLLSource, isGNSSSource});
    takeFromTable(cRecord, lErrors, cSettings,
                  {"ppsSource", "PPSSource", ":SOURce:REFerence:PPS", ppsSourceTable(),
                   &UnitStatusFields::mcPPSSource, isGNSSSource});
    takeFromTable(cRecord, lErrors, cSettings,
                  {"timeSync", "Time sync", ":SYSTem:TIME:SYNC", timeSyncTable(),
                   &UnitStatusFields::mcTimeSync, isNetworkTime});
}
