#include "foundations/text.h"

#include <locale.h>
#include <clocale>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <limits>

namespace utils {

namespace {

// Made once, never freed. Should the system refuse it, the calling thread's own locale stays in force.
locale_t classicLocale() {
    static const locale_t cLocale = newlocale(LC_ALL_MASK, "C", locale_t{});
    return cLocale;
}

class ClassicLocaleScope {
 public:
    ClassicLocaleScope() : mcPrevious(uselocale(classicLocale())) {}
    ~ClassicLocaleScope() { uselocale(mcPrevious); }
    ClassicLocaleScope(const ClassicLocaleScope&) = delete;
    ClassicLocaleScope& operator=(const ClassicLocaleScope&) = delete;

 private:
    locale_t mcPrevious;
};

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

/// Sign and magnitude of the leading decimal integer; the magnitude stops at the bound's successor.
struct LeadingInteger {
    bool mbNegative;
    uint64_t muMagnitude;
};

std::optional<LeadingInteger> leadingInteger(std::string_view text) {
    constexpr uint64_t kBound = std::numeric_limits<uint32_t>::max();
    size_t i = text.find_first_not_of(" \t\n\v\f\r");
    if (i == std::string_view::npos)
        return std::nullopt;
    LeadingInteger cResult{text[i] == '-', 0};
    if (text[i] == '-' || text[i] == '+')
        ++i;
    if (i == text.size() || !isDigit(text[i]))
        return std::nullopt;
    for (; i < text.size() && isDigit(text[i]) && cResult.muMagnitude <= kBound; ++i)
        cResult.muMagnitude = cResult.muMagnitude * 10 + static_cast<uint64_t>(text[i] - '0');
    return cResult;
}

}  // namespace

std::string formatText(const char* format, ...) {
    const ClassicLocaleScope cScope;
    char buffer[512];
    va_list cArguments;
    va_start(cArguments, format);
    va_list cAgain;
    va_copy(cAgain, cArguments);
    const int iLength = std::vsnprintf(buffer, sizeof buffer, format, cArguments);
    va_end(cArguments);
    std::string result;
    if (iLength > 0 && static_cast<size_t>(iLength) < sizeof buffer) {
        result.assign(buffer, static_cast<size_t>(iLength));
    } else if (iLength > 0) {
        result.resize(static_cast<size_t>(iLength));
        std::vsnprintf(result.data(), result.size() + 1, format, cAgain);
    }
    va_end(cAgain);
    return result;
}

std::string_view beforeFirst(std::string_view text, std::string_view delimiter) {
    return text.substr(0, text.find(delimiter));
}

std::string_view afterFirst(std::string_view text, std::string_view delimiter) {
    const size_t uAt = text.find(delimiter);
    return uAt == std::string_view::npos ? std::string_view() : text.substr(uAt + delimiter.size());
}

std::string_view beforeLast(std::string_view text, std::string_view delimiter) {
    return text.substr(0, text.rfind(delimiter));
}

std::string_view afterLast(std::string_view text, std::string_view delimiter) {
    const size_t uAt = text.rfind(delimiter);
    return uAt == std::string_view::npos ? std::string_view() : text.substr(uAt + delimiter.size());
}

std::string_view leftStrip(std::string_view text, std::string_view set) {
    const size_t uAt = text.find_first_not_of(set);
    return text.substr(uAt == std::string_view::npos ? text.size() : uAt);
}

std::string_view rightStrip(std::string_view text, std::string_view set) {
    return text.substr(0, text.find_last_not_of(set) + 1);
}

std::string_view strip(std::string_view text, std::string_view set) {
    return rightStrip(leftStrip(text, set), set);
}

std::string join(const std::vector<std::string>& list, std::string_view separator) {
    std::string result;
    for (size_t i = 0; i < list.size(); ++i) {
        if (i)
            result += separator;
        result += list[i];
    }
    return result;
}

std::string_view takeBefore(std::string_view& rest, std::string_view delimiter) {
    const std::string_view taken = beforeFirst(rest, delimiter);
    rest = afterFirst(rest, delimiter);
    return taken;
}

std::optional<float> parseFloat(std::string_view text) {
    const std::string terminated(text);
    const int iErrno = errno;
    errno = 0;
    char* pEnd = nullptr;
    const float fValue = strtof_l(terminated.c_str(), &pEnd, classicLocale());
    const bool bValid = pEnd != terminated.c_str() && errno != ERANGE;
    errno = iErrno;
    return bValid ? std::optional<float>(fValue) : std::nullopt;
}

std::optional<int32_t> parseInt32(std::string_view text) {
    const auto cInteger = leadingInteger(text);
    const uint64_t uBound = uint64_t{0x7FFFFFFF} + (cInteger && cInteger->mbNegative ? 1 : 0);
    if (!cInteger || cInteger->muMagnitude > uBound)
        return std::nullopt;
    const auto iMagnitude = static_cast<int64_t>(cInteger->muMagnitude);
    return static_cast<int32_t>(cInteger->mbNegative ? -iMagnitude : iMagnitude);
}

std::optional<uint32_t> parseUnsigned32(std::string_view text) {
    const auto cInteger = leadingInteger(text);
    if (!cInteger || cInteger->muMagnitude > std::numeric_limits<uint32_t>::max())
        return std::nullopt;
    if (cInteger->mbNegative && cInteger->muMagnitude)
        return std::nullopt;
    return static_cast<uint32_t>(cInteger->muMagnitude);
}

}  // namespace utils
