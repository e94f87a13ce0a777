#include "receivers/commandtexts.h"

#include <cmath>

#include "foundations/text.h"
#include "receivers/commandchannel.h"

using utils::formatText;

namespace {

unsigned long long wide(uint64_t uValue) {
    return uValue;
}

}  // namespace

void appendPacketSize(std::string& batch, uint32_t uSamplesPerPacket) {
    appendCommand(batch, formatText(":TRACe:SPPacket %d", static_cast<int>(uSamplesPerPacket)));
}

void appendDecimation(std::string& batch, uint32_t uDecimation) {
    appendCommand(batch, formatText(":SENSE:DEC %d", static_cast<int>(uDecimation)));
}

void appendCentre(std::string& batch, float fHz) {
    appendCommand(batch, formatText("FREQ:CENT %0.0f Hz", static_cast<double>(fHz)));
}

void beginList(std::string& batch, uint32_t uTimes) {
    appendCommand(batch, ":sweep:entry:delete all");
    appendCommand(batch, ":sweep:entry:new");
    appendCommand(batch, formatText(":sweep:list:iter %d", static_cast<int>(uTimes)));
}

void appendEntryCentre(std::string& batch, float fHz) {
    appendCommand(batch,
                  formatText(":sweep:entry:freq:cent %llu", wide(static_cast<uint64_t>(std::llround(fHz)))));
}

void appendEntryPackets(std::string& batch, uint32_t uSamplesPerPacket, uint32_t uPacketsPerBlock) {
    appendCommand(batch, formatText(":sweep:entry:spp %u", uSamplesPerPacket));
    appendCommand(batch, formatText(":sweep:entry:ppb %u", uPacketsPerBlock));
}

void appendEntryDecimation(std::string& batch, uint32_t uDecimation) {
    appendCommand(batch, formatText(":sweep:entry:dec %u", uDecimation));
}

void saveEntry(std::string& batch) {
    appendCommand(batch, ":sweep:entry:save");
}

void appendSteps(std::string& batch, const SweepPlan& cPlan) {
    appendCommand(batch, formatText(":sweep:entry:freq:step %llu", wide(cPlan.muCentreStep)));
    appendCommand(batch, formatText(":sweep:entry:freq:cent %llu, %llu", wide(cPlan.muCentreFirst),
                                    wide(cPlan.muCentreLast)));
    appendEntryPackets(batch, cPlan.muSamplesPerPacket, cPlan.muPacketsPerBlock);
    appendEntryDecimation(batch, 1);
    saveEntry(batch);
}
