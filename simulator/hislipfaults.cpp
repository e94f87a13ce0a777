#include "simulator/hislipfaults.h"

#include <algorithm>
#include <limits>

#include "simulator/text.h"

namespace vnksim {
namespace {

/// The name as it is written in the standard; empty when the unit sends no such message.
std::string knownName(const std::string& text) {
    for (const char* name : {"Reply", "SessionReply", "VendorReply"}) {
        if (upper(text) == upper(name)) {
            return name;
        }
    }
    for (uint8_t type = 0; type <= hislip::kAsyncLockInfoResponse; ++type) {
        if (upper(text) == upper(hislipName(type))) {
            return hislipName(type);
        }
    }
    return {};
}

/// Decimal or, with 0x, hexadecimal.
std::optional<uint64_t> wholeNumber(const std::string& text) {
    const bool hexadecimal = text.size() > 2 && upper(text).compare(0, 2, "0X") == 0;
    const std::string digits = hexadecimal ? text.substr(2) : text;
    const char* allowed = hexadecimal ? "0123456789abcdefABCDEF" : "0123456789";
    if (digits.empty() || digits.size() > 19 || digits.find_first_not_of(allowed) != std::string::npos) {
        return std::nullopt;
    }
    return std::stoull(digits, nullptr, hexadecimal ? 16 : 10);
}

bool put(std::optional<unsigned>& target, const std::string& value) {
    const auto number = wholeNumber(value);
    if (!number || *number > std::numeric_limits<unsigned>::max()) {
        return false;
    }
    target = static_cast<unsigned>(*number);
    return true;
}

bool put(unsigned& target, const std::string& value) {
    std::optional<unsigned> number;
    if (!put(number, value)) {
        return false;
    }
    target = *number;
    return true;
}

bool put(int& target, const std::string& value) {
    const auto number = parseInteger(value);
    if (!number || *number < -65535 || *number > 65535) {
        return false;
    }
    target = static_cast<int>(*number);
    return true;
}

bool put(std::optional<uint64_t>& target, const std::string& value) {
    target = wholeNumber(value);
    return target.has_value();
}

bool putPrefix(std::string& target, const std::string& value) {
    target = value;
    return value.size() == 2;
}

bool assignKey(HislipFault& fault, const std::string& key, const std::string& value) {
    if (key == "MISSING" || key == "DOUBLED") {
        (key == "MISSING" ? fault.missing : fault.doubled) = true;
        return value.empty();
    }
    if (key == "TEXT") {
        fault.text = value;
        return true;
    }
    return key == "LATEMS"         ? put(fault.lateMs, value)
           : key == "TYPE"         ? put(fault.type, value)
           : key == "CONTROL"      ? put(fault.control, value)
           : key == "PARAMETER"    ? put(fault.parameter, value)
           : key == "SESSION"      ? put(fault.session, value)
           : key == "ID"           ? put(fault.id, value)
           : key == "LENGTH"       ? put(fault.length, value)
           : key == "PREFIX"       ? putPrefix(fault.prefix, value)
           : key == "CUTAFTER"     ? put(fault.cutAfter, value)
           : key == "ERROR"        ? put(fault.error, value)
           : key == "FATAL"        ? put(fault.fatal, value)
           : key == "PIECEBYTES"   ? put(fault.pieceBytes, value)
           : key == "SEGMENTBYTES" ? put(fault.segmentBytes, value)
           : key == "TIMES"        ? put(fault.times, value)
                                   : false;
}

}  // namespace

bool assignHislipFault(HislipFaults& faults, const std::string& text) {
    const auto parts = split(text, ',');
    const std::string name = parts.empty() ? std::string() : knownName(parts[0]);
    HislipFault fault;
    for (size_t i = 1; i < parts.size(); ++i) {
        const size_t equals = parts[i].find('=');
        const std::string key = upper(trim(parts[i].substr(0, equals)));
        const std::string value = equals == std::string::npos ? "" : trim(parts[i].substr(equals + 1));
        if (!assignKey(fault, key, value)) {
            return false;
        }
    }
    if (name.empty() || parts.size() < 2) {
        return false;
    }
    faults[name] = fault;
    return true;
}

std::string faultyBytes(HislipMessage message, const std::string& name, const HislipFault& fault) {
    if (fault.missing) {
        return {};
    }
    if (fault.error || fault.fatal) {
        message = {fault.fatal ? hislip::kFatalError : hislip::kError,
                   static_cast<uint8_t>(fault.fatal ? *fault.fatal : *fault.error), 0, fault.text};
    }
    message.type = static_cast<uint8_t>(fault.type.value_or(message.type));
    message.control = static_cast<uint8_t>(fault.control.value_or(message.control));
    message.parameter = fault.parameter.value_or(message.parameter + static_cast<uint32_t>(fault.id));
    if (name == "InitializeResponse" || name == "VendorReply") {
        // The session is the lower half of the parameter; the upper one is the version in the first of them.
        const uint32_t session = (message.parameter + static_cast<uint32_t>(fault.session)) & 0xFFFF;
        message.parameter = (message.parameter & 0xFFFF0000) | session;
    }
    std::string bytes = hislipBytes(message);
    if (fault.length) {
        for (size_t i = 0; i < 8; ++i) {
            bytes[8 + i] = static_cast<char>(*fault.length >> (56 - 8 * i) & 0xFF);
        }
    }
    if (!fault.prefix.empty()) {
        bytes.replace(0, 2, fault.prefix, 0, 2);
    }
    return bytes;
}

}  // namespace vnksim
