// Status texts and the error logs.
#include <cstdlib>
#include <cstring>
#include <new>

#include "api/exports.h"
#include "foundations/runtimeerrors.h"
#include "foundations/statustext.h"
#include "foundations/usererrors.h"
#include "libvnk.h"

extern "C" {

const char* vnkGetTextForStatus(int32_t status) { return utils::textForStatus(status); }

int32_t vnkGetNextStatus(void) {
    if (!APIState::current())
        return kNotInitialised;
    return utils::UserErrors::instance().nextStatus();
}

char* vnkGetDetailedStatus(void) {
    if (APIState::current())
        return exports::heapText(utils::UserErrors::instance().takeDetail());
    // Without the interface the block holds the address of a constant text, not its characters.
    static const char* const kText = "API not initialized";
    void* pBlock = std::malloc(sizeof kText);
    if (!pBlock)
        throw std::bad_alloc();
    std::memcpy(pBlock, &kText, sizeof kText);
    return static_cast<char*>(pBlock);
}

char* vnkGetVerboseInternalErrorState(uint32_t maximumEntries) {
    if (!APIState::current())
        return nullptr;
    const std::string text = utils::RuntimeErrors::instance().takeText(maximumEntries);
    return text.empty() ? nullptr : exports::heapText(text);
}

char* vnkGetDebugTrace(void) {
    if (!APIState::current())
        return nullptr;
    return exports::heapText(utils::RuntimeErrors::instance().takeTraceText());
}

}  // extern "C"
