#pragma once

#include <memory>
#include <vector>

#include "simulator/synthesizer.h"

namespace vnksim {

/// What of an emitter can be seen in a view; nothing when it is out of the band.
std::vector<std::unique_ptr<Voice>> makeVoices(const Emitter& emitter, const View& view);

/// One period of a frequency-modulated station, at a rate that holds its spectrum.
std::shared_ptr<const Waveform> fmWaveform(const FmStation& station);

}  // namespace vnksim
