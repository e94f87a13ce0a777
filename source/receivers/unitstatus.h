#pragma once

#include <bit>
#include <functional>
#include <span>
#include <string>

#include "foundations/clock.h"
#include "foundations/namedlock.h"
#include "links/scpiprotocol.h"
#include "links/vita49zelvar.h"
#include "receivers/linkwatch.h"

/// What a unit has told of itself, as of the last reports.
struct UnitStatusFields {
    uint64_t muGNSSEpochMs = 0;  // of the system's clock
    bool mbGNSSValid = false;
    uint64_t muGNSSTimeNs = 0;
    float mfLatitude = std::bit_cast<float>(0x42355555u);
    float mfLongitude = std::bit_cast<float>(0xC297CCCCu);
    float mfAltitude = 160.0f;
    float mfSpeed = 0.0f;
    float mfHeading = 0.0f;
    float mfTrack = 0.0f;
    float mfMagneticVariation = std::bit_cast<float>(0xC14DC28Fu);
    int32_t miAntennaDelayNs = 0;
    uint32_t muDynamicMode = 2;
    std::string mcConstellation;
    std::string mcPLLSource = "internal";
    std::string mcPPSSource;
    std::string mcTimeSync;
    std::string mcDate;
    std::string mcTime;
    std::string mcNTPServers;
    std::string mcTemperature;
};

/// A value of a parameter and the word by which the unit knows it.
struct ValuePair {
    const char* mpParameter;
    const char* mpUnit;
};
using ValueTable = std::span<const ValuePair>;

ValueTable pllSourceTable();
ValueTable ppsSourceTable();
ValueTable timeSyncTable();
/// The first match; null without one.
const ValuePair* findByParameter(ValueTable cTable, std::string_view value);
const ValuePair* findByUnit(ValueTable cTable, std::string_view value);

/// The nine names of the dynamic modes by number; number 1 has none.
std::span<const char* const> dynamicModeNames();
/// Empty for a number without a name.
std::string dynamicModeName(uint32_t uMode);

/// What a reply to ":GNSS:POSition?" says; empty unless its latitude is a number from -90 to 90. Longitude
/// and altitude are empty where the reply has none.
struct GNSSPosition {
    float mfLatitude;
    std::optional<float> mcLongitude;
    std::optional<float> mcAltitude;
};
std::optional<GNSSPosition> parsePosition(std::string_view reply);
/// The comma-separated items of a reply to "SYSTEM:OPTIONS?" hold this one.
bool hasOption(std::string_view reply, std::string_view option);

/// Keeps the status of a unit and asks for it. Any thread: parameters are read on callers' threads, positions
/// also come with the stream on the polling thread. No lock is held while the unit is asked.
class UnitStatus {
 public:
    static constexpr uint64_t kRefreshMs = 10000;

    /// Each reply stamps the watch.
    explicit UnitStatus(ReferencePtr<LinkWatch> cWatch,
                          std::function<uint64_t()> steadyMs = utils::steadyMilliseconds);

    void setGNSSFitted(bool bFitted) { mbGNSSFitted.store(bFitted, std::memory_order_relaxed); }
    bool isGNSSFitted() const { return mbGNSSFitted.load(std::memory_order_relaxed); }

    UnitStatusFields fields() const;
    /// Changes fields with the lock held.
    template <typename Change>
    void change(Change apply) {
        const utils::ScopedLock cLock(mcLock);
        apply(mcFields);
    }

    // Each leaves alone what the unit does not answer, and does nothing with no protocol.
    void readAtOpen(const ReferencePtr<SCPIProtocol>& cProtocol);
    void queryGNSS(const ReferencePtr<SCPIProtocol>& cProtocol, bool bShort);
    bool queryTemperature(const ReferencePtr<SCPIProtocol>& cProtocol);
    /// Asks for temperature and position where what is there is 10,000 ms old.
    void refresh(const ReferencePtr<SCPIProtocol>& cProtocol);
    /// A position that came with the stream. Fields marked absent are left alone.
    void takeFix(const VITA49Zelvar::GNSSFix& cFix);

 private:
    std::optional<std::string> ask(SCPIProtocol& cProtocol, const char* pQuery);
    void readMapped(SCPIProtocol& cProtocol, const char* pQuery, ValueTable cTable,
                    std::string UnitStatusFields::*pField);
    void readText(SCPIProtocol& cProtocol, const char* pQuery, std::string UnitStatusFields::*pField);
    void readGNSSSettings(SCPIProtocol& cProtocol);

    ReferencePtr<LinkWatch> mcWatch;
    std::function<uint64_t()> mcSteadyMs;
    std::atomic<bool> mbGNSSFitted{false};
    mutable utils::NamedLock mcLock{"UnitStatus::mcLock"};
    UnitStatusFields mcFields GUARDED_BY(mcLock);
    std::optional<uint64_t> mcPositionMs GUARDED_BY(mcLock);  // of the steady clock, as all ages
    std::optional<uint64_t> mcTemperatureMs GUARDED_BY(mcLock);
};
