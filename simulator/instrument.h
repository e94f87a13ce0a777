#pragma once

#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "simulator/capture.h"
#include "simulator/commandtree.h"
#include "simulator/models.h"
#include "simulator/unit.h"

namespace vnksim {

/// What a command handler throws; it ends up in the error queue.
struct ScpiError {
    int number;
    std::string text;
};

namespace errors {
inline const ScpiError kUndefinedHeader{-113, "Undefined header"};
inline const ScpiError kMissingParameter{-109, "Missing parameter"};
inline const ScpiError kNotAllowed{-108, "Parameter not allowed"};
inline const ScpiError kDataType{-104, "Data type error"};
inline const ScpiError kSettingsConflict{-221, "Settings conflict"};
inline const ScpiError kOutOfRange{-222, "Data out of range"};
inline const ScpiError kTooMuchData{-223, "Too much data"};
inline const ScpiError kIllegalValue{-224, "Illegal parameter value"};
inline const ScpiError kHardwareMissing{-241, "Hardware missing"};
inline const ScpiError kQueueOverflow{-350, "Queue overflow"};
}  // namespace errors

/// The parameters of one command.
class Arguments {
 public:
    /// Parameters are separated by commas; blanks separate too where `blanks` is true.
    Arguments(std::string text, bool blanks);
    size_t size() const { return mlParts.size(); }
    const std::string& raw() const { return mcText; }
    /// These throw the fitting ScpiError.
    const std::string& word(size_t index) const;
    long long integer(size_t index, long long least, long long most) const;
    /// A number that may carry the unit HZ, KHZ, MHZ or GHZ.
    double frequency(size_t index, double least, double most) const;

 private:
    std::string mcText;
    std::vector<std::string> mlParts;
};

/// The command side of a unit: settings, sweep list, error queue. Safe from any thread.
class Instrument {
 public:
    Instrument(const UnitOptions& options, Faults& faults, Capturer& capturer, PacketQueue& queue);

    /// Runs a line of commands joined by ";". Returns the reply without its line feed, or nothing.
    std::optional<std::string> execute(const std::string& line);
    void connectionOpened();
    void reset();
    void pushError(const ScpiError& error);
    void setCorrections(CorrectionData corrections);
    /// Fills what the instrument knows of a state.
    UnitState state() const;

 private:
    using Reply = std::optional<std::string>;
    using Handler = Reply (Instrument::*)(const Arguments&);
    enum class Scope { both, first, second };
    struct Command {
        const char* patterns;
        Handler query;  ///< null: no such query
        Handler set;    ///< null: no such command
        Scope scope = Scope::both;
    };
    static const std::vector<Command>& commands();

    Reply executeOne(const std::string& text, const FaultSettings& faults);
    Reply dispatch(const ScpiCommand& command);
    void plantErrors(const std::string& text, const FaultSettings& faults);
    Reply reported(const std::string& text, const ScpiCommand& command, Reply reply,
                   const FaultSettings& faults);
    void resetSettings();
    void resetSeen(const char* kind);
    void require(bool fitted) const;

    // System.
    Reply identity(const Arguments&);
    Reply clearStatus(const Arguments&);
    Reply resetUnit(const Arguments&);
    Reply operationComplete(const Arguments&);
    Reply nothing(const Arguments&);
    Reply nextError(const Arguments&);
    Reply installedOptions(const Arguments&);
    Reply lockRequest(const Arguments&);
    Reply captureMode(const Arguments&);
    Reply abort(const Arguments&);
    Reply flush(const Arguments&);
    Reply lanAddress(const Arguments&);
    Reply lanAddressQuery(const Arguments&);
    Reply ntp(const Arguments&);
    Reply ntpQuery(const Arguments&);
    Reply timeQuery(const Arguments&);
    Reply dateQuery(const Arguments&);
    Reply timeSync(const Arguments&);
    Reply timeSyncQuery(const Arguments&);
    Reply temperature(const Arguments&);
    Reply pll(const Arguments&);
    Reply pllQuery(const Arguments&);
    Reply pps(const Arguments&);
    Reply ppsQuery(const Arguments&);
    Reply antennaDelay(const Arguments&);
    Reply antennaDelayQuery(const Arguments&);
    Reply constellation(const Arguments&);
    Reply constellationQuery(const Arguments&);
    Reply dynamicMode(const Arguments&);
    Reply dynamicModeQuery(const Arguments&);
    Reply position(const Arguments&);
    Reply signalSize(const Arguments&);
    Reply noiseSize(const Arguments&);
    Reply signalRead(const Arguments&);
    Reply noiseRead(const Arguments&);
    Reply fault(const Arguments&);

    // Input, continuous capture, sweep list.
    Reply inputMode(const Arguments&);
    Reply inputModeQuery(const Arguments&);
    Reply attenuator(const Arguments&);
    Reply attenuatorVariable(const Arguments&);
    Reply attenuatorQuery(const Arguments&);
    Reply gain(const Arguments&);
    Reply gainQuery(const Arguments&);
    Reply referenceLevel(const Arguments&);
    Reply referenceLevelQuery(const Arguments&);
    Reply decimation(const Arguments&);
    Reply decimationQuery(const Arguments&);
    Reply centre(const Arguments&);
    Reply centreQuery(const Arguments&);
    Reply samplesPerPacket(const Arguments&);
    Reply samplesPerPacketQuery(const Arguments&);
    Reply streamStart(const Arguments&);
    Reply streamStop(const Arguments&);
    Reply entryDelete(const Arguments&);
    Reply entryNew(const Arguments&);
    Reply entryCopy(const Arguments&);
    Reply entrySave(const Arguments&);
    Reply entryCount(const Arguments&);
    Reply entryMode(const Arguments&);
    Reply entryCentre(const Arguments&);
    Reply entryStep(const Arguments&);
    Reply entrySamples(const Arguments&);
    Reply entryPackets(const Arguments&);
    Reply entryDecimation(const Arguments&);
    Reply entryAttenuator(const Arguments&);
    Reply entryAttenuatorVariable(const Arguments&);
    Reply listIterations(const Arguments&);
    Reply listIterationsQuery(const Arguments&);
    Reply listStart(const Arguments&);
    Reply listStop(const Arguments&);
    Reply listStatus(const Arguments&);

    unsigned attenuation(const Arguments& arguments, bool variable) const;
    uint32_t samplesArgument(const Arguments& arguments) const;
    uint32_t decimationArgument(const Arguments& arguments) const;
    double centreArgument(const Arguments& arguments, size_t index) const;
    bool directArgument(const Arguments& arguments) const;
    double lowestHz() const;
    double highestHz() const;
    /// Completes what follows from the family and the settings.
    CaptureStep completed(CaptureStep step) const;
    CapturePlan listPlan(uint32_t identifier) const;

    const UnitOptions& mcOptions;
    const Model& mcModel;
    const FamilyTraits& mcTraits;
    Faults& mcFaults;
    Capturer& mcCapturer;
    PacketQueue& mcQueue;
    CommandTree mcTree;
    std::vector<const Command*> mlCommands;  ///< by their numbers in the tree

    mutable std::mutex mcLock;
    std::deque<ScpiError> mlErrors;
    UnitState mcState;
    SweepEntry mcEdited;
    CorrectionData mcCorrections;
};

}  // namespace vnksim
