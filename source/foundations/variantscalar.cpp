#include <limits>

#include "foundations/text.h"
#include "foundations/variantrecord.h"

namespace utils {

static constexpr std::string_view kDigits = "0123456789";
static constexpr std::string_view kHexDigits = "0123456789ABCDEFabcdef";

static bool isAllOf(std::string_view text, std::string_view set) {
    return text.find_first_not_of(set) == std::string_view::npos;
}

static bool isHexForm(std::string_view text) {
    return (text.starts_with("0x") || text.starts_with("0X")) && isAllOf(text.substr(2), kHexDigits);
}

/// The value of a text of digits; empty without digits or past 64 bits.
static std::optional<uint64_t> toUnsigned64(std::string_view digits) {
    if (digits.empty())
        return std::nullopt;
    uint64_t uValue = 0;
    for (const char c : digits) {
        const auto uDigit = static_cast<uint64_t>(c - '0');
        if (uValue > (std::numeric_limits<uint64_t>::max() - uDigit) / 10)
            return std::nullopt;
        uValue = uValue * 10 + uDigit;
    }
    return uValue;
}

/// The narrowest type that holds the digits. Without a sign among them the signed readings never decide:
/// where one succeeds it equals the unsigned one.
static Variant integerVariant(std::string_view digits) {
    const uint64_t uValue = toUnsigned64(digits).value_or(0);
    const bool bHeld = toUnsigned64(digits).has_value();
    if (bHeld && uValue <= std::numeric_limits<uint32_t>::max())
        return Variant(static_cast<uint32_t>(uValue));
    return Variant(uValue);
}

bool parseScalar(std::string_view text, Variant& cVariant) {
    text = strip(text);
    if (text.starts_with('"')) {
        cVariant = Variant(std::string(strip(text, "\"")));
    } else if (text == "true" || text == "false") {
        cVariant = Variant(text == "true");
    } else if (text.find_first_of(".e") != std::string_view::npos) {
        const std::optional<float> cValue = parseFloat(text);
        if (!cValue)
            return false;
        cVariant = Variant(*cValue);
    } else if (isAllOf(text, kDigits)) {
        cVariant = integerVariant(text);
    } else if (isHexForm(text)) {
        // Read with base 10, a hexadecimal form is the 0 that it begins with.
        cVariant = Variant(uint32_t{0});
    } else {
        cVariant = Variant(std::string(text));
    }
    return true;
}

}  // namespace utils
