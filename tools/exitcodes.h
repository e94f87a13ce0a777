#pragma once

#include <stdexcept>
#include <string>

namespace cli {

/// What the program tells the shell.
enum class Exit : int {
    done = 0,
    failure = 1,     ///< anything that has no number of its own
    usage = 2,       ///< the command line is not understood
    noUnit = 3,      ///< the search found none
    cannotOpen = 4,  ///< nothing answers at the address, or it cannot be opened
    linkLost = 5,    ///< the unit fell silent
    file = 7         ///< a file cannot be made, read or written, or is not what it should be
};

/// Ends a verb: main prints the text and leaves with the code.
class Failure : public std::runtime_error {
 public:
    Failure(Exit code, const std::string& text) : std::runtime_error(text), mcCode(code) {}
    Exit code() const { return mcCode; }

 private:
    Exit mcCode;
};

}  // namespace cli
