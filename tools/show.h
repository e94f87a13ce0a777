#pragma once

#include <string>
#include <vector>

#include "tools/spectrum.h"

namespace cli {

/// The progress line on standard error: rewritten in place on a terminal, else a new line each second.
class ProgressLine {
 public:
    explicit ProgressLine(bool quiet);
    void show(double elapsedSeconds, const std::string& line);
    void end();

 private:
    void rewrite(const std::string& line);

    bool mbQuiet, mbTerminal;
    std::string mcLine;       ///< what stands on the terminal
    std::string mcUnprinted;  ///< the newest that has no line yet
    double mdNext = 1;
};

/// Draws a spectrum on standard error, as wide as the terminal, with numbered marks.
void showSpectrum(const Spectrum& spectrum, double lowHz, double highHz,
                  const std::vector<double>& marksHz = {});
void printErrLines(const std::vector<std::string>& lines);

}  // namespace cli
