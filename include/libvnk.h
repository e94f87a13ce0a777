#ifndef LIBVNK_H
#define LIBVNK_H

#include <stdbool.h>
#include <stdint.h>

#if defined(__GNUC__)
#define VNK_API __attribute__((visibility("default")))
#else
#define VNK_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/** Names nothing; what vnkClose writes into a handle variable. */
#define VNK_INVALID_HANDLE 0xFFFFFFFFu

typedef struct vnkIQRecord {
    int32_t status;
    uint32_t sequence;
    uint64_t timestamp;
    double centreHz;
    float bandwidthHz;
    float sampleRateHz;
    uint8_t sequenceGap;
    uint8_t subOptimal;
    uint32_t sampleCount;
    const float* samples;
    char* extras;
} vnkIQRecord;

VNK_API int32_t vnkInitAPI(void);
VNK_API int32_t vnkShutdownAPI(void);
VNK_API char* vnkGetVersion(void);
VNK_API void vnkDisposeString(char** text);
VNK_API const char* vnkGetPlatformIDString(void);
VNK_API int32_t vnkAddTriggerCondition(void);
VNK_API int32_t vnkGetAvailableTriggerTemplates(void);
VNK_API int32_t vnkGetCalibrationCertificate(void);
VNK_API int32_t vnkRuntimeCalibrate(void);
VNK_API int32_t vnkTestBandwidth(void);
VNK_API int32_t vnkReadLatestTrigger(void);
VNK_API int32_t vnkRemoveTriggerCondition(void);
VNK_API int32_t vnkSetTriggeredCaptureBufferTimes(void);
VNK_API const char* vnkReadCurrentTriggerCondition(void);

VNK_API const char* vnkGetTextForStatus(int32_t status);
VNK_API int32_t vnkGetNextStatus(void);
VNK_API char* vnkGetDetailedStatus(void);
VNK_API char* vnkGetVerboseInternalErrorState(uint32_t maximumEntries);
VNK_API char* vnkGetDebugTrace(void);

VNK_API int32_t vnkAddDeviceAddress(const char* address);
VNK_API int32_t vnkEnumerateDevices(uint32_t* count, uint8_t searchNetwork);
VNK_API int32_t vnkExamineDevice(uint32_t index, char** description);
VNK_API int32_t vnkOpenDevice(uint32_t index, uint32_t* handle);
VNK_API int32_t vnkResetDeviceConnection(uint32_t handle);
VNK_API int32_t vnkClose(uint32_t* handle);
VNK_API int32_t vnkSendSCPI(uint32_t handle, const char* command);
VNK_API int32_t vnkQuerySCPI(uint32_t handle, const char* query, char** reply);

VNK_API int32_t vnkAddFCentre(char** parameters, float centreHz);
VNK_API int32_t vnkAddIFBWHz(char** parameters, float bandwidthHz);
VNK_API int32_t vnkAddFMinMax(char** parameters, float minimumHz, float maximumHz);
VNK_API int32_t vnkAddRBWHz(char** parameters, float rbwHz);
VNK_API int32_t vnkAddWindowType(char** parameters, const char* name);
VNK_API int32_t vnkAddRefLeveldBm(char** parameters, float leveldBm);
VNK_API int32_t vnkAddIQCaptureSec(char** parameters, float seconds);
VNK_API int32_t vnkAddNumericParameter(char** parameters, const char* key, float value);
VNK_API int32_t vnkAddTextParameter(char** parameters, const char* key, const char* value);
VNK_API int32_t vnkAddBooleanParameter(char** parameters, const char* key, uint8_t value);
VNK_API int32_t vnkReadFCentre(char** parameters, float* centreHz);
VNK_API int32_t vnkReadIFBWHz(char** parameters, float* bandwidthHz);
VNK_API int32_t vnkReadFMinMax(char** parameters, float* minimumHz, float* maximumHz);
VNK_API int32_t vnkReadRBWHz(char** parameters, float* rbwHz);
VNK_API int32_t vnkReadWindowType(char** parameters, char** name);
VNK_API int32_t vnkReadSampleRateHz(char** parameters, float* sampleRateHz);
VNK_API int32_t vnkReadRefLeveldBm(char** parameters, float* leveldBm);
VNK_API int32_t vnkReadNumericParameter(char** parameters, const char* key, float* value);
VNK_API int32_t vnkReadTextParameter(char** parameters, const char* key, char** value);
VNK_API int32_t vnkReadBooleanParameter(char** parameters, const char* key, uint8_t* value);
VNK_API int32_t vnkReadParameterInfoElement(char** schema, const char* parameter, const char* element, float* value);
VNK_API int32_t vnkReadParameterAsJSON(char** schema, const char* parameter, char** json);
VNK_API int32_t vnkGetParameterInfo(uint32_t handle, char** schema);
VNK_API int32_t vnkGetParameters(uint32_t handle, char** parameters);
VNK_API int32_t vnkSetParameters(uint32_t handle, char** parameters);

VNK_API int32_t vnkCreateIQStream(uint32_t* handle, float centreHz, float bandwidthHz, float referenceLeveldBm);
VNK_API int32_t vnkAttachStreamToDevice(uint32_t stream, uint32_t device);
VNK_API int32_t vnkDetachStream(uint32_t stream);
VNK_API int32_t vnkFlushStream(uint32_t stream);
VNK_API int32_t vnkIsAttached(uint32_t stream);
VNK_API int32_t vnkAllowDiscarding(uint32_t stream, uint8_t allow);
VNK_API int32_t vnkGetNextIQ(uint32_t stream, vnkIQRecord** record, uint32_t timeoutMs);
VNK_API int32_t vnkFreeIQ(vnkIQRecord** record);

#ifdef __cplusplus
}
#endif

#endif
