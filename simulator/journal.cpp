#include "simulator/journal.h"

#include <algorithm>

namespace vnksim {

void Journal::add(unsigned connection, std::string line, std::string road) {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    Entry entry{std::chrono::duration_cast<std::chrono::nanoseconds>(now).count(), connection,
                std::move(line), std::move(road)};
    std::function<void(const Entry&)> sink;
    {
        const std::scoped_lock lock(mcLock);
        mlEntries.push_back(entry);
        sink = mcSink;
    }
    mcChanged.notify_all();
    if (sink) {
        sink(entry);
    }
}

std::vector<Journal::Entry> Journal::snapshot() const {
    const std::scoped_lock lock(mcLock);
    return mlEntries;
}

std::vector<std::string> Journal::lines(size_t from) const {
    const std::scoped_lock lock(mcLock);
    std::vector<std::string> lines;
    for (size_t i = from; i < mlEntries.size(); ++i) {
        lines.push_back(mlEntries[i].line);
    }
    return lines;
}

size_t Journal::size() const {
    const std::scoped_lock lock(mcLock);
    return mlEntries.size();
}

void Journal::clear() {
    const std::scoped_lock lock(mcLock);
    mlEntries.clear();
}

bool Journal::waitFor(std::string_view text, std::chrono::milliseconds limit, size_t from) const {
    std::unique_lock lock(mcLock);
    return mcChanged.wait_for(lock, limit, [&] {
        for (size_t i = from; i < mlEntries.size(); ++i) {
            if (mlEntries[i].line.find(text) != std::string::npos) {
                return true;
            }
        }
        return false;
    });
}

size_t Journal::count(std::string_view text) const {
    const std::scoped_lock lock(mcLock);
    return static_cast<size_t>(std::count_if(mlEntries.begin(), mlEntries.end(), [text](const Entry& entry) {
        return entry.line.find(text) != std::string::npos;
    }));
}

void Journal::onEntry(std::function<void(const Entry&)> sink) {
    const std::scoped_lock lock(mcLock);
    mcSink = std::move(sink);
}

}  // namespace vnksim
