#pragma once

#include <cstdint>
#include <string>

#include "simulator/unit.h"

namespace vnksim {

/// What differs between the models.
struct Model {
    const char* name;
    double highestHz;  ///< of the first family; the options tell that of the second
    bool gainStages;
    bool variableAttenuator;  ///< 0 to 30 dB in steps of 1; otherwise 0, 10, 20, 30
    bool gnss;
    Family family = Family::first;
};

inline constexpr double kLowestHz = 9000;
inline constexpr uint32_t kLeastDecimation = 4, kMostDecimation = 1024;

/// Null when there is no such model.
const Model* findModel(const std::string& name);

}  // namespace vnksim
