#include "zelvar/modeltable.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr GainTable kSetA = {{"high", "high", "high", "high", "high", "high", "high", "med", "low", "low"},
                             {0, 0, 0, 0, 0, 0, 0, 0, 0, 10}};
constexpr GainTable kSetB = {{}, {0, 0, 0, 0, 0, 0, 0, 10, 20, 30}};

constexpr uint32_t kStepped = kSteppedAttenuator;
constexpr uint32_t kVariable = kVariableAttenuator;

/// What all models of the family share, with what differs put in.
constexpr ModelRecord row(const char* pName, float fHighestHz, bool bGainNames, uint32_t uAttenuator,
                          bool bGNSS) {
    const GainTable* const pTable = bGainNames ? &kSetA : &kSetB;
    return {pName,       125e6f,  true,       4,     1024,
            134217728,   9000.0f, fHighestHz, 50e6f, bGainNames ? 1u : 0u,
            uAttenuator, bGNSS,   !bGNSS,     -3.0f, pTable,
            -10.0f,      pTable};
}

constexpr float kHighestC = 2.7e10f;
constexpr float kHighestB = 1.8e10f;
constexpr float kHighestA = 8e9f;

constexpr std::array<ModelRecord, 13> kModels = {{
    row("ZV350-C", kHighestC, true, kVariable, true),
    row("ZV350-B", kHighestB, true, kVariable, true),
    row("ZV350-A", kHighestA, false, kStepped, true),
    row("ZV300-C", kHighestC, true, kVariable, true),
    row("ZV300-B", kHighestB, true, kVariable, true),
    row("ZV300-A", kHighestA, false, kStepped, true),
    row("ZV150-C", kHighestC, true, kVariable, false),
    row("ZV150-B", kHighestB, true, kVariable, false),
    row("ZV150-A", kHighestA, false, kStepped, false),
    row("ZV100-C", kHighestC, true, kVariable, false),
    row("ZV100-B", kHighestB, true, kVariable, false),
    row("ZV100-AP", kHighestA, false, kVariable, false),
    row("ZV100-A", kHighestA, false, kStepped, false),
}};

constexpr uint32_t kLastIndex = 9;

}  // namespace

const std::array<ModelRecord, 13>& modelTable() {
    return kModels;
}

const ModelRecord* findModel(const std::string& type) {
    const auto it = std::find_if(kModels.begin(), kModels.end(),
                                 [&](const auto& cModel) { return type == cModel.mpName; });
    return it == kModels.end() ? nullptr : &*it;
}

bool namesAnyModel(const std::string& text) {
    return std::any_of(kModels.begin(), kModels.end(),
                       [&](const auto& cModel) { return text.find(cModel.mpName) != std::string::npos; });
}

uint32_t gainIndex(float fReferenceLevel) {
    const float fIndex = std::floor((fReferenceLevel + 80.0f) / 10.0f);
    if (!(fIndex > 0.0f))  // NaN too
        return 0;
    return fIndex < static_cast<float>(kLastIndex) ? static_cast<uint32_t>(fIndex) : kLastIndex;
}

float referenceLevelFor(const GainTable& cTable, const std::string& gainName, float fAttenuation) {
    for (uint32_t i = kLastIndex + 1; i-- > 0;) {
        const bool bNamed = !cTable.mpNames[i] || gainName == cTable.mpNames[i];
        if (bNamed && cTable.mfAttenuations[i] == fAttenuation)
            return static_cast<float>(i) * 10.0f - 80.0f;
    }
    return 0.0f;
}
