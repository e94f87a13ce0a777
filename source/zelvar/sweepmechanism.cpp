#include "zelvar/sweepmechanism.h"

#include <cmath>

#include "foundations/runtimeerrors.h"
#include "foundations/text.h"
#include "zelvar/sweepplan.h"

using utils::formatText;
using utils::reportTrace;
using namespace VITA49Zelvar;

namespace {

constexpr float kNoReference = -1000.0f;
constexpr uint64_t kHighestDirectBlockHz = 50000000;
constexpr uint32_t kSampleRateHz = 125000000;

constexpr SweepEngineWords kWords = {
    "Bad setup of _SweepMechanism",
    "Invalid I14 packet received (stream ID incorrect)",
    "VITA49Zelvar::IFDataI14 contains no data",
    "VITA49Zelvar::IFDataI14 data size incorrect",
    "valid VITA49Zelvar::IFDataI14 received",
};

}  // namespace

// One sweep.

ZelvarSweepConfiguration::ZelvarSweepConfiguration(const SweepRequest& cRequest, const SweepPlan& cPlan,
                                                   ReferencePtr<_IFBWFlatten> cFlatten)
    : mcTransform(cRequest.mcWindowName, cPlan.muFFTSize),
      mcFlatten(cRequest.mbFlatten ? std::move(cFlatten) : nullptr) {
    mcRequest = cRequest;
    mcPlan = cPlan;
    muSampleRateHz = kSampleRateHz;
}

std::optional<uint32_t> ZelvarSweepConfiguration::placeOf(uint64_t uFrequencyHz) const {
    if (mcPlan.mbHasDDBlock && uFrequencyHz < kHighestDirectBlockHz)
        return 0;
    if (uFrequencyHz < mcPlan.muCentreFirst || mcPlan.muCentreStep == 0)
        return {};
    const uint64_t muSpectrumBlock =
        (uFrequencyHz - mcPlan.muCentreFirst) / mcPlan.muCentreStep + (mcPlan.mbHasDDBlock ? 1 : 0);
    VNK_ASSERT_TEXT(muSpectrumBlock < mcPlan.muTotalExpectedBlocks, "muSpectrumBlock < muTotalExpectedBlocks");
    return static_cast<uint32_t>(muSpectrumBlock);
}

uint32_t ZelvarSweepConfiguration::binsAt(uint32_t uPlace) const {
    return keptBins(mcPlan, uPlace).count();
}

bool ZelvarSweepConfiguration::reconstruct(const SweepBlock& cBlock, uint32_t uPlace, float fUserCaldB,
                                           float* pOutput) {
    FloatArray& cMagnitudes = mcTransform.magnitudes(cBlock);
    const uint32_t uHalf = cMagnitudes.getActive();
    std::optional<BinRange> cBins = keptBins(mcPlan, uPlace);
    const uint32_t uKept = cBins->count();
    if (cBlock.mbInverted)
        cBins = mirroredBins(mcPlan, *cBins, uHalf);
    if (cBins && cBins->count() != uKept)
        cBins.reset();
    const float fConstant = cBlock.mfReferenceLevel + 15.7678f -
                            10.0f * std::log10(mcPlan.mfNoiseBandwidth) - 3.0f + fUserCaldB;
    return writeBins(cBlock, cMagnitudes, cBins, mcFlatten.get(), fConstant, pOutput);
}

// The engine.

_SweepMechanism::_SweepMechanism(ReferencePtr<EngineContext> cContext, ReferencePtr<SpectrumFrameSink> cStream,
                                 const ModelRecord& cModel, const StreamRanges& cRanges,
                                 DataProtocolSource<VITA49ZelvarProtocol> protocol,
                                 ReferencePtr<_IFBWFlatten> cFlatten)
    : PacketSweepEngine(std::move(cContext), std::move(cStream), cRanges, kWords, std::move(protocol),
                        std::move(cFlatten)),
      mcModel(cModel) {}

ReferencePtr<SweepConfiguration> _SweepMechanism::configure(const SweepRequest& cRequest,
                                                            std::string& message) {
    const std::optional<SweepPlan> cPlan = planSweep(cRequest, ranges().mcSweepHz.mfMaximum, message);
    if (!cPlan)
        return nullptr;
    return ReferencePtr<SweepConfiguration>(new ZelvarSweepConfiguration(cRequest, *cPlan, mcFlatten));
}

void _SweepMechanism::sendList(const SweepConfiguration& cConfiguration, bool bEndless) {
    const float fReference = cConfiguration.mcRequest.mfRefdBm;
    channel().sendBatch(sweepListCommands(cConfiguration.mcPlan, fReference, bEndless, mcModel));
    const std::string gain = sweepGainCommand(fReference, mcModel);
    if (!gain.empty())
        channel().send(gain);
}

void _SweepMechanism::handleReceiverContext(ReferencePtr<ReceiverContext> cPacket) {
    if (cPacket->muRFFrequency != kAbsent64)
        gatherer().setFrequency(
            static_cast<uint64_t>(std::round(static_cast<double>(cPacket->muRFFrequency) * 0x1p-20)));
    reportTrace("Sweep RxContext");
}

void _SweepMechanism::handleDigitizerContext(ReferencePtr<DigitizerContext> cPacket) {
    if (cPacket->mfReferenceLevel != kNoReference)
        gatherer().setReferenceLevel(cPacket->mfReferenceLevel);
    reportTrace("Sweep DigitizerContext");
}

void _SweepMechanism::handleExtensionContext(ReferencePtr<ExtensionContext> cPacket) {
    noteExtension(*cPacket);
}

void _SweepMechanism::handleIFDataI14(ReferencePtr<IFDataI14> cPacket) {
    if (!cPacket) {
        reportTrace("interpretI14 called with cPacket==nullptr");
        return;
    }
    const uint32_t uEpoch = gatherer().epoch();
    if (!isDataValid()) {
        reportTrace(kWords.mpInvalidData);
        return;
    }
    const bool bInverted = cPacket->trailerHas(kInversionEnable, kInversion);
    const ReferencePtr<FloatArray> cSamples = cPacket->sampleCount() ? cPacket->getSamples() : nullptr;
    takeSamples({cSamples, cPacket->timestampNs(), cPacket->sequenceNumber(), bInverted, uEpoch});
}
