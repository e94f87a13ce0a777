#include "dsp/lowpasstaps.h"

#include <algorithm>

// The method: the best fit in the sense of Chebyshev (Parks and McClellan's exchange, done by
// tests/data/make_filters.py) of
//
//     H(f) = h(18) + 2 sum h(18 - k) cos(2 pi k f),    k = 1 ... 18
//
// to 1 from 0 to 0.1 of the rate and to 0 from 0.125 to 0.5, where an error in the stop band counts 0.655 of
// one in the pass band. The error is then the same 0.0616 at each of its 20 extremes: the pass band lies
// within 0.55 dB, with DC on its lower edge, and the stop band 20 dB below DC.

namespace {

/// Up to the centre; the other half mirrors it.
constexpr std::array<double, LowPassTaps::kTaps / 2 + 1> kHalf = {
    0.03205954217777082,  -0.02800850110359294, -0.02517154624238901, -0.02112913302354333,
    -0.01177988990970978, 0.002478081868391798, 0.01694997286527121,  0.02479364942281016,
    0.02050112534975946,  0.003298400516568341, -0.02115619414560763, -0.04183883471316208,
    -0.04611866468223891, -0.0248944166421651,  0.02297567878221879,  0.08894009158148579,
    0.156717670813486,    0.2074625131241683,   0.2262619651421757};

}  // namespace

const std::array<double, LowPassTaps::kTaps>& LowPassTaps::table() {
    static const auto cTable = [] {
        std::array<double, kTaps> cTaps{};
        std::copy(kHalf.begin(), kHalf.end(), cTaps.begin());
        std::copy(kHalf.begin(), kHalf.end(), cTaps.rbegin());
        return cTaps;
    }();
    return cTable;
}
