#include "foundations/initializer.h"

#include <algorithm>
#include <ctime>
#include <mutex>
#include <random>

namespace utils {

namespace {

struct Registry {
    std::mutex mcMutex;
    std::vector<Initializer*> mcInitializers;
};

struct Generator {
    std::mutex mcMutex;
    std::mt19937 mcEngine;
};

// Made on first use and never destroyed: static objects of any file register and leave in any order.
Registry& registry() {
    static Registry* const pRegistry = new Registry;
    return *pRegistry;
}

Generator& generator() {
    static Generator* const pGenerator = new Generator;
    return *pGenerator;
}

std::vector<Initializer*> registered() {
    std::lock_guard<std::mutex> cGuard(registry().mcMutex);
    return registry().mcInitializers;
}

}  // namespace

Initializer::Initializer() {
    std::lock_guard<std::mutex> cGuard(registry().mcMutex);
    registry().mcInitializers.push_back(this);
}

Initializer::~Initializer() {
    std::lock_guard<std::mutex> cGuard(registry().mcMutex);
    auto& cList = registry().mcInitializers;
    cList.erase(std::remove(cList.begin(), cList.end(), this), cList.end());
}

void Initializer::initialiseAll() {
    for (Initializer* pInitializer : registered())
        pInitializer->initialise();
}

void Initializer::finaliseAll() {
    for (Initializer* pInitializer : registered())
        pInitializer->finalise();
}

bool _InitRandom::initialise() {
    std::lock_guard<std::mutex> cGuard(generator().mcMutex);
    generator().mcEngine.seed(static_cast<std::mt19937::result_type>(std::time(nullptr)));
    return true;
}

unsigned randomValue() {
    std::lock_guard<std::mutex> cGuard(generator().mcMutex);
    return static_cast<unsigned>(generator().mcEngine());
}

}  // namespace utils
