#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace vnksim {

/// Every command line that the unit has received, in order. Safe from any thread.
class Journal {
 public:
    struct Entry {
        int64_t steadyNs = 0;     ///< steady clock at reception
        unsigned connection = 0;  ///< SCPI connections are numbered from 1 in order of acceptance
        std::string line;         ///< as received, without its line feed
        /// "scpi", or "hislip": then `connection` is the number of the session.
        std::string road = "scpi";
    };

    void add(unsigned connection, std::string line, std::string road = "scpi");
    std::vector<Entry> snapshot() const;
    /// The lines from position `from` on.
    std::vector<std::string> lines(size_t from = 0) const;
    size_t size() const;
    void clear();
    /// Waits until a line at or behind position `from` contains `text`.
    bool waitFor(std::string_view text, std::chrono::milliseconds limit, size_t from = 0) const;
    /// Counts the lines that contain `text`.
    size_t count(std::string_view text) const;
    /// `sink` is called with each new entry, on the unit's thread.
    void onEntry(std::function<void(const Entry&)> sink);

 private:
    mutable std::mutex mcLock;
    mutable std::condition_variable mcChanged;
    std::vector<Entry> mlEntries;
    std::function<void(const Entry&)> mcSink;
};

}  // namespace vnksim
