#include "receivers/device.h"

#include <algorithm>
#include <array>

namespace {

/// The devices hold a counted reference each. Plain pointers, so that a constructor that throws can take its
/// object out without touching a count that nobody reads any more.
struct DeviceList {
    utils::NamedLock smcDevicesLock{"Device::smcDevicesLock"};
    std::list<const Device*> mlDevices GUARDED_BY(smcDevicesLock);

    bool take(const Device* pDevice) {
        const utils::ScopedLock cLock(smcDevicesLock);
        const auto it = std::find(mlDevices.begin(), mlDevices.end(), pDevice);
        if (it == mlDevices.end())
            return false;
        mlDevices.erase(it);
        return true;
    }
};

/// Made at first use, never destroyed: devices may end after the static objects.
DeviceList& deviceList() {
    static DeviceList* const pList = new DeviceList;
    return *pList;
}

}  // namespace

Device::Device(std::string connectionType, std::string address)
    : mcConnectionType(std::move(connectionType)), mcAddress(std::move(address)) {
    DeviceList& cList = deviceList();
    const utils::ScopedLock cLock(cList.smcDevicesLock);
    if (std::find(cList.mlDevices.begin(), cList.mlDevices.end(), this) != cList.mlDevices.end())
        return;
    cList.mlDevices.push_back(this);
    addReference();
}

Device::~Device() {
    // Still listed only when the constructor of a derived class has thrown.
    deviceList().take(this);
}

void Device::forget(const Device* pDevice) {
    // Outside the lock: it may be the last reference.
    if (deviceList().take(pDevice))
        pDevice->releaseReference();
}

size_t Device::listedCount() {
    DeviceList& cList = deviceList();
    const utils::ScopedLock cLock(cList.smcDevicesLock);
    return cList.mlDevices.size();
}

utils::VariantRecord Device::describe() const {
    utils::VariantRecord cRecord;
    cRecord.set("type", mcType);
    cRecord.set("version", mcVersion);
    cRecord.set("serial", mcSerial);
    cRecord.set("firmware", mcFirmware);
    cRecord.set("connection", mcConnectionType + ":" + mcAddress);
    return cRecord;
}

void Device::applyIdentity(utils::VariantRecord& cRecord) {
    utils::VariantRecord cWorking;
    const utils::Variant* pNested = cRecord.find("device");
    if (pNested && pNested->getType() == utils::Variant::kRecord && pNested->getRecord()) {
        cWorking = *pNested->getRecord();
        cRecord.erase("device");
    } else {
        cWorking = cRecord;
    }
    const std::array<std::pair<const char*, std::string*>, 4> cFields = {
        {{"type", &mcType}, {"version", &mcVersion}, {"serial", &mcSerial}, {"firmware", &mcFirmware}}};
    for (const auto& [pKey, pField] : cFields)
        if (cWorking.takeText(pKey, *pField, false))
            cRecord.erase(pKey);
}
