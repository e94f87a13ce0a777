#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "tools/report.h"

namespace cli {

using Parser = std::optional<double> (*)(std::string_view);

enum class Sign { positive, any };

/// An option whose value is a number with a unit, told to `take`.
CLI::Option* addQuantity(CLI::App& verb, const std::string& name, std::function<void(double)> take,
                         Parser parse, const std::string& example, const std::string& help, Sign sign);
CLI::Option* addQuantity(CLI::App& verb, const std::string& name, double& target, Parser parse,
                         const std::string& example, const std::string& help, Sign sign = Sign::positive);
CLI::Option* addQuantity(CLI::App& verb, const std::string& name, std::optional<double>& target, Parser parse,
                         const std::string& example, const std::string& help, Sign sign = Sign::positive);

/// What to tune a unit to, and for how long.
void addTuning(CLI::App& verb, CaptureRequest& request);
/// Throws Failure with Exit::usage for a band below 0 Hz.
void checkTuning(const CaptureRequest& request);

/// -o for samples, and what to look for in them.
void addSampleUse(CLI::App& verb, CaptureRequest& request);
struct ReportOptions {
    bool json = false;
    bool quiet = false;
};
/// --json and -q.
void addReporting(CLI::App& verb, ReportOptions& report);
/// Throws Failure with Exit::usage when two kinds of data want standard output.
void checkStandardOutput(const CaptureRequest& request, bool json);

}  // namespace cli
