#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "tools/output.h"
#include "tools/sweeprequest.h"

namespace cli {

/// One spectrum as it came. The edges are the frequencies of the first and the last point.
struct SpectrumView {
    uint32_t sequence = 0;
    uint64_t time = 0;  ///< nanoseconds since 1970
    double lowHz = 0, highHz = 0, rbwHz = 0;
    const float* levels = nullptr;
    size_t points = 0;
    /// As long as the levels, or all three null.
    const float* minimum = nullptr;
    const float* maximum = nullptr;
    const float* average = nullptr;

    bool hasTraces() const { return minimum && maximum && average; }
};

/// Opens a target for writing. Throws Failure with Exit::file; a pipe that nobody reads is one too, rather
/// than a wait for a reader.
std::unique_ptr<SampleOutput> openOutput(const std::string& path);

/// Writes spectra, one after the other.
class SpectrumWriter {
 public:
    SpectrumWriter(SampleOutput& output, SpectrumFormat format) : mcOutput(output), meFormat(format) {}
    /// As SampleOutput::write.
    bool write(const SpectrumView& spectrum);

 private:
    void appendCsv(const SpectrumView& spectrum);
    void appendJson(const SpectrumView& spectrum);
    void appendFloats(const SpectrumView& spectrum);

    SampleOutput& mcOutput;
    SpectrumFormat meFormat;
    bool mbBegun = false;
    std::string mcText;
};

}  // namespace cli
