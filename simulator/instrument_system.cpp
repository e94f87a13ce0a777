#include <algorithm>
#include <ctime>

#include "simulator/instrument.h"
#include "simulator/text.h"

namespace vnksim {
namespace {

std::tm utcNow() {
    const std::time_t now = std::time(nullptr);
    std::tm utc{};
    ::gmtime_r(&now, &utc);
    return utc;
}

bool oneOf(const std::string& word, std::initializer_list<const char*> choices) {
    return std::any_of(choices.begin(), choices.end(),
                       [&word](const char* choice) { return word == choice; });
}

/// A definite-length block of a part of a data set.
std::string block(const std::vector<uint8_t>& data, const Arguments& arguments) {
    const auto size = static_cast<long long>(data.size());
    const long long offset = arguments.integer(0, 0, size);
    const long long length = arguments.integer(1, 0, size - offset);
    const std::string digits = std::to_string(length);
    std::string reply("#");
    reply += std::to_string(digits.size());
    reply += digits;
    reply.append(data.begin() + offset, data.begin() + offset + length);
    return reply;
}

std::string sizeText(const std::vector<uint8_t>& data, int64_t told) {
    return std::to_string(told >= 0 ? told : static_cast<int64_t>(data.size()));
}

}  // namespace

using Reply = std::optional<std::string>;

Reply Instrument::identity(const Arguments&) {
    return "Varnik," + mcOptions.model + " " + mcOptions.version + "," + mcOptions.serial + "," +
           mcOptions.firmware;
}

Reply Instrument::clearStatus(const Arguments&) {
    mlErrors.clear();
    return {};
}

Reply Instrument::resetUnit(const Arguments&) {
    mcCapturer.stop();
    mcQueue.clear();
    resetSettings();
    resetSeen("rst");
    return {};
}

Reply Instrument::operationComplete(const Arguments&) {
    return "1";
}

Reply Instrument::nothing(const Arguments&) {
    return {};
}

Reply Instrument::nextError(const Arguments&) {
    if (mlErrors.empty()) {
        return "0,\"No error\"";
    }
    const ScpiError error = mlErrors.front();
    mlErrors.pop_front();
    return std::to_string(error.number) + ",\"" + error.text + "\"";
}

Reply Instrument::installedOptions(const Arguments&) {
    return mcOptions.installedOptions;
}

Reply Instrument::lockRequest(const Arguments& arguments) {
    if (!oneOf(upper(arguments.word(0)), {"ACQ", "ACQUISITION"})) {
        throw errors::kIllegalValue;
    }
    return mcFaults.snapshot().lockRefusedUntil.empty() ? "1" : "0";
}

Reply Instrument::captureMode(const Arguments&) {
    const std::string stuck = mcFaults.snapshot().stuckMode;
    return stuck.empty() ? mcCapturer.mode() : stuck;
}

Reply Instrument::abort(const Arguments&) {
    mcCapturer.stop();
    mcQueue.clear();
    resetSeen("abort");
    return {};
}

Reply Instrument::flush(const Arguments&) {
    mcQueue.clear();
    return {};
}

Reply Instrument::lanAddress(const Arguments& arguments) {
    // The address is fixed; the command is taken so that it can serve as traffic that changes nothing.
    const auto numbers = split(arguments.word(0), '.');
    for (const std::string& number : numbers) {
        const auto value = parseInteger(number);
        if (numbers.size() != 4 || !value || *value < 0 || *value > 255) {
            throw errors::kIllegalValue;
        }
    }
    return {};
}

Reply Instrument::lanAddressQuery(const Arguments&) {
    return mcOptions.address;
}

Reply Instrument::ntp(const Arguments& arguments) {
    if (arguments.size() > 3) {
        throw errors::kNotAllowed;
    }
    for (size_t i = 0; i < arguments.size(); ++i) {
        for (char c : arguments.word(i)) {
            if (c == '"' || c == ' ' || static_cast<unsigned char>(c) < 0x20) {
                throw errors::kIllegalValue;
            }
        }
    }
    mcState.ntpServers = arguments.raw();
    return {};
}

Reply Instrument::ntpQuery(const Arguments&) {
    return mcState.ntpServers;
}

Reply Instrument::timeQuery(const Arguments&) {
    const std::tm utc = utcNow();
    return std::to_string(utc.tm_hour) + "," + std::to_string(utc.tm_min) + "," + std::to_string(utc.tm_sec);
}

Reply Instrument::dateQuery(const Arguments&) {
    const std::tm utc = utcNow();
    return std::to_string(utc.tm_year + 1900) + "," + std::to_string(utc.tm_mon + 1) + "," +
           std::to_string(utc.tm_mday);
}

Reply Instrument::timeSync(const Arguments& arguments) {
    std::string joined;
    for (size_t i = 0; i < arguments.size(); ++i) {
        joined.append(i > 0 ? "," : "").append(upper(arguments.word(i)));
    }
    if (joined.empty()) {
        throw errors::kMissingParameter;
    }
    if (!oneOf(joined, {"DISABLE", "NTP,ONCE", "NTP,CONTINUOUS", "GNSS,ONCE", "GNSS,CONTINUOUS"})) {
        throw errors::kIllegalValue;
    }
    mcState.timeSync = joined;
    return {};
}

Reply Instrument::timeSyncQuery(const Arguments&) {
    return mcState.timeSync;
}

Reply Instrument::temperature(const Arguments&) {
    return "41.50,43.25,46.75";
}

Reply Instrument::pll(const Arguments& arguments) {
    const std::string source = upper(arguments.word(0));
    if (!oneOf(source, {"INT", "EXT", "GNSS"})) {
        throw errors::kIllegalValue;
    }
    require(source != "GNSS" || mcModel.gnss);
    mcState.pll = source;
    return {};
}

Reply Instrument::pllQuery(const Arguments&) {
    return mcState.pll;
}

Reply Instrument::pps(const Arguments& arguments) {
    const std::string source = upper(arguments.word(0));
    if (!oneOf(source, {"EXT", "GNSS"})) {
        throw errors::kIllegalValue;
    }
    require(source != "GNSS" || mcModel.gnss);
    mcState.pps = source;
    return {};
}

Reply Instrument::ppsQuery(const Arguments&) {
    return mcState.pps;
}

Reply Instrument::antennaDelay(const Arguments& arguments) {
    require(mcModel.gnss);
    mcState.antennaDelay = static_cast<int>(arguments.integer(0, -32768, 32767));
    return {};
}

Reply Instrument::antennaDelayQuery(const Arguments&) {
    require(mcModel.gnss);
    return std::to_string(mcState.antennaDelay);
}

Reply Instrument::constellation(const Arguments& arguments) {
    require(mcModel.gnss);
    if (arguments.size() > 2) {
        throw errors::kNotAllowed;
    }
    std::string joined;
    for (size_t i = 0; i < arguments.size() || i == 0; ++i) {
        const std::string name = upper(arguments.word(i));
        if (!oneOf(name, {"GPS", "BEIDOU", "GLONASS"})) {
            throw errors::kIllegalValue;
        }
        joined.append(i > 0 ? "," : "").append(name);
    }
    mcState.constellation = joined;
    return {};
}

Reply Instrument::constellationQuery(const Arguments&) {
    require(mcModel.gnss);
    return mcState.constellation;
}

Reply Instrument::dynamicMode(const Arguments& arguments) {
    require(mcModel.gnss);
    const auto mode = static_cast<unsigned>(arguments.integer(0, 0, 8));
    if (mode == 1) {
        throw errors::kIllegalValue;
    }
    mcState.dynamicMode = mode;
    return {};
}

Reply Instrument::dynamicModeQuery(const Arguments&) {
    require(mcModel.gnss);
    return std::to_string(mcState.dynamicMode);
}

Reply Instrument::position(const Arguments&) {
    require(mcModel.gnss);
    return formatNumber(mcOptions.latitude) + "," + formatNumber(mcOptions.longitude) + "," +
           formatNumber(mcOptions.altitude);
}

Reply Instrument::signalSize(const Arguments&) {
    return sizeText(mcCorrections.signal, mcCorrections.signalSize);
}

Reply Instrument::noiseSize(const Arguments&) {
    return sizeText(mcCorrections.noise, mcCorrections.noiseSize);
}

Reply Instrument::signalRead(const Arguments& arguments) {
    return block(mcCorrections.signal, arguments);
}

Reply Instrument::noiseRead(const Arguments& arguments) {
    return block(mcCorrections.noise, arguments);
}

Reply Instrument::fault(const Arguments& arguments) {
    if (!mcFaults.apply(arguments.raw())) {
        throw errors::kIllegalValue;
    }
    return {};
}

}  // namespace vnksim
