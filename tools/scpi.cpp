#include <memory>
#include <vector>

#include "tools/output.h"
#include "tools/session.h"
#include "tools/verbs.h"

namespace cli {

namespace {

struct ScpiOptions {
    std::string address;
    std::vector<std::string> commands;
};

std::string withoutLineEnd(std::string text) {
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r'))
        text.pop_back();
    return text;
}

Exit scpi(const ScpiOptions& options) {
    Session session;
    Device device(session, options.address);
    for (const std::string& command : options.commands) {
        if (command.find('?') != std::string::npos)
            printOut(withoutLineEnd(device.query(command)) + "\n");
        else
            device.send(command);
    }
    return Exit::done;
}

}  // namespace

void addScpi(CLI::App& app, Chosen& chosen) {
    auto options = std::make_shared<ScpiOptions>();
    CLI::App* pVerb =
        app.add_subcommand("scpi", "send SCPI commands; replies of queries go to standard output");
    addAddress(*pVerb, options->address);
    pVerb->add_option("CMD", options->commands, "commands, each in quotes; one with a ? waits for its reply")
        ->required();
    pVerb->callback([options, &chosen] { chosen = [options] { return scpi(*options); }; });
}

}  // namespace cli
