// Parameter texts: building, reading, and passing them to and from entities.
#include "api/exports.h"
#include "foundations/runtimeerrors.h"
#include "foundations/usererrors.h"
#include "libvnk.h"

namespace {

constexpr int32_t kBadEntityHandle = -9;
constexpr int32_t kInvalidParameter = -13;

template <typename Value>
int32_t addParameter(char** ppText, const char* pKey, const Value& cValue) {
    VNK_STATE_OR_RETURN(pState);
    if (!ppText)
        return kUnallocatedUserData;
    utils::VariantRecord cRecord = exports::parseText(ppText);
    cRecord.set(exports::textOf(pKey), cValue);
    exports::replaceText(ppText, cRecord.toCompactText());
    return 0;
}

int32_t readNumber(char** ppText, const char* pKey, float* pValue) {
    VNK_STATE_OR_RETURN(pState);
    if (!ppText || !pValue)
        return kUnallocatedUserData;
    const std::optional<float> value = exports::parseText(ppText).getNumber(exports::textOf(pKey));
    if (!value)
        return kInvalidParameter;
    *pValue = *value;
    return 0;
}

std::string joinElements(const std::vector<utils::VariantRecord>& lElements) {
    std::string text;
    for (const utils::VariantRecord& cElement : lElements) {
        if (&cElement != &lElements.front())
            text += ",";
        text += utils::VariantRecord::formatElement(cElement, false, "", true);
    }
    return text;
}

int32_t readText(char** ppText, const char* pKey, char** ppValue) {
    VNK_STATE_OR_RETURN(pState);
    if (!ppText || !ppValue)
        return kUnallocatedUserData;
    exports::freeText(ppValue);
    const utils::VariantRecord cRecord = exports::parseText(ppText);
    const utils::Variant* pFound = cRecord.find(exports::textOf(pKey));
    if (pFound && pFound->getType() == utils::Variant::kText)
        *ppValue = exports::heapText(pFound->getText());
    else if (pFound && pFound->getType() == utils::Variant::kArray)
        *ppValue = exports::heapText(joinElements(pFound->getArray()));
    return *ppValue ? 0 : kInvalidParameter;
}

/// The nested record of one parameter of a schema; null if it is not of that form.
const utils::VariantRecord* findSchemaEntry(const utils::VariantRecord& cSchema, const char* pParameter) {
    const utils::Variant* pFound = cSchema.find(exports::textOf(pParameter));
    return pFound && pFound->getType() == utils::Variant::kRecord ? pFound->getRecord() : nullptr;
}

void reportErrors(const ErrorList& lErrors) {
    for (const std::string& error : lErrors) {
        utils::reportError(-34, error);
        utils::UserErrors::instance().setDetail(error);
    }
}

int32_t setEntityParameters(APIState& cState, uint32_t uHandle, utils::VariantRecord cRecord) {
    ErrorList lErrors;
    const ReferencePtr<FrameSink> cStream = cState.findStream(uHandle);
    const ReferencePtr<Device> cDevice = cState.findDevice(uHandle);
    const ReferencePtr<Processor> cProcessor = cState.findProcessor(uHandle);
    if (const ReferencePtr<FrameSink> cSink = cStream ? cStream : ReferencePtr<FrameSink>(cProcessor))
        cSink->setSinkParameters(cRecord, lErrors, false);
    if (!cStream && cDevice)
        cDevice->setParameters(cRecord, lErrors);
    if (!cStream && !cDevice && !cProcessor)
        return kBadEntityHandle;
    if (lErrors.empty())
        return cRecord.empty() ? 0 : -33;
    reportErrors(lErrors);
    return -34;
}

}  // namespace

