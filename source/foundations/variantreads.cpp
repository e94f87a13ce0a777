#include <algorithm>
#include <cmath>
#include <limits>

#include "foundations/variantrecord.h"

namespace utils {

static std::optional<int32_t> toInt32(const Variant& cValue) {
    constexpr int64_t kLowest = std::numeric_limits<int32_t>::min();
    constexpr int64_t kHighest = std::numeric_limits<int32_t>::max();
    int64_t iValue = 0;
    switch (cValue.getType()) {
        case Variant::kInt32:
            return cValue.getInt32();
        case Variant::kUnsigned32:
            iValue = cValue.getUnsigned32();
            break;
        case Variant::kUnsigned64:
            if (cValue.getUnsigned64() > uint64_t{kHighest})
                return std::nullopt;
            iValue = static_cast<int64_t>(cValue.getUnsigned64());
            break;
        case Variant::kInt64:
            iValue = cValue.getInt64();
            break;
        case Variant::kFloat:
            if (!(cValue.getFloat() >= -2147483648.0f && cValue.getFloat() <= 2147483648.0f))
                return std::nullopt;
            // The upper bound itself is let in, and is one more than fits.
            return static_cast<int32_t>(
                std::min(std::llround(cValue.getFloat()), static_cast<long long>(kHighest)));
        default:
            return std::nullopt;
    }
    if (iValue < kLowest || iValue > kHighest)
        return std::nullopt;
    return static_cast<int32_t>(iValue);
}

static std::optional<bool> toBool(const Variant& cValue) {
    return cValue.getType() == Variant::kBool ? std::optional<bool>(cValue.getBool()) : std::nullopt;
}

static std::optional<std::string> toText(const Variant& cValue) {
    return cValue.getType() == Variant::kText ? std::optional<std::string>(cValue.getText()) : std::nullopt;
}

std::optional<float> VariantRecord::getNumber(std::string_view key) const {
    const Variant* pValue = find(key);
    return pValue ? pValue->toFloat() : std::nullopt;
}

std::optional<bool> VariantRecord::getBool(std::string_view key) const {
    const Variant* pValue = find(key);
    return pValue ? toBool(*pValue) : std::nullopt;
}

std::optional<std::string> VariantRecord::getText(std::string_view key) const {
    const Variant* pValue = find(key);
    return pValue ? toText(*pValue) : std::nullopt;
}

template <typename Convert>
auto VariantRecord::take(std::string_view key, Convert convert) {
    const auto it = lookUp(key);
    using Result = decltype(convert(it->second));
    if (it == mcEntries.end())
        return Result();
    Result cResult = convert(it->second);
    if (cResult)
        mcEntries.erase(it);
    return cResult;
}

bool VariantRecord::takeInt32(std::string_view key, int32_t& iValue) {
    const auto cTaken = take(key, toInt32);
    if (cTaken)
        iValue = *cTaken;
    return cTaken.has_value();
}

bool VariantRecord::takeText(std::string_view key, std::string& text, bool bErase) {
    auto cText = bErase ? take(key, toText) : getText(key);
    if (cText)
        text = std::move(*cText);
    return cText.has_value();
}

std::optional<float> VariantRecord::takeNumber(std::string_view key) {
    return take(key, [](const Variant& cValue) { return cValue.toFloat(); });
}

std::optional<bool> VariantRecord::takeBool(std::string_view key) {
    return take(key, toBool);
}

std::optional<std::string> VariantRecord::takeText(std::string_view key) {
    return take(key, toText);
}

}  // namespace utils
