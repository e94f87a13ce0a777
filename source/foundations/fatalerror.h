#pragma once

#include <string>

namespace utils {

/// What every failed assertion throws: a plain text, with no base class. Only the thread wrapper
/// catches it.
class FatalError {
 public:
    explicit FatalError(std::string message) : mcMessage(std::move(message)) {}
    const std::string& message() const { return mcMessage; }

 private:
    std::string mcMessage;
};

/// Throws FatalError with "ASSERT failed <%s> %s::L%d".
[[noreturn]] void assertionFailed(const char* condition, const char* file, int line);

}  // namespace utils

/// Asserts with the condition's source text in the message.
#define VNK_ASSERT(condition)                                                    \
    do {                                                                         \
        if (!(condition)) [[unlikely]]                                           \
            ::utils::assertionFailed(#condition, __FILE__, __LINE__);            \
    } while (false)

/// Asserts with a condition text of its own, where the text is part of the behaviour.
#define VNK_ASSERT_TEXT(condition, text)                                         \
    do {                                                                         \
        if (!(condition)) [[unlikely]]                                           \
            ::utils::assertionFailed(text, __FILE__, __LINE__);                  \
    } while (false)
