// Record text: the library against a slow model, on the same bytes.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "unit/foundations/recordmodel.h"

// The model is quadratic and recurses.
static constexpr size_t kModelLimit = 2000;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t uSize) {
    const std::string text(reinterpret_cast<const char*>(pData), uSize);
    if (uSize > kModelLimit) {
        const utils::VariantRecord cRecord(text.c_str());
        const utils::VariantRecord cAgain(cRecord.toCompactText().c_str());
        return 0;
    }
    const std::string difference = recordmodel::difference(text, text.substr(0, uSize % 4));
    if (!difference.empty()) {
        std::fprintf(stderr, "%s\n", difference.c_str());
        std::abort();
    }
    return 0;
}
