#include <algorithm>
#include <bit>
#include <cmath>

#include "simulator/instrument.h"
#include "simulator/text.h"

namespace vnksim {
namespace {

constexpr long long kLeastSamples = 256;
constexpr long long kLeastLevelDbm = -40, kMostLevelDbm = 10;
constexpr size_t kMostSteps = 65536;
constexpr size_t kMostEntries = 1000;

}  // namespace

using Reply = std::optional<std::string>;

// --- Input

bool Instrument::directArgument(const Arguments& arguments) const {
    const std::string mode = upper(arguments.word(0));
    if (mode != "DD" && mode != "SH") {
        throw errors::kIllegalValue;
    }
    return mode == "DD";
}

Reply Instrument::inputMode(const Arguments& arguments) {
    mcState.directDigitization = directArgument(arguments);
    return {};
}

Reply Instrument::inputModeQuery(const Arguments&) {
    return mcState.directDigitization ? "DD" : "SH";
}

unsigned Instrument::attenuation(const Arguments& arguments, bool variable) const {
    require(variable == mcModel.variableAttenuator);
    const long long value = arguments.integer(0, 0, 30);
    if (!variable && value % 10 != 0) {
        throw errors::kIllegalValue;
    }
    return static_cast<unsigned>(value);
}

Reply Instrument::attenuator(const Arguments& arguments) {
    mcState.attenuation = attenuation(arguments, false);
    return {};
}

Reply Instrument::attenuatorVariable(const Arguments& arguments) {
    mcState.attenuation = attenuation(arguments, true);
    return {};
}

Reply Instrument::attenuatorQuery(const Arguments&) {
    return std::to_string(mcState.attenuation);
}

Reply Instrument::gain(const Arguments& arguments) {
    require(mcModel.gainStages);
    const long long stage = arguments.integer(0, 1, 2);
    (stage == 1 ? mcState.gain1 : mcState.gain2) = arguments.integer(1, 0, 1) == 1;
    return {};
}

Reply Instrument::gainQuery(const Arguments& arguments) {
    require(mcModel.gainStages);
    return (arguments.integer(0, 1, 2) == 1 ? mcState.gain1 : mcState.gain2) ? "1" : "0";
}

Reply Instrument::referenceLevel(const Arguments& arguments) {
    mcState.referenceLevelDbm = static_cast<double>(arguments.integer(0, kLeastLevelDbm, kMostLevelDbm));
    return {};
}

Reply Instrument::referenceLevelQuery(const Arguments&) {
    return formatNumber(mcState.referenceLevelDbm);
}

uint32_t Instrument::decimationArgument(const Arguments& arguments) const {
    if (mcTraits.powersOfTwo) {
        const auto value = static_cast<uint32_t>(arguments.integer(0, 1, kMostDecimation));
        if (!std::has_single_bit(value)) {
            throw errors::kOutOfRange;
        }
        return value;
    }
    if (upper(arguments.word(0)) == "OFF") {
        return 1;
    }
    const long long value = arguments.integer(0, 1, kMostDecimation);
    if (value != 1 && value < kLeastDecimation) {
        throw errors::kOutOfRange;
    }
    return static_cast<uint32_t>(value);
}

Reply Instrument::decimation(const Arguments& arguments) {
    mcState.decimation = decimationArgument(arguments);
    return {};
}

Reply Instrument::decimationQuery(const Arguments&) {
    return mcState.decimation == 1 && !mcTraits.powersOfTwo ? "OFF" : std::to_string(mcState.decimation);
}

double Instrument::lowestHz() const {
    return mcModel.family == Family::first ? kLowestHz : mcOptions.lowestHz;
}

double Instrument::highestHz() const {
    return mcModel.family == Family::first ? mcModel.highestHz : mcOptions.highestHz;
}

double Instrument::centreArgument(const Arguments& arguments, size_t index) const {
    return arguments.frequency(index, lowestHz(), highestHz());
}

Reply Instrument::centre(const Arguments& arguments) {
    mcState.centreHz = centreArgument(arguments, 0);
    return {};
}

Reply Instrument::centreQuery(const Arguments& arguments) {
    if (arguments.size() == 0) {
        return std::to_string(std::llround(mcState.centreHz));
    }
    const std::string limit = upper(arguments.word(0));
    if (limit != "MIN" && limit != "MAX") {
        throw errors::kIllegalValue;
    }
    return formatNumber(limit == "MIN" ? lowestHz() : highestHz());
}

uint32_t Instrument::samplesArgument(const Arguments& arguments) const {
    const long long value = arguments.integer(0, kLeastSamples, mcTraits.mostSamples);
    if (value % 32 != 0) {
        throw errors::kOutOfRange;
    }
    return static_cast<uint32_t>(value);
}

Reply Instrument::samplesPerPacket(const Arguments& arguments) {
    mcState.samplesPerPacket = samplesArgument(arguments);
    return {};
}

Reply Instrument::samplesPerPacketQuery(const Arguments&) {
    return std::to_string(mcState.samplesPerPacket);
}

// --- Continuous capture

CaptureStep Instrument::completed(CaptureStep step) const {
    step.real = mcTraits.realFullRate && (step.directDigitization || step.decimation == 1);
    step.referenceLevelDbm =
        mcTraits.leveledByGains ? referenceLevelDbm(mcOptions.model, step.gain1, step.gain2, step.attenuation)
                                : mcState.referenceLevelDbm;
    return step;
}

Reply Instrument::streamStart(const Arguments& arguments) {
    const auto identifier =
        static_cast<uint32_t>(arguments.size() > 0 ? arguments.integer(0, INT32_MIN, UINT32_MAX) : 0);
    CaptureStep step;
    step.directDigitization = mcState.directDigitization;
    step.centreHz = mcState.centreHz;
    step.decimation = mcState.decimation;
    step.samplesPerPacket = mcState.samplesPerPacket;
    step.attenuation = mcState.attenuation;
    step.gain1 = mcState.gain1;
    step.gain2 = mcState.gain2;
    mcState.identifier = identifier;
    mcCapturer.start(CapturePlan{identifier, false, {completed(step)}, 1});
    return {};
}

Reply Instrument::streamStop(const Arguments&) {
    mcCapturer.stop();
    return {};
}

// --- Sweep list

Reply Instrument::entryDelete(const Arguments& arguments) {
    if (upper(arguments.word(0)) == "ALL") {
        mcState.list.clear();
        return {};
    }
    const auto place = arguments.integer(0, 1, static_cast<long long>(mcState.list.size()));
    mcState.list.erase(mcState.list.begin() + (place - 1));
    return {};
}

Reply Instrument::entryNew(const Arguments&) {
    mcEdited = {};
    return {};
}

Reply Instrument::entryCopy(const Arguments& arguments) {
    const auto place = arguments.integer(0, 1, static_cast<long long>(mcState.list.size()));
    mcEdited = mcState.list[static_cast<size_t>(place - 1)];
    return {};
}

Reply Instrument::entrySave(const Arguments&) {
    if (mcState.list.size() >= kMostEntries) {
        throw errors::kTooMuchData;
    }
    mcState.list.push_back(mcEdited);
    return {};
}

Reply Instrument::entryCount(const Arguments&) {
    return std::to_string(mcState.list.size());
}

Reply Instrument::entryMode(const Arguments& arguments) {
    mcEdited.directDigitization = directArgument(arguments);
    return {};
}

Reply Instrument::entryCentre(const Arguments& arguments) {
    const double first = centreArgument(arguments, 0);
    const double last = arguments.size() > 1 ? centreArgument(arguments, 1) : first;
    if (last < first) {
        throw errors::kSettingsConflict;
    }
    mcEdited.centreFirst = static_cast<uint64_t>(std::llround(first));
    mcEdited.centreLast = static_cast<uint64_t>(std::llround(last));
    return {};
}

Reply Instrument::entryStep(const Arguments& arguments) {
    mcEdited.centreStep = static_cast<uint64_t>(std::llround(arguments.frequency(0, 0, highestHz())));
    return {};
}

Reply Instrument::entrySamples(const Arguments& arguments) {
    mcEdited.samplesPerPacket = samplesArgument(arguments);
    return {};
}

Reply Instrument::entryPackets(const Arguments& arguments) {
    mcEdited.packetsPerBlock = static_cast<uint32_t>(arguments.integer(0, 1, 1 << 20));
    return {};
}

Reply Instrument::entryDecimation(const Arguments& arguments) {
    mcEdited.decimation = decimationArgument(arguments);
    return {};
}

Reply Instrument::entryAttenuator(const Arguments& arguments) {
    mcEdited.attenuation = attenuation(arguments, false);
    return {};
}

Reply Instrument::entryAttenuatorVariable(const Arguments& arguments) {
    mcEdited.attenuation = attenuation(arguments, true);
    return {};
}

Reply Instrument::listIterations(const Arguments& arguments) {
    mcState.iterations = static_cast<uint32_t>(arguments.integer(0, 0, INT32_MAX));
    return {};
}

Reply Instrument::listIterationsQuery(const Arguments&) {
    return std::to_string(mcState.iterations);
}

CapturePlan Instrument::listPlan(uint32_t identifier) const {
    CapturePlan plan{identifier, true, {}, mcState.iterations};
    uint32_t number = 0;
    for (const SweepEntry& entry : mcState.list) {
        CaptureStep step;
        step.directDigitization = entry.directDigitization;
        step.decimation = entry.decimation;
        step.samplesPerPacket = entry.samplesPerPacket;
        step.packets = entry.packetsPerBlock;
        step.attenuation = entry.attenuation;
        step.gain1 = mcState.gain1;
        step.gain2 = mcState.gain2;
        step.entry = number++;
        const bool stepped = !entry.directDigitization && entry.centreStep > 0;
        for (uint64_t centre = entry.centreFirst; centre <= entry.centreLast; centre += entry.centreStep) {
            if (plan.steps.size() >= kMostSteps) {
                throw errors::kTooMuchData;
            }
            step.centreHz = static_cast<double>(centre);
            plan.steps.push_back(completed(step));
            if (!stepped) {
                break;
            }
        }
    }
    return plan;
}

Reply Instrument::listStart(const Arguments& arguments) {
    const auto identifier =
        static_cast<uint32_t>(arguments.size() > 0 ? arguments.integer(0, INT32_MIN, UINT32_MAX) : 0);
    if (mcState.list.empty()) {
        throw errors::kSettingsConflict;
    }
    CapturePlan plan = listPlan(identifier);
    mcState.identifier = identifier;
    mcCapturer.start(std::move(plan));
    return {};
}

Reply Instrument::listStop(const Arguments&) {
    mcCapturer.stop();
    return {};
}

Reply Instrument::listStatus(const Arguments&) {
    return mcCapturer.mode() == "SWEEPING" ? "RUNNING" : "STOPPED";
}

}  // namespace vnksim
