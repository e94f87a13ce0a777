#pragma once

#include "links/hislipprotocol.h"

/// Opens the stream's own connection to the unit of a session and ties it to the session. Null, and reported,
/// when that fails.
ReferencePtr<Transport> openDataChannel(HiSlipProtocol& cProtocol);
