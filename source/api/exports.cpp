#include "api/exports.h"

#include <cstdlib>
#include <cstring>
#include <new>

namespace exports {

std::string textOf(const char* pText) {
    return pText ? std::string(pText) : std::string();
}

char* heapText(const std::string& text) {
    char* pCopy = static_cast<char*>(std::malloc(text.size() + 1));
    if (!pCopy)
        throw std::bad_alloc();
    std::memcpy(pCopy, text.c_str(), text.size() + 1);
    return pCopy;
}

void freeText(char** ppText) {
    std::free(*ppText);
    *ppText = nullptr;
}

void replaceText(char** ppText, const std::string& text) {
    char* pCopy = heapText(text);
    std::free(*ppText);
    *ppText = pCopy;
}

utils::VariantRecord parseText(char* const* ppText) {
    return utils::VariantRecord(*ppText);
}

}  // namespace exports
