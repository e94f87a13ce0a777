#include "receivers/devicetype.h"

#include <algorithm>
#include <vector>

namespace {

// Made by the first type and freed by the last; written at start-up and shut-down only.
constinit std::vector<DeviceType*>* gpTypes = nullptr;

}  // namespace

DeviceType::DeviceType(std::string name) : mcName(std::move(name)) {
    if (!gpTypes)
        gpTypes = new std::vector<DeviceType*>;
    if (std::find(gpTypes->begin(), gpTypes->end(), this) == gpTypes->end())
        gpTypes->push_back(this);
}

DeviceType::~DeviceType() {
    if (!gpTypes)
        return;
    std::erase(*gpTypes, this);
    if (gpTypes->empty()) {
        delete gpTypes;
        gpTypes = nullptr;
    }
}

ReferencePtr<Device> DeviceType::search(const std::string& model, const std::string& connectionType,
                                        const std::string& address) {
    if (!gpTypes)
        return {};
    const auto it = std::find_if(gpTypes->begin(), gpTypes->end(),
                                 [&](const DeviceType* pType) { return pType->accepts(model); });
    return it == gpTypes->end() ? ReferencePtr<Device>() : (*it)->create(connectionType, address);
}

std::list<std::string> DeviceType::names() {
    std::list<std::string> lNames;
    if (gpTypes)
        for (const DeviceType* pType : *gpTypes)
            lNames.push_back(pType->getName());
    return lNames;
}

ReferencePtr<Device> openOrForget(ReferencePtr<Device> cDevice) {
    if (cDevice && !cDevice->isOpen()) {
        Device::forget(cDevice.get());
        cDevice.release();
    }
    return cDevice;
}
