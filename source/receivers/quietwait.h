#pragma once

#include <functional>

#include "foundations/clock.h"
#include "foundations/referencecountedobject.h"

/// Waits after a stop until no old packets are left in the pipe: five quiet passes of 20 ms in a row, at most
/// 200 passes. Packets are still parsed and dispatched meanwhile.
///
/// In the middle of a packet quiet means that sender or reader have been held up: its rest would be taken for the
/// start of the next one, so it is waited for, up to fifty passes.
template <typename DataProtocol>
void drainVRTData(DataProtocol& cProtocol) {
    const auto isOver = [&](int iQuiet) { return iQuiet >= 50 || (iQuiet >= 5 && !cProtocol.isInsidePacket()); };
    cProtocol.setDrain(true);
    for (int iPass = 0, iQuiet = 0; iPass < 200 && !isOver(iQuiet); ++iPass) {
        utils::sleepMs(20);
        iQuiet = cProtocol.takeActivity() ? 0 : iQuiet + 1;
    }
    cProtocol.clearBuffer();
    cProtocol.setDrain(false);
}

/// The same for the protocol that `present` gives; nothing without one.
template <typename DataProtocol>
void drainInputOf(const std::function<ReferencePtr<DataProtocol>()>& present) {
    if (const ReferencePtr<DataProtocol> cProtocol = present ? present() : nullptr)
        drainVRTData(*cProtocol);
}
