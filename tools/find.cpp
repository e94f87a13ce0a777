#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>
#include <vector>

#include "tools/output.h"
#include "tools/records.h"
#include "tools/session.h"
#include "tools/verbs.h"

namespace cli {

namespace {

struct FindOptions {
    std::vector<std::string> addresses;
    bool search = true;
    bool json = false;
};

struct Found {
    std::string address, type, serial, firmware;
};

std::string valueOf(const std::vector<RecordEntry>& record, const std::string& key) {
    for (const RecordEntry& entry : record)
        if (entry.key == key)
            return entry.value;
    return {};
}

/// Units that answered; a description without a model is none.
std::vector<Found> describeAll(Session& session, uint32_t count) {
    std::vector<Found> found;
    for (uint32_t i = 0; i < count; ++i) {
        const auto record = readRecord(session.describe(i));
        Found unit{valueOf(record, "address"), valueOf(record, "type"), valueOf(record, "serial"),
                   valueOf(record, "firmware")};
        if (!unit.type.empty())
            found.push_back(std::move(unit));
    }
    return found;
}

std::string toText(const std::vector<Found>& found) {
    std::string text;
    for (const Found& unit : found) {
        std::string line = unit.address;
        line.append(line.size() < 18 ? 18 - line.size() : 1, ' ');
        line += unit.type;
        line.append(line.size() < 30 ? 30 - line.size() : 1, ' ');
        text += line + "serial " + unit.serial + ", firmware " + unit.firmware + "\n";
    }
    return text;
}

std::string toJson(const std::vector<Found>& found) {
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (const Found& unit : found)
        list.push_back({{"address", unit.address},
                        {"type", unit.type},
                        {"serial", unit.serial},
                        {"firmware", unit.firmware}});
    // What a unit says of itself need not be UTF-8.
    return list.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

Exit find(const FindOptions& options) {
    Session session;
    for (const std::string& address :
         std::set<std::string>(options.addresses.begin(), options.addresses.end()))
        session.addAddress(address);
    if (options.search)
        printErr("searching the local networks ...");
    const std::vector<Found> found = describeAll(session, session.count(options.search));
    printOut(options.json ? toJson(found) : toText(found));
    if (!found.empty())
        return Exit::done;
    printErr("no unit found");
    for (const std::string& note : session.failureNotes())
        printErr("  " + note);
    return Exit::noUnit;
}

}  // namespace

void addFind(CLI::App& app, Chosen& chosen) {
    auto options = std::make_shared<FindOptions>();
    CLI::App* pVerb = app.add_subcommand("find", "find units on the local networks");
    pVerb->add_option("ADDRESS", options->addresses, "further addresses to ask, out of a broadcast's reach");
    pVerb->add_flag_callback(
        "--no-broadcast", [options] { options->search = false; }, "ask the given addresses only");
    pVerb->add_flag("--json", options->json, "a JSON array on standard output");
    pVerb->callback([options, &chosen] { chosen = [options] { return find(*options); }; });
}

}  // namespace cli
