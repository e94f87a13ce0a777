#pragma once

#include <atomic>
#include <cstdint>
#include <list>
#include <string>
#include <string_view>

#include "foundations/alignedarray.h"

/// One row of the window table.
struct WindowType {
    const char* mpName;
    float (*mpFunction)(int32_t iIndex, int32_t iLength);
    mutable std::atomic<float> mfNoiseBandwidth;   // 0 until first computed
};

/// The table of spectral windows, named by lower-case words.
namespace WindowFunctions {

const char* defaultWindowName();
std::list<std::string> listWindowNames();
/// Null for a name not in the table; exact comparison.
const WindowType* findWindow(std::string_view name);
/// Equivalent noise bandwidth from 16385 points; 1.0 for an unknown name.
float windowNoiseBandwidth(std::string_view name);
/// N samples; an empty name means the default. The mean (single-precision sum / N) goes to *pMean. Writes
/// to pDestination if given, otherwise to the array returned. Asserts on an unknown name.
ReferencePtr<FloatArray> sampleWindow(std::string_view name, uint32_t uLength, float* pMean,
                                      float* pDestination = nullptr);
/// N complex values (w / mean, 0).
ReferencePtr<ComplexArray> complexWindow(std::string_view name, uint32_t uLength,
                                         Complex<float>* pDestination = nullptr);

}  // namespace WindowFunctions
