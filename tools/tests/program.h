#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace vnktest {

/// A running program whose output is collected. Leaving the scope ends it.
class Program {
 public:
    /// `path` and its arguments; what is not named on the environment is inherited.
    Program(const std::string& path, const std::vector<std::string>& arguments);
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    /// Collects until standard error holds the text; false when the program ends or half a minute passes.
    bool waitForErr(const std::string& text);
    bool waitForOut(size_t bytes);
    void signal(int number);
    /// As a reader that has seen enough.
    void closeOut();
    /// Collects to the end and gives the exit code; a signal's number negated; -1000 after two minutes.
    int finish();

    const std::string& out() const { return mcOut; }
    const std::string& err() const { return mcErr; }

 private:
    bool collect(const std::function<bool()>& enough, std::chrono::seconds limit);

    pid_t miProcess = -1;
    int miOut = -1, miErr = -1;
    std::string mcOut, mcErr;
};

struct Ran {
    int code = 0;
    std::string out, err;
};
/// Runs vnk to its end.
Ran runVnk(const std::vector<std::string>& arguments);

}  // namespace vnktest
