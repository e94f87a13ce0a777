// Lifetime, version, text disposal, and the part of the interface that has no function behind it.
#include <cstdlib>

#include "api/exports.h"
#include "foundations/text.h"
#include "libvnk.h"

namespace {

constexpr int32_t kUnimplemented = -1;

int32_t unimplementedWhenInitialised() {
    return APIState::current() ? kUnimplemented : kNotInitialised;
}

}  // namespace

extern "C" {

int32_t vnkInitAPI(void) {
    APIState::initialise();
    return 0;
}

int32_t vnkShutdownAPI(void) {
    APIState::shutdown();
    return 0;
}

char* vnkGetVersion(void) {
    return exports::heapText(
        utils::formatText("%s - %s (%s) %s", "libVNK", "1.4x.8DEV", "x64", __DATE__ " " __TIME__));
}

void vnkDisposeString(char** text) {
    if (text && *text)
        exports::freeText(text);
}

const char* vnkGetPlatformIDString(void) {
    APIState* const pState = APIState::current();
    if (!pState)
        return "API not initialized";
    pState->setLastStatus(kUnimplemented);
    return "unimplemented";
}

int32_t vnkAddTriggerCondition(void) { return unimplementedWhenInitialised(); }
int32_t vnkGetAvailableTriggerTemplates(void) { return unimplementedWhenInitialised(); }
int32_t vnkGetCalibrationCertificate(void) { return unimplementedWhenInitialised(); }
int32_t vnkRuntimeCalibrate(void) { return unimplementedWhenInitialised(); }
int32_t vnkTestBandwidth(void) { return unimplementedWhenInitialised(); }

int32_t vnkReadLatestTrigger(void) { return kUnimplemented; }
int32_t vnkRemoveTriggerCondition(void) { return kUnimplemented; }
int32_t vnkSetTriggeredCaptureBufferTimes(void) { return kUnimplemented; }

const char* vnkReadCurrentTriggerCondition(void) { return "unimplemented"; }

}  // extern "C"
