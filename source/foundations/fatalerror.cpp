#include "foundations/fatalerror.h"

#include "foundations/text.h"

namespace utils {

void assertionFailed(const char* condition, const char* file, int line) {
    throw FatalError(formatText("ASSERT failed <%s> %s::L%d", condition, file, line));
}

}  // namespace utils
