#include "tools/show.h"

#include <unistd.h>

#include "tools/output.h"
#include "tools/plot.h"

namespace cli {

ProgressLine::ProgressLine(bool quiet) : mbQuiet(quiet), mbTerminal(::isatty(STDERR_FILENO) == 1) {}

void ProgressLine::show(double elapsedSeconds, const std::string& line) {
    if (mbQuiet)
        return;
    if (mbTerminal) {
        rewrite(line);
    } else if (elapsedSeconds < mdNext) {
        mcUnprinted = line;
    } else {
        printErr(line);
        mcUnprinted.clear();
    }
    while (elapsedSeconds >= mdNext)
        mdNext += 1;
}

void ProgressLine::end() {
    if (mbTerminal && !mcLine.empty())
        printErr("");
    if (!mcUnprinted.empty())
        printErr(mcUnprinted);
}

void ProgressLine::rewrite(const std::string& line) {
    std::string text = "\r" + line;
    if (line.size() < mcLine.size())
        text.append(mcLine.size() - line.size(), ' ');
    mcLine = line;
    (void)!::write(STDERR_FILENO, text.data(), text.size());
}

void showSpectrum(const Spectrum& spectrum, double lowHz, double highHz, const std::vector<double>& marksHz) {
    const PlotOptions plot{terminalWidth(), 14, terminalIsUnicode(), marksHz};
    printErr("");
    printErrLines(drawSpectrum(spectrum, lowHz, highHz, plot));
    printErr("");
}

void printErrLines(const std::vector<std::string>& lines) {
    for (const std::string& line : lines)
        printErr(line);
}

}  // namespace cli
