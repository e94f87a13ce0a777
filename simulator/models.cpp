#include "simulator/models.h"

#include <stdexcept>

namespace vnksim {
namespace {

// The highest frequencies are those of 32-bit floats, in which host programs compute.
constexpr double k27GHz = 27000000512.0, k18GHz = 17999998976.0, k8GHz = 8e9;

constexpr Model kModels[] = {
    {"ZV350-C", k27GHz, true, true, true},
    {"ZV350-B", k18GHz, true, true, true},
    {"ZV350-A", k8GHz, false, false, true},
    {"ZV300-C", k27GHz, true, true, true},
    {"ZV300-B", k18GHz, true, true, true},
    {"ZV300-A", k8GHz, false, false, true},
    {"ZV150-C", k27GHz, true, true, false},
    {"ZV150-B", k18GHz, true, true, false},
    {"ZV150-A", k8GHz, false, false, false},
    {"ZV100-C", k27GHz, true, true, false},
    {"ZV100-B", k18GHz, true, true, false},
    {"ZV100-AP", k8GHz, false, true, false},
    {"ZV100-A", k8GHz, false, false, false},
    {"Quillon", 0, false, false, false, Family::second},
    {"Quillon-400", 0, false, false, false, Family::second},
    {"Dravik", 0, false, false, false, Family::second},
    {"unknown", 0, false, false, false, Family::second},
};

}  // namespace

const Model* findModel(const std::string& name) {
    for (const Model& model : kModels) {
        if (name == model.name) {
            return &model;
        }
    }
    return nullptr;
}

std::vector<std::string> modelNames() {
    std::vector<std::string> names;
    for (const Model& model : kModels) {
        names.emplace_back(model.name);
    }
    return names;
}

std::vector<std::string> modelNames(Family family) {
    std::vector<std::string> names;
    for (const Model& model : kModels) {
        if (model.family == family) {
            names.emplace_back(model.name);
        }
    }
    return names;
}

Family familyOf(const std::string& model) {
    const Model* found = findModel(model);
    if (found == nullptr) {
        throw std::invalid_argument("unknown model '" + model + "'");
    }
    return found->family;
}

double referenceLevelDbm(const std::string& model, bool gain1, bool gain2, unsigned attenuation) {
    const Model* row = findModel(model);
    const bool stages = row != nullptr && row->gainStages;
    const double lost = stages ? (gain1 ? 0.0 : 10.0) + (gain2 ? 0.0 : 10.0) : 0.0;
    return -20.0 + lost + static_cast<double>(attenuation);
}

}  // namespace vnksim
