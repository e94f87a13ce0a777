#include "flows/entity.h"

#include <cmath>

#include "foundations/text.h"
#include "foundations/usererrors.h"

namespace {

constexpr int32_t kUnknownParameter = -33;
constexpr float kCountLimit = 4294967296.0f;

std::optional<uint32_t> countOf(const utils::Variant& cValue) {
    switch (cValue.getType()) {
        case utils::Variant::kUnsigned32:
            return cValue.getUnsigned32();
        case utils::Variant::kInt32:
            if (cValue.getInt32() >= 0)
                return static_cast<uint32_t>(cValue.getInt32());
            return {};
        case utils::Variant::kInt64:
            if (cValue.getInt64() >= 0 && cValue.getInt64() <= int64_t{UINT32_MAX})
                return static_cast<uint32_t>(cValue.getInt64());
            return {};
        case utils::Variant::kUnsigned64:
            if (cValue.getUnsigned64() <= UINT32_MAX)
                return static_cast<uint32_t>(cValue.getUnsigned64());
            return {};
        case utils::Variant::kFloat: {
            const float fRounded = std::round(cValue.getFloat());
            if (fRounded >= 0.0f && fRounded <= kCountLimit)
                return static_cast<uint32_t>(static_cast<uint64_t>(fRounded));
            return {};
        }
        default:
            return {};
    }
}

}  // namespace

void Entity::setParameters(utils::VariantRecord& cRecord, ErrorList& lErrors) {
    for (const auto& [key, cValue] : cRecord.entries())
        addRefusal(lErrors, kUnknownParameter, utils::formatText("Unknown parameter '%s'", key.c_str()));
}

void addNumericSchema(utils::VariantRecord& cSchema, const std::string& key, const std::string& description,
                      float fMinimum, float fMaximum, float fDefault, const std::string& units,
                      bool bReadOnly) {
    utils::VariantRecord cEntry;
    cEntry.set("description", description);
    if (!units.empty())
        cEntry.set("units", units);
    if (bReadOnly)
        cEntry.set("readonly", true);
    if (fMinimum != fMaximum) {
        cEntry.set("min", fMinimum);
        cEntry.set("max", fMaximum);
        if (fDefault != 0.0f)
            cEntry.set("default", fDefault);
    }
    cSchema.set(key, cEntry);
}

void addEnumSchema(utils::VariantRecord& cSchema, const std::string& key, const std::string& description,
                   const std::list<std::string>& lValues, bool bReadOnly) {
    utils::VariantRecord cEntry;
    cEntry.set("description", description);
    if (bReadOnly)
        cEntry.set("readonly", true);
    cEntry.set("values", lValues);
    cSchema.set(key, cEntry);
}

void addTextSchema(utils::VariantRecord& cSchema, const std::string& key, const std::string& description,
                   bool bReadOnly) {
    utils::VariantRecord cEntry;
    cEntry.set("description", description);
    if (bReadOnly)
        cEntry.set("readonly", true);
    cSchema.set(key, cEntry);
}

void addRefusal(ErrorList& lErrors, int32_t iStatus, std::string text) {
    lErrors.push_back(std::move(text));
    utils::UserErrors::instance().pushStatus(iStatus);
}

std::optional<uint32_t> takeCount(utils::VariantRecord& cRecord, std::string_view key) {
    const utils::Variant* pValue = cRecord.find(key);
    if (!pValue)
        return {};
    const std::optional<uint32_t> uCount = countOf(*pValue);
    if (uCount)
        cRecord.erase(key);
    return uCount;
}
