// Processors: making, attaching, and the streams of what they make.
#include "api/processors.h"

#include <system_error>

#include "api/exports.h"
#include "libvnk.h"
#include "processors/processortype.h"
#include "streams/basebandstreamhandler.h"
#include "streams/iqstreamhandler.h"
#include "streams/spectrumstreamhandler.h"

namespace {

constexpr int32_t kBadStreamHandle = -38;
constexpr int32_t kNoTypeName = -72;
constexpr int32_t kBadProcessorHandle = -73;
constexpr int32_t kUnknownType = -74;
constexpr int32_t kNotAttached = -75;
constexpr int32_t kNotDetached = -76;
constexpr int32_t kNoOutputStream = -82;
constexpr int32_t kOutputRefused = -83;

}  // namespace

namespace exports {

ReferencePtr<FrameSink> makeOutputStream(OutputKind eKind) {
    ReferencePtr<FrameSink> cNewStreamHandler;
    if (eKind == OutputKind::kIQ)
        cNewStreamHandler = makeReference<IQStreamHandler>(utils::VariantRecord());
    else if (eKind == OutputKind::kSpectrum)
        cNewStreamHandler = makeReference<SpectrumStreamHandler>(utils::VariantRecord());
    else if (eKind == OutputKind::kBaseband)
        cNewStreamHandler = makeReference<BasebandStreamHandler>(utils::VariantRecord());
    VNK_ASSERT(cNewStreamHandler != nullptr);
    return cNewStreamHandler;
}

int32_t openOutputStream(APIState& cState, const ReferencePtr<Processor>& cProcessor,
                         const ReferencePtr<FrameSink>& cStream, uint32_t& uHandle) {
    auto* const pHandler = dynamic_cast<StreamHandler*>(cStream.get());
    if (!pHandler)
        return kNoOutputStream;
    ErrorList lErrors;   // dropped: the status alone tells
    if (!pHandler->attachToSource(cProcessor, lErrors))
        return kOutputRefused;
    try {
        uHandle = cState.addStream(cStream);
    } catch (...) {
        pHandler->close();   // no memory for the entry: nobody could close it
        throw;
    }
    return 0;
}

}  // namespace exports

extern "C" {

int32_t vnkGetProcessorTypes(char** types) {
    if (!types)
        return kUnallocatedUserData;
    exports::freeText(types);
    utils::VariantRecord cRecord;
    cRecord.set("processortypes", ProcessorType::names());
    *types = exports::heapText(cRecord.toCompactText());
    return 0;
}

int32_t vnkCreateProcessor(uint32_t* processor, const char* typeName) {
    VNK_STATE_OR_RETURN(pState);
    if (!processor)
        return kUnallocatedUserData;
    const std::string name = exports::textOf(typeName);
    if (name.empty())
        return kNoTypeName;
    const ReferencePtr<Processor> cProcessor = ProcessorType::find(name);
    if (!cProcessor)
        return kUnknownType;
    *processor = pState->addProcessor(cProcessor);
    return 0;
}

int32_t vnkAttachProcessorToStream(uint32_t processor, uint32_t stream) {
    VNK_STATE_OR_RETURN(pState);
    const ReferencePtr<Processor> cProcessor = pState->findProcessor(processor);
    if (!cProcessor)
        return kBadProcessorHandle;
    const ReferencePtr<FrameSink> cStream = pState->findStream(stream);
    if (!cStream)
        return kBadStreamHandle;
    auto* const pStreamHandler = dynamic_cast<StreamHandler*>(cStream.get());
    VNK_ASSERT(pStreamHandler != nullptr);
    try {
        ErrorList lErrors;   // dropped: the status alone tells
        return cProcessor->takeInputFrom(*pStreamHandler, lErrors) ? 0 : kNotAttached;
    } catch (const std::system_error&) {
        return kNotAttached;   // no thread to be had
    }
}

int32_t vnkDetachProcessor(uint32_t processor) {
    VNK_STATE_OR_RETURN(pState);
    const ReferencePtr<Processor> cProcessor = pState->findProcessor(processor);
    if (!cProcessor)
        return kBadProcessorHandle;
    return cProcessor->leaveInput() ? 0 : kNotDetached;
}

int32_t vnkGetProcessorOutputStream(uint32_t processor, uint32_t* stream) {
    VNK_STATE_OR_RETURN(pState);
    const ReferencePtr<Processor> cProcessor = pState->findProcessor(processor);
    if (!cProcessor)
        return kBadProcessorHandle;
    if (!stream)
        return kUnallocatedUserData;
    return exports::openOutputStream(*pState, cProcessor, exports::makeOutputStream(cProcessor->outputKind()),
                                     *stream);
}

}  // extern "C"
