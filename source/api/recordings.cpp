// Recordings: writing, playing, converting.
#include "api/exports.h"
#include "foundations/runtimeerrors.h"
#include "libvnk.h"
#include "streams/basebandstreamhandler.h"
#include "streams/iqstreamhandler.h"
#include "streams/spectrumstreamhandler.h"
#include "streams/wavconversion.h"

namespace {

constexpr int32_t kInvalidStreamHandle = -17;
constexpr int32_t kFileNotOpen = -29;
constexpr int32_t kNotPlayed = -41;
constexpr int32_t kUnresolvedHandler = -87;

/// Whether a stream takes what a recording holds.
int32_t checkKind(const FrameSink* pStream, const std::string& dataType) {
    if (dynamic_cast<const IQStreamHandler*>(pStream))
        return dataType == "IQ" ? 0 : -30;
    if (dynamic_cast<const SpectrumStreamHandler*>(pStream))
        return dataType == "Spectrum" ? 0 : -31;
    if (dynamic_cast<const BasebandStreamHandler*>(pStream))
        return dataType == "Baseband" ? 0 : -79;
    utils::reportTrace("Unresolved stream handler type - should not be possible");
    return kUnresolvedHandler;
}

}  // namespace

extern "C" {

int32_t vnkSetStreamOutputFile(uint32_t stream, const char* path) {
    VNK_STATE_OR_RETURN(pState);
    const auto cStream = pState->findStream(stream);
    auto* pHandler = dynamic_cast<StreamHandler*>(cStream.get());
    return pHandler ? pHandler->setOutputFile(exports::textOf(path)) : kInvalidStreamHandle;
}

int32_t vnkAttachStreamToFile(uint32_t stream, const char* path) {
    VNK_STATE_OR_RETURN(pState);
    const auto cFile = makeReference<StreamInputFile>(exports::textOf(path));
    if (!cFile->isOpen())
        return kFileNotOpen;
    const auto cStream = pState->findStream(stream);
    if (const int32_t iRefusal = checkKind(cStream.get(), cFile->dataType()))
        return iRefusal;
    return dynamic_cast<StreamHandler&>(*cStream).playFile(cFile) ? 0 : kNotPlayed;
}

int32_t vnkConvertBasebandFileToWavFile(const char* recording, const char* wavPath) {
    VNK_STATE_OR_RETURN(pState);
    if (!recording || !wavPath)
        return kUnallocatedUserData;
    return convertBasebandFileToWavFile(recording, wavPath);
}

}  // extern "C"
