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
    if (openLinkAnew()) {
        utils::reportError(kLadder, "Transport close/reopen succeeded");
        if (acquireAccess())
            return true;
    }
    utils::reportError(kLadder, "Transport close/reopen failed.");
    return false;
}

// A link that the unit has reset cannot be shut down in order; it is opened anew all the same.
bool CommandChannel::openLinkAnew() {
    if (const ReferencePtr<HiSlipProtocol> cHiSLIP = mcHiSLIP.get()) {
        cHiSLIP->close();
        return cHiSLIP->reopen();
    }
    const ReferencePtr<SCPIProtocol> cProtocol = protocol();
    if (!cProtocol)
        return false;
    cProtocol->closeTransport();
    return cProtocol->openTransport();
}
