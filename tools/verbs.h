#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <string>

#include "tools/exitcodes.h"

namespace cli {

/// The verb that the command line chose, ready to run.
using Chosen = std::function<Exit()>;

void addFind(CLI::App& app, Chosen& chosen);
void addInfo(CLI::App& app, Chosen& chosen);
void addScpi(CLI::App& app, Chosen& chosen);
void addParams(CLI::App& app, Chosen& chosen);
void addIq(CLI::App& app, Chosen& chosen);
void addSweep(CLI::App& app, Chosen& chosen);
void addSpectrum(CLI::App& app, Chosen& chosen);
void addDemod(CLI::App& app, Chosen& chosen);
void addRecord(CLI::App& app, Chosen& chosen);
void addPlay(CLI::App& app, Chosen& chosen);
void addWav(CLI::App& app, Chosen& chosen);
void addFile(CLI::App& app, Chosen& chosen);
void addRecover(CLI::App& app, Chosen& chosen);

/// The first argument of most verbs.
void addAddress(CLI::App& verb, std::string& address);

}  // namespace cli
