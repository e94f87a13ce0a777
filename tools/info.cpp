#include <memory>
#include <nlohmann/json.hpp>

#include "tools/output.h"
#include "tools/records.h"
#include "tools/session.h"
#include "tools/verbs.h"

namespace cli {

namespace {

struct InfoOptions {
    std::string address;
    bool json = false;
};

const std::vector<std::string> kIdentity{"type", "version", "serial", "firmware", "connection", "address"};

/// The identity, in a fixed order: a unit that is open describes itself among its parameters.
std::vector<RecordEntry> identity(Session& session, uint32_t index) {
    const auto record = readRecord(session.describe(index));
    std::vector<RecordEntry> entries;
    for (const std::string& key : kIdentity)
        for (const RecordEntry& entry : record)
            if (entry.key == key && !entry.value.empty())
                entries.push_back(entry);
    return entries;
}

std::string lines(const std::vector<RecordEntry>& entries) {
    std::string text;
    for (const RecordEntry& entry : entries) {
        std::string line = entry.key;
        line.append(line.size() < 20 ? 20 - line.size() : 1, ' ');
        line += entry.value;
        line.erase(line.find_last_not_of(' ') + 1);
        text += line + "\n";
    }
    return text;
}

void addTo(nlohmann::ordered_json& json, const std::vector<RecordEntry>& entries) {
    for (const RecordEntry& entry : entries) {
        auto value = entry.text ? nlohmann::ordered_json(entry.value)
                                : nlohmann::ordered_json::parse(entry.value, nullptr, false);
        json[entry.key] = value.is_discarded() ? nlohmann::ordered_json(entry.value) : value;
    }
}

Exit info(const InfoOptions& options) {
    Session session;
    // The probe comes before the open: it tells who answers even where the open fails.
    const std::vector<RecordEntry> known = identity(session, session.addAddress(options.address));
    if (!options.json)
        printOut(lines(known));
    const Device device(session, options.address);
    const auto state = readRecord(getParameters(device.handle()));
    if (!options.json) {
        printOut("\n" + lines(state));
        return Exit::done;
    }
    nlohmann::ordered_json json;
    addTo(json, known);
    addTo(json["parameters"], state);
    printOut(json.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n");
    return Exit::done;
}

}  // namespace

void addInfo(CLI::App& app, Chosen& chosen) {
    auto options = std::make_shared<InfoOptions>();
    CLI::App* pVerb = app.add_subcommand("info", "show what a unit is, and how it stands");
    addAddress(*pVerb, options->address);
    pVerb->add_flag("--json", options->json, "a JSON object on standard output");
    pVerb->callback([options, &chosen] { chosen = [options] { return info(*options); }; });
}

}  // namespace cli
