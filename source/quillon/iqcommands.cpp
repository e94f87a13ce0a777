#include "quillon/iqplan.h"
#include "quillon/referencelevel.h"
#include "receivers/commandchannel.h"
#include "receivers/commandtexts.h"

namespace Quillon {

std::string continuousIQCommands(const IQPlan& cPlan) {
    std::string batch;
    appendPacketSize(batch, cPlan.muSamplesPerPacket);
    appendDecimation(batch, cPlan.muDecimation);
    appendCentre(batch, cPlan.mfTunedCentreHz);
    appendCommand(batch, referenceCommand(cPlan.miReferenceLevel));
    return batch;
}

std::string finiteIQCommands(const IQPlan& cPlan) {
    std::string batch;
    beginList(batch, 1);
    appendCommand(batch, referenceCommand(cPlan.miReferenceLevel));
    appendEntryCentre(batch, cPlan.mfTunedCentreHz);
    appendEntryPackets(batch, cPlan.muSamplesPerPacket, cPlan.muPacketsPerBlock);
    appendEntryDecimation(batch, cPlan.muDecimation);
    saveEntry(batch);
    return batch;
}

}  // namespace Quillon
