#include "simulator/family.h"

namespace vnksim {
namespace {

// Flat to 0.43 of the rate, nothing left at 0.5.
constexpr FamilyTraits kFirst{
    .clockHz = 125000000,
    .bits = 14,
    .headroomdB = 12.7678,
    .ifHz = 35e6,
    .bandHz = 62.5e6,
    .realFullRate = true,
    .leveledByGains = true,
    .oneContext = false,
    .powersOfTwo = false,
    .mostSamples = 65504,
    .halfWidth = 0.465,
    .transition = 0.07,
    .data = kinds::kDataIQ14,
    .realData = kinds::kDataI14,
    .extensionContext = kinds::kExtensionContext,
};

// Flat to 0.45 of the rate, nothing left at 0.5.
constexpr FamilyTraits kSecond{
    .clockHz = 122880000,
    .bits = 16,
    .headroomdB = 0,
    .ifHz = 61.44e6,
    .bandHz = 122.88e6,
    .realFullRate = false,
    .leveledByGains = false,
    .oneContext = true,
    .powersOfTwo = true,
    .mostSamples = 32768,
    .halfWidth = 0.475,
    .transition = 0.05,
    .data = kinds::kIfData,
    .realData = kinds::kIfData,
    .extensionContext = kinds::kIfExtensionContext,
};

}  // namespace

const FamilyTraits& traitsOf(Family family) {
    return family == Family::first ? kFirst : kSecond;
}

double sampledBandHz(Family family) {
    return traitsOf(family).bandHz;
}

}  // namespace vnksim
