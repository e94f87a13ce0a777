#pragma once

#include <string>

#include "api/apistate.h"
#include "foundations/variantrecord.h"

/// The state, or the status of an interface that is not initialised out of the export.
#define VNK_STATE_OR_RETURN(state)                    \
    APIState* const state = APIState::current();      \
    if (!(state))                                     \
    return kNotInitialised

inline constexpr int32_t kNotInitialised = -2;
inline constexpr int32_t kUnallocatedUserData = -4;

namespace exports {

/// An owned copy of a caller's text; null counts as empty.
std::string textOf(const char* pText);
/// A copy in the general allocator, for the caller to dispose of. Throws std::bad_alloc.
char* heapText(const std::string& text);
/// Frees what a caller's text variable holds and clears it.
void freeText(char** ppText);
/// Frees what the variable holds and stores the new text.
void replaceText(char** ppText, const std::string& text);
/// The record behind a caller's parameter text.
utils::VariantRecord parseText(char* const* ppText);

}  // namespace exports
