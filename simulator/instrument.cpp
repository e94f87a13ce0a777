#include "simulator/instrument.h"

#include <algorithm>

#include "simulator/text.h"

namespace vnksim {
namespace {

constexpr size_t kErrorQueueLimit = 30;

std::vector<std::string> parts(const std::string& text, bool blanks) {
    std::vector<std::string> result;
    for (const std::string& part : split(text, ',')) {
        if (!blanks) {
            result.push_back(part);
            continue;
        }
        for (const std::string& word : split(part, ' ')) {
            if (!word.empty()) {
                result.push_back(word);
            }
        }
    }
    return result;
}

}  // namespace

Arguments::Arguments(std::string text, bool blanks) : mcText(std::move(text)) {
    if (!mcText.empty()) {
        mlParts = parts(mcText, blanks);
    }
}

const std::string& Arguments::word(size_t index) const {
    if (index >= mlParts.size() || mlParts[index].empty()) {
        throw errors::kMissingParameter;
    }
    return mlParts[index];
}

long long Arguments::integer(size_t index, long long least, long long most) const {
    const auto value = parseInteger(word(index));
    if (!value) {
        throw errors::kDataType;
    }
    if (*value < least || *value > most) {
        throw errors::kOutOfRange;
    }
    return *value;
}

double Arguments::frequency(size_t index, double least, double most) const {
    std::string text = upper(word(index));
    double factor = 1;
    const struct {
        const char* name;
        double factor;
    } units[] = {{"KHZ", 1e3}, {"MHZ", 1e6}, {"GHZ", 1e9}, {"HZ", 1}};
    for (const auto& unit : units) {
        const std::string name = unit.name;
        if (text.size() > name.size() && text.compare(text.size() - name.size(), name.size(), name) == 0) {
            text = trim(text.substr(0, text.size() - name.size()));
            factor = unit.factor;
            break;
        }
    }
    const auto value = parseNumber(text);
    if (!value) {
        throw errors::kDataType;
    }
    if (!(*value * factor >= least && *value * factor <= most)) {
        throw errors::kOutOfRange;
    }
    return *value * factor;
}

Instrument::Instrument(const UnitOptions& options, Faults& faults, Capturer& capturer, PacketQueue& queue)
    : mcOptions(options),
      mcModel(*findModel(options.model)),
      mcTraits(traitsOf(mcModel.family)),
      mcFaults(faults),
      mcCapturer(capturer),
      mcQueue(queue),
      mcCorrections(options.corrections) {
    const Scope other = mcModel.family == Family::first ? Scope::second : Scope::first;
    for (const Command& command : commands()) {
        if (command.scope != other) {
            mcTree.add(command.patterns);
            mlCommands.push_back(&command);
        }
    }
    mcState.pll = "INT";
    mcState.pps = mcModel.gnss ? "GNSS" : "EXT";
    mcState.timeSync = "DISABLE";
    mcState.constellation = "GPS";
    resetSettings();
}

void Instrument::resetSettings() {
    mcState.directDigitization = false;
    mcState.centreHz = std::clamp(100e6, lowestHz(), highestHz());
    mcState.decimation = 8;
    mcState.samplesPerPacket = mcTraits.mostSamples;
    mcState.referenceLevelDbm = 0;
    mcState.attenuation = 0;
    mcState.gain1 = mcState.gain2 = true;
    mcState.list.clear();
    mcState.iterations = 1;
    mcEdited = {};
}

void Instrument::reset() {
    const std::scoped_lock lock(mcLock);
    resetSettings();
    mlErrors.clear();
}

void Instrument::connectionOpened() {
    const std::scoped_lock lock(mcLock);
    resetSeen("reconnect");
}

/// Tells the faults that wait for a certain kind of reset.
void Instrument::resetSeen(const char* kind) {
    const FaultSettings faults = mcFaults.snapshot();
    if (upper(faults.lockRefusedUntil) == upper(kind)) {
        mcFaults.change([](FaultSettings& now) { now.lockRefusedUntil.clear(); });
    }
    if (std::string_view(kind) == "reconnect") {
        return;
    }
    if (!faults.stuckMode.empty() && faults.stuckFreedAtReset > 0) {
        mcFaults.change([](FaultSettings& now) {
            if (now.stuckFreedAtReset > 0 && --now.stuckFreedAtReset == 0) {
                now.stuckMode.clear();
            }
        });
    }
}

void Instrument::pushError(const ScpiError& error) {
    const std::scoped_lock lock(mcLock);
    mlErrors.push_back(error);
}

void Instrument::setCorrections(CorrectionData corrections) {
    const std::scoped_lock lock(mcLock);
    mcCorrections = std::move(corrections);
}

UnitState Instrument::state() const {
    const std::scoped_lock lock(mcLock);
    UnitState state = mcState;
    CaptureStep step;
    step.attenuation = state.attenuation;
    step.gain1 = state.gain1;
    step.gain2 = state.gain2;
    state.referenceLevelDbm = completed(step).referenceLevelDbm;
    state.errors = mlErrors.size();
    return state;
}

void Instrument::require(bool fitted) const {
    if (!fitted) {
        throw errors::kHardwareMissing;
    }
}

std::optional<std::string> Instrument::execute(const std::string& line) {
    const std::scoped_lock lock(mcLock);
    const FaultSettings faults = mcFaults.snapshot();
    Reply joined;
    for (const std::string& text : split(line, ';')) {
        if (text.empty()) {
            continue;
        }
        const Reply reply = executeOne(text, faults);
        if (reply) {
            joined = joined ? *joined + ";" + *reply : *reply;
        }
    }
    return joined;
}

Instrument::Reply Instrument::executeOne(const std::string& text, const FaultSettings& faults) {
    const ScpiCommand command = parseCommand(text);
    Reply reply;
    try {
        reply = dispatch(command);
    } catch (const ScpiError& error) {
        if (mlErrors.size() >= kErrorQueueLimit) {
            mlErrors.back() = errors::kQueueOverflow;
        } else {
            mlErrors.push_back(error);
        }
    }
    plantErrors(text, faults);
    return reported(text, command, std::move(reply), faults);
}

void Instrument::plantErrors(const std::string& text, const FaultSettings& faults) {
    for (const PlantedError& planted : faults.errors) {
        if (planted.times != 0 && containsIgnoringCase(text, planted.command)) {
            mlErrors.push_back({planted.number, planted.text});
            mcFaults.change([&planted](FaultSettings& now) {
                for (PlantedError& candidate : now.errors) {
                    if (candidate.command == planted.command && candidate.number == planted.number &&
                        candidate.times > 0) {
                        --candidate.times;
                        return;
                    }
                }
            });
        }
    }
}

/// What the faults leave of a reply.
Instrument::Reply Instrument::reported(const std::string& text, const ScpiCommand& command, Reply reply,
                                       const FaultSettings& faults) {
    if (!command.query) {
        return reply;
    }
    for (const auto& [wanted, wrong] : faults.wrongReplies) {
        if (containsIgnoringCase(text, wanted)) {
            reply = wrong;
        }
    }
    if (!faults.noReplyTo.empty() &&
        (faults.noReplyTo == "*" || containsIgnoringCase(text, faults.noReplyTo))) {
        return std::nullopt;
    }
    return reply;
}

Instrument::Reply Instrument::dispatch(const ScpiCommand& command) {
    const int number = mcTree.find(command.header);
    if (number == CommandTree::kNone) {
        throw errors::kUndefinedHeader;
    }
    const Command& found = *mlCommands[static_cast<size_t>(number)];
    const Handler handler = command.query ? found.query : found.set;
    if (handler == nullptr) {
        throw errors::kUndefinedHeader;
    }
    const bool blanks = handler == &Instrument::gain || handler == &Instrument::gainQuery;
    return (this->*handler)(Arguments(command.parameters, blanks));
}

const std::vector<Instrument::Command>& Instrument::commands() {
    using I = Instrument;
    static const std::vector<Command> table = {
        {"*IDN", &I::identity, nullptr},
        {"*CLS", nullptr, &I::clearStatus},
        {"*RST", nullptr, &I::resetUnit},
        {"*OPC", &I::operationComplete, &I::nothing},
        {"*WAI", nullptr, &I::nothing},
        {"SYSTem:ERRor|SYSTem:ERRor:NEXT", &I::nextError, nullptr},
        {"SYSTem:OPTions", &I::installedOptions, nullptr},
        {"SYSTem:LOCK:REQuest", &I::lockRequest, nullptr},
        {"SYSTem:CAPTure:MODE", &I::captureMode, nullptr},
        {"SYSTem:ABORt", nullptr, &I::abort},
        {"SYSTem:FLUSh", nullptr, &I::flush},
        {"SYSTem:COMMunicate:LAN:IP", &I::lanAddressQuery, &I::lanAddress},
        {"SYSTem:COMMunicate:NTP", &I::ntpQuery, &I::ntp},
        {"SYSTem:TIME", &I::timeQuery, nullptr},
        {"SYSTem:DATE", &I::dateQuery, nullptr},
        {"SYSTem:TIME:SYNC", &I::timeSyncQuery, &I::timeSync},
        {"STATus:TEMPerature", &I::temperature, nullptr},
        {"SOURce:REFerence:PLL", &I::pllQuery, &I::pll},
        {"SOURce:REFerence:PPS", &I::ppsQuery, &I::pps},
        {"GNSS:ADELay", &I::antennaDelayQuery, &I::antennaDelay},
        {"GNSS:CONStellation", &I::constellationQuery, &I::constellation},
        {"GNSS:DYNamic:MODE", &I::dynamicModeQuery, &I::dynamicMode},
        {"GNSS:POSition", &I::position, nullptr},
        {"DATA:CORRection:SIGNal:SIZE", &I::signalSize, nullptr},
        {"DATA:CORRection:NOISe:SIZE", &I::noiseSize, nullptr},
        {"DATA:CORRection:SIGNal:READ", &I::signalRead, nullptr},
        {"DATA:CORRection:NOISe:READ", &I::noiseRead, nullptr},
        // Hosts of the second family write a colon too many.
        {"DATA:CORRection::SIGNal:READ", &I::signalRead, nullptr, Scope::second},
        {"DATA:CORRection::NOISe:READ", &I::noiseRead, nullptr, Scope::second},
        {"SIMulator:FAULt", nullptr, &I::fault},
        {"INPut:MODE", &I::inputModeQuery, &I::inputMode, Scope::first},
        {"INPut:ATTenuator", &I::attenuatorQuery, &I::attenuator, Scope::first},
        {"INPut:ATTenuator:VARiable", &I::attenuatorQuery, &I::attenuatorVariable, Scope::first},
        {"INPut:GAIN", &I::gainQuery, &I::gain, Scope::first},
        {"DEBUG:REFerence:LEVel", &I::referenceLevelQuery, &I::referenceLevel, Scope::second},
        {"SENSe:DECimation", &I::decimationQuery, &I::decimation},
        {"FREQuency:CENTer|SENSe:FREQuency:CENTer", &I::centreQuery, &I::centre},
        {"TRACe:SPPacket", &I::samplesPerPacketQuery, &I::samplesPerPacket},
        {"TRACe:STReam:STARt", nullptr, &I::streamStart},
        {"TRACe:STReam:STOP", nullptr, &I::streamStop},
        {"SWEep:ENTRy:DELete", nullptr, &I::entryDelete},
        {"SWEep:ENTRy:NEW", nullptr, &I::entryNew},
        {"SWEep:ENTRy:COPY", nullptr, &I::entryCopy},
        {"SWEep:ENTRy:SAVE", nullptr, &I::entrySave},
        {"SWEep:ENTRy:COUNt", &I::entryCount, nullptr},
        {"SWEep:ENTRy:MODE", nullptr, &I::entryMode, Scope::first},
        {"SWEep:ENTRy:FREQuency:CENTer", nullptr, &I::entryCentre},
        {"SWEep:ENTRy:FREQuency:STEP", nullptr, &I::entryStep},
        {"SWEep:ENTRy:SPPacket|SWEep:ENTRy:SPP", nullptr, &I::entrySamples},
        {"SWEep:ENTRy:PPBlock|SWEep:ENTRy:PPB", nullptr, &I::entryPackets},
        {"SWEep:ENTRy:DECimation", nullptr, &I::entryDecimation},
        {"SWEep:ENTRy:ATTenuator", nullptr, &I::entryAttenuator, Scope::first},
        {"SWEep:ENTRy:ATTenuator:VARiable", nullptr, &I::entryAttenuatorVariable, Scope::first},
        {"SWEep:LIST:ITERations", &I::listIterationsQuery, &I::listIterations},
        {"SWEep:LIST:STARt", nullptr, &I::listStart},
        {"SWEep:LIST:STOP", nullptr, &I::listStop},
        {"SWEep:LIST:STATus", &I::listStatus, nullptr},
    };
    return table;
}

}  // namespace vnksim
