#include "foundations/runtimeerrors.h"
#include "receivers/commandchannel.h"

namespace {

// The code of every line of the ladder, also of those that tell of a success.
constexpr int32_t kLadder = -2005;

}  // namespace

bool CommandChannel::recoverAccess() {
    if (!protocol())
        return false;
    if (acquireAccess())
        return verifyInBLOCKMode();
    if (isStopping())
        return false;

    utils::reportError(kLadder, "Raw device access failure. Trying :SYSTEM:ABORT");
    send(":SYSTEM:ABORT");
    bool bAccess = acquireAccess();
    if (!bAccess && !isStopping()) {
        utils::reportError(kLadder, ":SYSTEM:ABORT retry failed. Trying *RST");
        send("*RST");
        bAccess = acquireAccess();
    }
    if (!bAccess && !isStopping()) {
        utils::reportError(kLadder, "*RST retry failed. close/reopen transport");
        bAccess = reopenTransport();
    }
    if (!bAccess)
        return false;
    utils::reportError(kLadder, "Device access restored");
    return verifyInBLOCKMode();
}

bool CommandChannel::reopenTransport() {
    const ReferencePtr<SCPIProtocol> cProtocol = protocol();
    if (cProtocol) {
        // A link that the unit has reset cannot be shut down in order; it is opened anew all the same.
        cProtocol->closeTransport();
        if (cProtocol->openTransport()) {
            utils::reportError(kLadder, "Transport close/reopen succeeded");
            if (acquireAccess())
                return true;
        }
    }
    utils::reportError(kLadder, "Transport close/reopen failed.");
    return false;
}
