#include <memory>
#include <nlohmann/json.hpp>
#include <vector>

#include "tools/output.h"
#include "tools/records.h"
#include "tools/session.h"
#include "tools/verbs.h"

namespace cli {

namespace {

struct ParamsOptions {
    std::string address;
    std::vector<std::string> assignments;
    bool json = false;
};

std::string describe(const std::vector<RecordEntry>& schema, const std::string& key) {
    for (const RecordEntry& entry : schema)
        if (entry.key == key)
            return schemaDescription(entry);
    return {};
}

std::string toText(const std::vector<RecordEntry>& parameters, const std::vector<RecordEntry>& schema) {
    std::string text;
    for (const RecordEntry& entry : parameters) {
        std::string line = entry.key + "=" + entry.value;
        if (const std::string meaning = describe(schema, entry.key); !meaning.empty()) {
            line.append(line.size() < 40 ? 40 - line.size() : 2, ' ');
            line += meaning;
        }
        text += line + "\n";
    }
    return text;
}

std::string toJson(const std::vector<RecordEntry>& parameters, const std::vector<RecordEntry>& schema) {
    nlohmann::ordered_json json = nlohmann::ordered_json::object();
    for (const RecordEntry& entry : parameters) {
        auto value = entry.text ? nlohmann::ordered_json(entry.value)
                                : nlohmann::ordered_json::parse(entry.value, nullptr, false);
        json[entry.key]["value"] = value.is_discarded() ? nlohmann::ordered_json(entry.value) : value;
        if (const std::string meaning = describe(schema, entry.key); !meaning.empty())
            json[entry.key]["description"] = meaning;
    }
    return json.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

Exit params(const ParamsOptions& options) {
    std::vector<std::pair<std::string, std::string>> assignments;
    for (const std::string& text : options.assignments) {
        auto assignment = splitAssignment(text);
        if (!assignment)
            throw Failure(Exit::usage, "'" + text + "' is not KEY=VALUE");
        assignments.push_back(std::move(*assignment));
    }
    Session session;
    const Device device(session, options.address);
    if (!assignments.empty())
        setParameters(device.handle(), recordText(assignments));
    const auto parameters = readRecord(getParameters(device.handle()));
    const auto schema = readRecord(getParameterInfo(device.handle()));
    printOut(options.json ? toJson(parameters, schema) : toText(parameters, schema));
    return Exit::done;
}

}  // namespace

void addParams(CLI::App& app, Chosen& chosen) {
    auto options = std::make_shared<ParamsOptions>();
    CLI::App* pVerb = app.add_subcommand("params", "set parameters of a unit, then show them all");
    addAddress(*pVerb, options->address);
    pVerb->add_option("KEY=VALUE", options->assignments, "what to set, such as pllSource=external");
    pVerb->add_flag("--json", options->json, "a JSON object on standard output");
    pVerb->callback([options, &chosen] { chosen = [options] { return params(*options); }; });
}

}  // namespace cli