extern "C" {

int32_t vnkAddFCentre(char** parameters, float centreHz) {
    return addParameter(parameters, "FCentreHz", centreHz);
}

int32_t vnkAddIFBWHz(char** parameters, float bandwidthHz) {
    return addParameter(parameters, "IFBWHz", bandwidthHz);
}

int32_t vnkAddFMinMax(char** parameters, float minimumHz, float maximumHz) {
    const int32_t iMinimum = addParameter(parameters, "FMinHz", minimumHz);
    const int32_t iMaximum = addParameter(parameters, "FMaxHz", maximumHz);
    return iMinimum != 0 ? iMinimum : iMaximum;
}

int32_t vnkAddRBWHz(char** parameters, float rbwHz) { return addParameter(parameters, "RBWHz", rbwHz); }

int32_t vnkAddWindowType(char** parameters, const char* name) {
    return addParameter(parameters, "WindowFn", exports::textOf(name));
}

int32_t vnkAddRefLeveldBm(char** parameters, float leveldBm) {
    return addParameter(parameters, "RefdBm", leveldBm);
}

int32_t vnkAddIQCaptureSec(char** parameters, float seconds) {
    return addParameter(parameters, "captureSec", seconds);
}

int32_t vnkAddNumericParameter(char** parameters, const char* key, float value) {
    return addParameter(parameters, key, value);
}

int32_t vnkAddTextParameter(char** parameters, const char* key, const char* value) {
    return addParameter(parameters, key, exports::textOf(value));
}

int32_t vnkAddBooleanParameter(char** parameters, const char* key, uint8_t value) {
    return addParameter(parameters, key, value != 0);
}

int32_t vnkReadFCentre(char** parameters, float* centreHz) {
    return readNumber(parameters, "FCentreHz", centreHz);
}

int32_t vnkReadIFBWHz(char** parameters, float* bandwidthHz) {
    return readNumber(parameters, "IFBWHz", bandwidthHz);
}

int32_t vnkReadFMinMax(char** parameters, float* minimumHz, float* maximumHz) {
    const int32_t iMinimum = readNumber(parameters, "FMinHz", minimumHz);
    const int32_t iMaximum = readNumber(parameters, "FMaxHz", maximumHz);
    return iMinimum != 0 ? iMinimum : iMaximum;
}

int32_t vnkReadRBWHz(char** parameters, float* rbwHz) { return readNumber(parameters, "RBWHz", rbwHz); }

int32_t vnkReadWindowType(char** parameters, char** name) { return readText(parameters, "WindowFn", name); }

int32_t vnkReadSampleRateHz(char** parameters, float* sampleRateHz) {
    return readNumber(parameters, "SampleRateHz", sampleRateHz);
}

int32_t vnkReadRefLeveldBm(char** parameters, float* leveldBm) {
    return readNumber(parameters, "RefdBm", leveldBm);
}

int32_t vnkReadNumericParameter(char** parameters, const char* key, float* value) {
    return readNumber(parameters, key, value);
}

int32_t vnkReadTextParameter(char** parameters, const char* key, char** value) {
    return readText(parameters, key, value);
}

int32_t vnkReadBooleanParameter(char** parameters, const char* key, uint8_t* value) {
    VNK_STATE_OR_RETURN(pState);
    if (!parameters || !value)
        return kUnallocatedUserData;
    const utils::VariantRecord cRecord = exports::parseText(parameters);
    const utils::Variant* pFound = cRecord.find(exports::textOf(key));
    if (!pFound || pFound->getType() != utils::Variant::kBool)
        return kInvalidParameter;
    *value = pFound->getBool() ? 1 : 0;
    return 0;
}

int32_t vnkReadParameterInfoElement(char** schema, const char* parameter, const char* element, float* value) {
    VNK_STATE_OR_RETURN(pState);
    if (!schema || !value)
        return kInvalidParameter;
    const utils::VariantRecord cSchema = exports::parseText(schema);
    const utils::VariantRecord* pEntry = findSchemaEntry(cSchema, parameter);
    const std::optional<float> found = pEntry ? pEntry->getNumber(exports::textOf(element)) : std::nullopt;
    if (!found)
        return kInvalidParameter;
    *value = *found;
    return 0;
}

int32_t vnkReadParameterAsJSON(char** schema, const char* parameter, char** json) {
    VNK_STATE_OR_RETURN(pState);
    if (!json)
        return kUnallocatedUserData;
    exports::freeText(json);
    if (!schema)
        return kInvalidParameter;
    const utils::VariantRecord cSchema = exports::parseText(schema);
    const utils::VariantRecord* pEntry = findSchemaEntry(cSchema, parameter);
    if (!pEntry)
        return kInvalidParameter;
    *json = exports::heapText(pEntry->toPrettyText());
    return 0;
}

int32_t vnkGetParameterInfo(uint32_t handle, char** schema) {
    VNK_STATE_OR_RETURN(pState);
    if (!schema)
        return kUnallocatedUserData;
    exports::freeText(schema);
    const ReferencePtr<Entity> cEntity = pState->findEntity(handle);
    if (!cEntity)
        return kBadEntityHandle;
    *schema = exports::heapText(cEntity->getParameterInfo().toPrettyText());
    return 0;
}

int32_t vnkGetParameters(uint32_t handle, char** parameters) {
    VNK_STATE_OR_RETURN(pState);
    if (!parameters)
        return kUnallocatedUserData;
    exports::freeText(parameters);
    const ReferencePtr<Entity> cEntity = pState->findEntity(handle);
    const utils::VariantRecord cRecord = cEntity ? cEntity->getParameters() : utils::VariantRecord();
    if (cRecord.empty())
        return kBadEntityHandle;
    *parameters = exports::heapText(cRecord.toPrettyText());
    return 0;
}

int32_t vnkSetParameters(uint32_t handle, char** parameters) {
    VNK_STATE_OR_RETURN(pState);
    if (!parameters)
        return kUnallocatedUserData;
    utils::VariantRecord cRecord = exports::parseText(parameters);
    exports::freeText(parameters);   // consumed, also on failure
    return setEntityParameters(*pState, handle, std::move(cRecord));
}

}  // extern "C"
