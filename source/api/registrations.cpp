// All that registers itself, in the order that the rest relies on, and the load and unload of the library.
//
// Nothing else at namespace scope in the library needs construction, so that the last object here finds
// everything in place, whatever order the linker puts the files in.
#include "api/apistate.h"
#include "foundations/initializer.h"
#include "links/tcpiptransport.h"
#include "processors/amdemodulator.h"
#include "processors/fmdemodulator.h"
#include "processors/iqtospectrum.h"
#include "processors/processortype.h"
#include "processors/spectrumcharacterization.h"
#include "quillon/devicetypes.h"
#include "zelvar/devicetypes.h"

namespace {

utils::SIGInitialize scSIGInitialize;
utils::_InitRandom scInitRandom;
_WinSockInitializer scSocketLayer;

utils::NamedLock scTransportsLock{"Transport::mcTransportsLock"};
TCPIPTransportType scTCPIP;

ZelvarHiSlipDeviceType scZelvarHiSlip;
ZelvarRawDeviceType scZelvarRaw;
QuillonHiSlipDeviceType scQuillonHiSlip;
QuillonRawDeviceType scQuillonRaw;
DravikHiSlipDeviceType scDravikHiSlip;
DravikRawDeviceType scDravikRaw;

ProcessorTypeOf<AMDemodulator> scAMDemodulator{"AMDemodulator"};
ProcessorTypeOf<FMDemodulator> scFMDemodulator{"FMDemodulator"};
ProcessorTypeOf<IQToSpectrum> scIQToSpectrum{"IQToSpectrum"};
ProcessorTypeOf<SpectrumCharacterizationProcessor> scSpectrumCharacterization{"SpectrumCharacterization"};

/// The interface is up from load to process exit; a dlclose runs nothing (the library is linked nodelete).
struct Load {
    Load() { APIState::initialise(); }
    ~Load() { APIState::shutdown(); }
} scLoad;

}  // namespace
