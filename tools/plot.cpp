#include "tools/plot.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <string_view>

#include "tools/units.h"

namespace cli {

namespace {

constexpr size_t kMargin = 7;  // "  -100 " left of the field

struct Range {
    double low = 0, high = 0;
};

std::vector<double> columnPeaks(const Spectrum& spectrum, double lowHz, double highHz, size_t columns) {
    std::vector<double> peaks(columns, -1000.0);
    const double dColumnHz = (highHz - lowHz) / static_cast<double>(columns);
    for (size_t c = 0; c < columns; ++c) {
        const double dFrom = lowHz + dColumnHz * static_cast<double>(c) - spectrum.frequency(0);
        // Where columns are finer than bins, each shows the bin it stands in.
        const double dFirst = std::max(0.0, std::floor(dFrom / spectrum.binHz + 0.5));
        const double dLast = std::max(dFirst + 1, std::floor((dFrom + dColumnHz) / spectrum.binHz + 0.5));
        for (double d = dFirst; d < dLast && d < static_cast<double>(spectrum.dbm.size()); ++d)
            peaks[c] = std::max(peaks[c], spectrum.dbm[static_cast<size_t>(d)]);
    }
    return peaks;
}

/// From just below the floor to just above the highest peak, on tens, at least 40 dB high. Marks need a line of room.
Range levelRange(const std::vector<double>& peaks, bool marked) {
    std::vector<double> sorted(peaks);
    std::sort(sorted.begin(), sorted.end());
    Range range;
    range.high = std::ceil((sorted.back() + (marked ? 8 : 1)) / 10) * 10;
    range.low = std::floor((sorted[sorted.size() / 10] - 3) / 10) * 10;
    range.low = std::clamp(range.low, range.high - 120, range.high - 40);
    return range;
}

/// The top of a column that fills `eighths` of a cell.
std::string_view cell(int eighths, bool unicode) {
    static constexpr std::string_view kBlocks[] = {" ", "▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
    static constexpr std::string_view kAscii[] = {" ", ".", ".", ".", ":", ":", ":", "|", "|"};
    eighths = std::clamp(eighths, 0, 8);
    return unicode ? kBlocks[eighths] : kAscii[eighths];
}

/// The lines of a field, and what stands in each of its columns.
using Field = std::vector<std::vector<std::string>>;

Field fill(const std::vector<double>& peaks, const Range& range, const PlotOptions& options) {
    const double dLineDb = (range.high - range.low) / static_cast<double>(options.height);
    Field field(options.height);
    for (size_t r = 0; r < options.height; ++r) {
        const double dBottom = range.high - dLineDb * static_cast<double>(r + 1);
        for (const double dPeak : peaks)
            field[r].emplace_back(cell(static_cast<int>(std::lround(8 * (dPeak - dBottom) / dLineDb)), options.unicode));
    }
    return field;
}

/// Each number goes into the lowest free place over its column. Numbers that would touch another one are left out.
void mark(Field& field, double lowHz, double highHz, const std::vector<double>& marksHz) {
    const size_t uColumns = field[0].size();
    std::vector<bool> taken(uColumns, false);
    for (size_t i = 0; i < marksHz.size(); ++i) {
        const double dColumn = (marksHz[i] - lowHz) / (highHz - lowHz) * static_cast<double>(uColumns);
        const std::string number = std::to_string(i + 1);
        if (dColumn < 1 || dColumn + static_cast<double>(number.size()) > static_cast<double>(uColumns))
            continue;
        const auto uAt = static_cast<size_t>(dColumn);
        const auto itTaken = taken.begin() + static_cast<std::ptrdiff_t>(uAt);
        if (std::any_of(itTaken - 1, itTaken + static_cast<std::ptrdiff_t>(number.size()), [](bool is) { return is; }))
            continue;
        size_t uLine = 0;
        while (uLine + 1 < field.size() && field[uLine + 1][uAt] == " ")
            ++uLine;
        for (size_t c = 0; c < number.size(); ++c) {
            field[uLine][uAt + c] = number[c];
            taken[uAt + c] = true;
        }
    }
}

std::string padLeft(std::string text, size_t width) {
    return text.size() < width ? std::string(width - text.size(), ' ') + text : text;
}

/// Three labels under the field: its left edge, its middle and its right edge.
std::string axis(double lowHz, double highHz, size_t columns) {
    const std::string left = formatSI(lowHz, "Hz", 7);
    const std::string middle = formatSI((lowHz + highHz) / 2, "Hz", 9);
    const std::string right = formatSI(highHz, "Hz", 7);
    std::string line(columns, ' ');
    const auto put = [&](const std::string& label, size_t at) {
        if (at + label.size() <= columns)
            line.replace(at, label.size(), label);
    };
    put(left, 0);
    put(right, columns - std::min(columns, right.size()));
    put(middle, (columns - std::min(columns, middle.size())) / 2);
    return std::string(kMargin, ' ') + line;
}

std::string ruler(size_t columns, bool unicode) {
    std::string line(kMargin - 1, ' ');
    line += unicode ? "└" : "+";
    for (size_t c = 1; c < columns; ++c)
        line += c == columns / 2 || c == columns - 1 ? (unicode ? "┴" : "+") : (unicode ? "─" : "-");
    return line;
}

}  // namespace

std::vector<std::string> drawSpectrum(const Spectrum& spectrum, double lowHz, double highHz,
                                      const PlotOptions& options) {
    if (spectrum.dbm.empty() || spectrum.averages == 0 || !(highHz > lowHz) || options.height == 0)
        return {};
    const size_t uColumns = std::max<size_t>(options.width, kMargin + 20) - kMargin;
    const std::vector<double> peaks = columnPeaks(spectrum, lowHz, highHz, uColumns);
    const Range range = levelRange(peaks, !options.marksHz.empty());
    Field field = fill(peaks, range, options);
    mark(field, lowHz, highHz, options.marksHz);
    const double dLineDb = (range.high - range.low) / static_cast<double>(options.height);

    std::vector<std::string> lines;
    double dNextLabel = range.high;
    for (size_t r = 0; r < options.height; ++r) {
        const double dTop = range.high - dLineDb * static_cast<double>(r);
        std::string line(kMargin - 1, ' ');
        // A label stands at the line whose top edge has reached it.
        if (dTop - dLineDb / 2 < dNextLabel && r + 1 < options.height) {
            line = padLeft(formatFixed(dNextLabel, 0), kMargin - 2) + " ";
            dNextLabel -= range.high - range.low > 80 ? 20 : 10;
        }
        line += options.unicode ? "│" : "|";
        for (size_t c = 1; c < uColumns; ++c)
            line += field[r][c];
        line.erase(line.find_last_not_of(' ') + 1);
        lines.push_back(std::move(line));
    }
    lines.push_back(ruler(uColumns, options.unicode));
    lines.push_back(axis(lowHz, highHz, uColumns));
    return lines;
}

bool terminalIsUnicode() {
    for (const char* pName : {"LC_ALL", "LC_CTYPE", "LANG"})
        if (const char* pValue = std::getenv(pName); pValue && *pValue) {
            const std::string_view value(pValue);
            for (const std::string_view form : {"UTF-8", "utf-8", "UTF8", "utf8"})
                if (value.find(form) != std::string_view::npos)
                    return true;
            return false;
        }
    return false;
}

size_t terminalWidth() {
    size_t uWidth = 80;
    winsize size{};
    if (::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0)
        uWidth = size.ws_col;
    else if (const char* pColumns = std::getenv("COLUMNS"); pColumns && *pColumns)
        uWidth = static_cast<size_t>(parseNumber(pColumns).value_or(80));
    return std::clamp<size_t>(uWidth, 60, 160);
}

}  // namespace cli
