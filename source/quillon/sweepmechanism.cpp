#include "quillon/sweepmechanism.h"

#include "foundations/runtimeerrors.h"
#include "foundations/text.h"
#include "quillon/sweepconfiguration.h"
#include "quillon/sweepplan.h"
#include "quillon/tuning.h"

using utils::formatText;
using utils::reportTrace;

namespace Quillon {

constexpr SweepEngineWords _SweepMechanism::kWords = {
    .mpBadSetup = "Bad setup of _SweepMechanism",
    .mpInvalidData = "Invalid IFData packet received (mbSweepDataValid == false)",
    .mpNoData = "VITA49::IFData contains no data",
    .mpWrongSize = "VITA49::IFData data size incorrect",
    .mpValidData = "VITA49::IFData::Ptr received",
    .mbFollowsEdgesOnly = true,
    .mbCatchesUp = true,
};

ReferencePtr<SweepConfiguration> _SweepMechanism::configure(const SweepRequest& cRequest, std::string& message) {
    const std::optional<SweepPlan> cPlan = planSweep(cRequest, ranges().mcSweepHz.mfMaximum, message);
    return cPlan ? ReferencePtr<SweepConfiguration>(new QuillonSweepConfiguration(cRequest, *cPlan, mcFlatten))
                 : nullptr;
}

void _SweepMechanism::sendList(const SweepConfiguration& cConfiguration, bool bEndless) {
    channel().send(sweepReferenceCommand(cConfiguration.mcRequest.mfRefdBm));
    channel().sendBatch(sweepListCommands(cConfiguration.mcPlan, bEndless));
}

void _SweepMechanism::handleIFContext(ReferencePtr<VITA49::IFContext> cPacket) {
    const Tuning cTuning = readTuning(*cPacket);
    if (cTuning.mcFrequencyHz)
        gatherer().setFrequency(*cTuning.mcFrequencyHz);
    if (cTuning.mcReferenceLevel)
        gatherer().setReferenceLevel(*cTuning.mcReferenceLevel);
}

void _SweepMechanism::handleExtensionContext(ReferencePtr<VITA49::ExtensionContext> cPacket) {
    noteExtension(*cPacket);
}

// Samples whose spectrum is inverted are conjugated as they are decoded: no block is an inverted one.
void _SweepMechanism::handleIFData(ReferencePtr<VITA49::IFData> cPacket) {
    const uint32_t uEpoch = gatherer().epoch();
    if (!isDataValid()) {
        reportTrace(kWords.mpInvalidData);
        return;
    }
    if (!gatherer().knowsFrequency()) {
        reportTrace("Out-of-context IFData packet received (muRxFCentreHz == kInvalidU64)");
        return;
    }
    takeSamples({cPacket->sampleCount() ? cPacket->getItems() : nullptr, cPacket->timestampNs(),
                 cPacket->sequenceNumber(), false, uEpoch});
}

void _SweepMechanism::noteOpened(uint64_t uFrequencyHz) {
    reportTrace(formatText("muConvertFCentreHz set to %.4e", static_cast<double>(uFrequencyHz)));
}

void _SweepMechanism::noteTaken(const BlockGatherer::Result& cResult) {
    reportTrace(formatText("IQ is interpreted as block %u/%u", cResult.muTaken, cResult.muPackets));
    if (cResult.mcBlock)
        reportTrace(formatText("IQ block at %.4e is complete - added to spectrum frame assembly list",
                               static_cast<double>(cResult.muFrequencyHz)));
}

}  // namespace Quillon
