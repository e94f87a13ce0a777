#include "simulator/faults.h"

#include <variant>

#include "simulator/text.h"

namespace vnksim {
namespace {

using Member = std::variant<bool FaultSettings::*, unsigned FaultSettings::*, int FaultSettings::*,
                            std::string FaultSettings::*>;

struct NamedMember {
    const char* name;
    Member member;
};

// uint32_t is unsigned here, so the trailer masks need no kind of their own.
const NamedMember kMembers[] = {
    {"SILENT", &FaultSettings::silent},
    {"NOREPLYTO", &FaultSettings::noReplyTo},
    {"REPLYDELAYMS", &FaultSettings::replyDelayMs},
    {"REPLYDELAYFOR", &FaultSettings::replyDelayFor},
    {"REPLYSEGMENTBYTES", &FaultSettings::replySegmentBytes},
    {"LOCKREFUSEDUNTIL", &FaultSettings::lockRefusedUntil},
    {"STUCKMODE", &FaultSettings::stuckMode},
    {"STUCKFREEDATRESET", &FaultSettings::stuckFreedAtReset},
    {"SCPINOTLISTENING", &FaultSettings::scpiNotListening},
    {"DATANOTLISTENING", &FaultSettings::dataNotListening},
    {"CLOSESCPIONCE", &FaultSettings::closeScpiOnce},
    {"RESETSCPIONCE", &FaultSettings::resetScpiOnce},
    {"DIEAFTEREXCHANGES", &FaultSettings::dieAfterExchanges},
    {"HISLIPNOTLISTENING", &FaultSettings::hislipNotListening},
    {"VENDORNOTLISTENING", &FaultSettings::vendorNotListening},
    {"CLOSEHISLIPONCE", &FaultSettings::closeHislipOnce},
    {"RESETHISLIPONCE", &FaultSettings::resetHislipOnce},
    {"HISLIPLOCKREFUSED", &FaultSettings::hislipLockRefused},
    {"HISLIPLOCKREFUSEDONCE", &FaultSettings::hislipLockRefusedOnce},
    {"CLOSEDATAONCE", &FaultSettings::closeDataOnce},
    {"RESETDATAONCE", &FaultSettings::resetDataOnce},
    {"IDENTIFIERMISSING", &FaultSettings::identifierMissing},
    {"IDENTIFIEROFFSET", &FaultSettings::identifierOffset},
    {"SWEEPIDENTIFIERONLY", &FaultSettings::sweepIdentifierOnly},
    {"DROPEVERY", &FaultSettings::dropEvery},
    {"DROPONCE", &FaultSettings::dropOnce},
    {"LOSESAMPLESONCE", &FaultSettings::loseSamplesOnce},
    {"SWAPONCE", &FaultSettings::swapOnce},
    {"REPEATONCE", &FaultSettings::repeatOnce},
    {"SEGMENTBYTES", &FaultSettings::segmentBytes},
    {"GARBAGEBYTES", &FaultSettings::garbageBytes},
    {"SIZEFIELDOFFSET", &FaultSettings::sizeFieldOffset},
    {"SIZEFIELDOFFSETONCE", &FaultSettings::sizeFieldOffsetOnce},
    {"TRAILERSET", &FaultSettings::trailerSet},
    {"TRAILERCLEAR", &FaultSettings::trailerClear},
    {"SPECTRALINVERSION", &FaultSettings::spectralInversion},
    {"DATAAFTERSTOP", &FaultSettings::dataAfterStop},
    {"CONTEXTMISSING", &FaultSettings::contextMissing},
    {"CONTEXTTSM", &FaultSettings::contextTsm},
    {"DATAWITHOUTSTREAM", &FaultSettings::dataWithoutStream},
    {"DATASTREAMOFFSET", &FaultSettings::dataStreamOffset},
    {"PAYLOADFORMAT", &FaultSettings::payloadFormat},
    {"LOSEBLOCKEVERY", &FaultSettings::loseBlockEvery},
    {"LOSEBLOCKONCE", &FaultSettings::loseBlockOnce},
    {"REPEATBLOCKEVERY", &FaultSettings::repeatBlockEvery},
    {"REPEATBLOCKONCE", &FaultSettings::repeatBlockOnce},
    {"SWAPBLOCKSONCE", &FaultSettings::swapBlocksOnce},
    {"BLOCKSHIFTKHZ", &FaultSettings::blockShiftKHz},
    {"BLOCKSHIFTONCEKHZ", &FaultSettings::blockShiftOnceKHz},
    {"LATEBLOCKONCEMS", &FaultSettings::lateBlockOnceMs},
    {"SHORTPACKETEVERY", &FaultSettings::shortPacketEvery},
    {"SHORTPACKETONCE", &FaultSettings::shortPacketOnce},
    {"FREQUENCYMISSING", &FaultSettings::frequencyMissing},
    {"INVERTEDENTRIES", &FaultSettings::invertedEntries},
    {"INVERTEDFROMMHZ", &FaultSettings::invertedFromMHz},
    {"INVERTEDBELOWMHZ", &FaultSettings::invertedBelowMHz},
};

bool assign(bool& target, const std::string& value) {
    const std::string word = upper(value);
    const bool on = word.empty() || word == "1" || word == "ON" || word == "TRUE";
    if (!on && word != "0" && word != "OFF" && word != "FALSE") {
        return false;
    }
    target = on;
    return true;
}

bool assign(unsigned& target, const std::string& value) {
    const auto number = value.empty() ? std::optional<long long>(1) : parseInteger(value);
    if (!number || *number < 0 || *number > std::numeric_limits<unsigned>::max()) {
        return false;
    }
    target = static_cast<unsigned>(*number);
    return true;
}

bool assign(int& target, const std::string& value) {
    const auto number = value.empty() ? std::optional<long long>(1) : parseInteger(value);
    if (!number || *number < std::numeric_limits<int>::min() || *number > std::numeric_limits<int>::max()) {
        return false;
    }
    target = static_cast<int>(*number);
    return true;
}

bool assign(std::string& target, const std::string& value) {
    target = value;
    return true;
}

bool assignWrongReply(FaultSettings& settings, const std::string& value) {
    const size_t equals = value.find('=');
    if (equals == std::string::npos || equals == 0) {
        return false;
    }
    settings.wrongReplies[value.substr(0, equals)] = value.substr(equals + 1);
    return true;
}

bool assignError(FaultSettings& settings, const std::string& value) {
    const auto parts = split(value, '=');
    const auto number = parts.size() > 1 ? parseInteger(parts[1]) : std::optional<long long>(-200);
    if (parts[0].empty() || !number || *number < -32768 || *number > 32767) {
        return false;
    }
    PlantedError error;
    error.command = parts[0];
    error.number = static_cast<int>(*number);
    if (parts.size() > 2) {
        error.text = parts[2];
    }
    settings.errors.push_back(std::move(error));
    return true;
}

bool assignDeath(FaultSettings& settings, const std::string& value) {
    const std::string word = upper(value);
    if (word != "CLOSE" && word != "RESET" && word != "SILENT") {
        return false;
    }
    settings.death = word == "CLOSE" ? Death::close : word == "RESET" ? Death::reset : Death::silent;
    return true;
}

bool assignNamed(FaultSettings& settings, const std::string& name, const std::string& value) {
    if (name == "WRONGREPLIES") {
        return assignWrongReply(settings, value);
    }
    if (name == "ERRORS") {
        return assignError(settings, value);
    }
    if (name == "DEATH") {
        return assignDeath(settings, value);
    }
    if (name == "HISLIP") {
        return assignHislipFault(settings.hislip, value);
    }
    for (const NamedMember& named : kMembers) {
        if (name == named.name) {
            return std::visit([&](auto member) { return assign(settings.*member, value); }, named.member);
        }
    }
    return false;
}

}  // namespace

FaultSettings Faults::snapshot() const {
    const std::scoped_lock lock(mcLock);
    return mcSettings;
}

void Faults::change(const std::function<void(FaultSettings&)>& edit) {
    std::function<void()> sink;
    {
        const std::scoped_lock lock(mcLock);
        edit(mcSettings);
        sink = mcSink;
    }
    if (sink) {
        sink();
    }
}

void Faults::clear() {
    change([](FaultSettings& settings) { settings = {}; });
}

bool Faults::apply(std::string_view text) {
    const size_t comma = text.find(',');
    const std::string name = upper(trim(text.substr(0, comma)));
    const std::string value = comma == std::string_view::npos ? std::string() : trim(text.substr(comma + 1));
    if (name == "CLEAR") {
        clear();
        return true;
    }
    bool understood = false;
    change([&](FaultSettings& settings) { understood = assignNamed(settings, name, value); });
    return understood;
}

void Faults::onChange(std::function<void()> sink) {
    const std::scoped_lock lock(mcLock);
    mcSink = std::move(sink);
}

}  // namespace vnksim
