#include "quillon/referencelevel.h"
#include "quillon/sweepplan.h"
#include "receivers/commandtexts.h"

namespace Quillon {

std::string sweepReferenceCommand(float fReferenceLevel) {
    return referenceCommand(referenceSetting(heldReferenceLevel(fReferenceLevel)));
}

std::string sweepListCommands(const SweepPlan& cPlan, bool bEndless) {
    std::string batch;
    beginList(batch, bEndless ? 0 : 1);
    appendSteps(batch, cPlan);
    return batch;
}

}  // namespace Quillon
