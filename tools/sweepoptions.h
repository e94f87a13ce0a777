#pragma once

#include <memory>
#include <optional>

#include "tools/options.h"
#include "tools/show.h"
#include "tools/sweeper.h"

namespace cli {

/// What the verbs that show spectra have in common.
struct SweepOptions {
    SweepRequest request;
    ReportOptions report;
    bool continuous = false;
    std::optional<SpectrumFormat> format;
};

/// Shows a sweep while it runs.
class SweepProgress : public SweepListener {
 public:
    SweepProgress(bool quiet, const SweepRequest& request)
        : mbQuiet(quiet), mcRequest(request), mcLine(quiet) {}
    void waiting(double seconds) override;
    void started(const SweepResult& soFar) override;
    void progress(const SweepResult& soFar) override;
    void end() { mcLine.end(); }

 private:
    bool mbQuiet;
    const SweepRequest& mcRequest;
    ProgressLine mcLine;
};

/// -n, --seconds and --continuous.
void addLength(CLI::App& verb, SweepOptions& options, const std::string& secondsHelp);
/// -o, --format and --png.
void addOutputs(CLI::App& verb, SweepOptions& options);
void addWindow(CLI::App& verb, SweepRequest& request);
/// Throws Failure with Exit::usage when two kinds of data want standard output.
void checkStandardOutput(const SweepOptions& options);

/// Files for what was asked; null where nothing was.
struct SweepFiles {
    std::unique_ptr<SampleOutput> spectra, picture;
    explicit SweepFiles(const SweepRequest& request);
};
/// Spectrum, summary, peaks or JSON, and the picture's file.
void showResult(const SweepOptions& options, const SweepResult& result, SweepFiles& files);

}  // namespace cli
