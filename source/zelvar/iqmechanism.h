#pragma once

#include "flows/iqframesink.h"
#include "links/zelvar-vita49protocol.h"
#include "receivers/engine.h"
#include "zelvar/modeltable.h"

class EngineContext;

/// What the packets of the first family are handed to; implemented by its engines.
using ZelvarPacketListener = VITA49ZelvarProtocol::Listener;

/// Makes the engine for an IQ stream. `dataProtocol` gives the present data protocol, null while there is none.
ReferencePtr<IQEngine> makeZelvarIQEngine(ReferencePtr<EngineContext> cContext, ReferencePtr<IQFrameSink> cStream,
                                          const ModelRecord& cModel, const struct StreamRanges& cRanges,
                                          std::function<ReferencePtr<VITA49ZelvarProtocol>()> dataProtocol);
/// The packet side of an engine made above.
ZelvarPacketListener* packetListener(IQEngine& cEngine);
