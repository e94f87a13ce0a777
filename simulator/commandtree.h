#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace vnksim {

/// Command headers in their long form with the short form in capitals, as "SYSTem:CAPTure:MODE". Several
/// patterns for one command are joined by "|". A header matches when each of its words is, in any case,
/// the short or the long form.
class CommandTree {
 public:
    static constexpr int kNone = -1;

    /// Headers are numbered in the order of adding.
    int add(std::string_view patterns);
    /// `header` comes without "?"; a leading ":" does not count.
    int find(std::string_view header) const;

 private:
    struct Word {
        std::string brief, full;
    };
    struct Pattern {
        int number;
        std::vector<Word> words;
    };
    std::vector<Pattern> mlPatterns;
    int mNext = 0;
};

/// One command of a line: ":FREQ:CENT? 1, 2" has the header "FREQ:CENT", is a query, and its parameters
/// are "1, 2".
struct ScpiCommand {
    std::string header;
    bool query = false;
    std::string parameters;
};

ScpiCommand parseCommand(std::string_view text);

}  // namespace vnksim
