#include "processors/processortype.h"

#include <algorithm>
#include <vector>

namespace {

// Made by the first type and freed by the last; written at start-up and shut-down only.
constinit std::vector<ProcessorType*>* gpTypes = nullptr;

}  // namespace

ProcessorType::ProcessorType(std::string name) : mcName(std::move(name)) {
    if (!gpTypes)
        gpTypes = new std::vector<ProcessorType*>;
    gpTypes->push_back(this);
}

ProcessorType::~ProcessorType() {
    std::erase(*gpTypes, this);
    if (!gpTypes->empty())
        return;
    delete gpTypes;
    gpTypes = nullptr;
}

ReferencePtr<Processor> ProcessorType::find(const std::string& name) {
    if (!gpTypes)
        return {};
    const auto it = std::find_if(gpTypes->begin(), gpTypes->end(),
                                 [&](const ProcessorType* pType) { return pType->mcName == name; });
    return it == gpTypes->end() ? ReferencePtr<Processor>() : (*it)->create();
}

std::list<std::string> ProcessorType::names() {
    std::list<std::string> lNames;
    if (gpTypes)
        for (const ProcessorType* pType : *gpTypes)
            lNames.push_back(pType->mcName);
    return lNames;
}
