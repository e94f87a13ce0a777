#pragma once

namespace cli {

/// From here on Ctrl-C and a termination request are noted instead of ending the program; the second one
/// ends it all the same.
void catchInterrupts();
bool interrupted();

}  // namespace cli
