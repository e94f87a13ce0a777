#pragma once

#include <cstddef>
#include <deque>
#include <vector>

/// The mean, value by value, of the newest arrays of a row. The number of them jumps between the length - 1
/// and the length: the array that fills the window is used, and then the oldest goes.
///
/// Nothing is ever subtracted, which would keep the rounding of all that has left, and for ever the first
/// value that is no finite number. Stretches of about the root of the length have sums of their own instead,
/// so that an array costs about twice that root in additions.
class MovingAverage {
 public:
    MovingAverage() { setLength(1); }
    /// Forgets what has come. A length of 0 counts as 1.
    void setLength(size_t uLength);
    void clear();
    /// Takes `uCount` values, as many as those before since the last clear, and writes the means.
    void take(const float* pValues, size_t uCount, float* pMeans);
    size_t size() const { return mlEntries.size(); }

 private:
    using Sums = std::vector<double>;
    void sumStretch(size_t uFirst, size_t uCount);
    void addEntries(Sums& lSums, size_t uFirst, size_t uLast) const;
    void dropOldest();

    size_t muLength = 0;
    size_t muStretch = 0;
    std::deque<std::vector<float>> mlEntries;
    std::vector<float> mlSpare;    // the storage of the one that went last
    std::deque<Sums> mlStretches;  // of muStretch entries each, without a gap, from muLoose on
    size_t muLoose = 0;            // the oldest entries, left of a stretch that has begun to go
    Sums mlTotal;
};
