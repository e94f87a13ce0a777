#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "simulator/hislipmessage.h"

namespace vnksim {

/// What becomes of one kind of message that the unit sends over HiSLIP or as the answer of its data channel.
struct HislipFault {
    bool missing = false;  ///< it is not sent
    unsigned lateMs = 0;   ///< it comes so much later, and what follows it on its connection
    std::optional<unsigned> type{}, control{}, parameter{};  ///< in place of the right ones
    int session = 0;                                         ///< added to the session that it tells
    int id = 0;                                              ///< added to the message id of a reply
    std::optional<uint64_t> length{};                        ///< in the length field
    std::string prefix{};                                    ///< two letters in place of "HS"
    std::optional<unsigned> cutAfter{};  ///< so many bytes of it are sent, then the connection is closed
    std::optional<unsigned> error{};     ///< in its place an Error with this control code ...
    std::optional<unsigned> fatal{};     ///< ... or a FatalError; the connections stay open
    std::string text{};                  ///< payload of these two
    bool doubled = false;                ///< it is sent twice
    unsigned pieceBytes = 0;             ///< a reply comes as several messages of so many bytes each
    unsigned segmentBytes = 0;           ///< it is written in segments of so many bytes
    int times = -1;                      ///< how often it acts; negative means always
};

/// By the name of the message in the standard, and besides: "Reply" is any message of a reply to a query,
/// "SessionReply" those to the query for the session, "VendorReply" the answer of the data channel.
using HislipFaults = std::map<std::string, HislipFault>;

/// Understands "MESSAGE,KEY[=VALUE],KEY..." with the fields above as keys; false when it does not.
bool assignHislipFault(HislipFaults& faults, const std::string& text);

/// The bytes of `message`, called `name`, as the fault leaves them; empty: nothing is sent.
std::string faultyBytes(HislipMessage message, const std::string& name, const HislipFault& fault);

}  // namespace vnksim
