#pragma once

#include <string>
#include <vector>

#include "tools/spectrum.h"

namespace cli {

struct PlotOptions {
    size_t width = 80;   ///< of the whole drawing, in characters
    size_t height = 14;  ///< of the field, in lines
    bool unicode = true;
    std::vector<double> marksHz = {};  ///< numbered from 1, each over what stands there
};

/// The spectrum between two frequencies as lines of text: level in dBm upwards, each column the strongest
/// of the bins that fall into it.
std::vector<std::string> drawSpectrum(const Spectrum& spectrum, double lowHz, double highHz,
                                      const PlotOptions& options);

/// Whether the terminal's character set is UTF-8, judged by LC_ALL, LC_CTYPE and LANG in their order.
bool terminalIsUnicode();
/// Columns of the terminal on standard error: what it says, else COLUMNS, else 80; within 60 to 160.
size_t terminalWidth();

}  // namespace cli
