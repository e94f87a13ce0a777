// From a network address to an open device.
#include "api/exports.h"
#include "foundations/runtimeerrors.h"
#include "foundations/text.h"
#include "foundations/usererrors.h"
#include "libvnk.h"
#include "links/discovery.h"
#include "receivers/devicetype.h"
#include "receivers/probe.h"

namespace {

constexpr int32_t kBadDeviceHandle = -35;

void searchNetwork(APIState& cState) {
    std::vector<std::string> lMessages;
    const std::vector<DiscoveryEntry> lFound = discoverUnits(lMessages);
    const std::string messages = utils::join(lMessages, ", ");
    if (!messages.empty())
        utils::reportError(-5001, messages);
    for (const DiscoveryEntry& cEntry : lFound)
        cState.addKnownAddress({cEntry.mcAddress, cEntry.mcIdentity});
}

utils::VariantRecord recordFromHint(const KnownAddress& cKnown) {
    utils::VariantRecord cRecord;
    const std::string_view hint = cKnown.mcHint;
    cRecord.set("type", utils::beforeFirst(hint, ":"));
    cRecord.set("serial", utils::afterFirst(utils::beforeLast(hint, ":"), ":"));
    cRecord.set("firmware", utils::afterLast(hint, ":"));
    cRecord.set("connection", "TCP/IP");
    cRecord.set("address", cKnown.mcAddress);
    return cRecord;
}

utils::VariantRecord describeAddress(APIState& cState, const KnownAddress& cKnown) {
    if (const ReferencePtr<Device> cOpen = cState.findOpenDevice(cKnown.mcAddress).second)
        return cOpen->getParameterInfo();
    if (!cKnown.mcHint.empty())
        return recordFromHint(cKnown);
    utils::VariantRecord cRecord = examineDevice(cKnown.mcAddress);
    if (cRecord.find("type"))
        return cRecord;
    utils::UserErrors::instance().pushStatus(-6);
    return {};
}

ReferencePtr<Device> openAddress(const std::string& address) {
    const Connection cConnection = splitConnection(address);
    const utils::VariantRecord cRecord = examineDevice(address);
    const std::optional<std::string> type = cRecord.getText("type");
    if (!type)
        return nullptr;
    ReferencePtr<Device> cDevice = DeviceType::search(*type, cConnection.mcType, cConnection.mcAddress);
    return cDevice && cDevice->isOpen() ? cDevice : nullptr;
}

uint32_t openIndex(APIState& cState, uint32_t uIndex) {
    KnownAddress cKnown;
    if (!cState.getKnownAddress(uIndex, cKnown))
        return kInvalidHandle;
    const uint32_t uOpen = cState.findOpenDevice(cKnown.mcAddress).first;
    if (uOpen != kInvalidHandle)
        return uOpen;
    const ReferencePtr<Device> cDevice = openAddress(cKnown.mcAddress);
    if (!cDevice)
        return kInvalidHandle;
    try {
        return cState.addDevice(cDevice);
    } catch (...) {
        Device::forget(cDevice.get());   // no memory for the entry: nobody could close it
        throw;
    }
}

}  // namespace

extern "C" {

int32_t vnkAddDeviceAddress(const char* address) {
    VNK_STATE_OR_RETURN(pState);
    return pState->addKnownAddress({exports::textOf(address), {}});
}

int32_t vnkEnumerateDevices(uint32_t* count, uint8_t searchNetworkFlag) {
    VNK_STATE_OR_RETURN(pState);
    if (searchNetworkFlag == 1)
        searchNetwork(*pState);
    const size_t uCount = pState->knownAddressCount();
    if (count)
        *count = static_cast<uint32_t>(uCount);
    return 0;
}

int32_t vnkExamineDevice(uint32_t index, char** description) {
    VNK_STATE_OR_RETURN(pState);
    if (!description)
        return kUnallocatedUserData;
    exports::freeText(description);
    KnownAddress cKnown;
    utils::VariantRecord cRecord;
    if (pState->getKnownAddress(index, cKnown))
        cRecord = describeAddress(*pState, cKnown);
    if (cRecord.empty())
        return -5;
    *description = exports::heapText(cRecord.toPrettyText());
    return 0;
}

int32_t vnkOpenDevice(uint32_t index, uint32_t* handle) {
    VNK_STATE_OR_RETURN(pState);
    if (!handle)
        return kUnallocatedUserData;
    *handle = kInvalidHandle;   // also where an exception passes
    *handle = openIndex(*pState, index);
    return *handle == kInvalidHandle ? -7 : 0;
}

int32_t vnkResetDeviceConnection(uint32_t handle) {
    VNK_STATE_OR_RETURN(pState);
    const ReferencePtr<Device> cDevice = pState->findDevice(handle);
    if (!cDevice)
        return kBadDeviceHandle;
    return cDevice->reopen() ? 0 : -45;
}

int32_t vnkClose(uint32_t* handle) {
    VNK_STATE_OR_RETURN(pState);
    return pState->close(handle);
}

int32_t vnkSendSCPI(uint32_t handle, const char* command) {
    VNK_STATE_OR_RETURN(pState);
    const ReferencePtr<Device> cDevice = pState->findDevice(handle);
    if (!cDevice)
        return kBadDeviceHandle;
    return cDevice->sendRawCommand(exports::textOf(command)) ? 0 : -36;
}

int32_t vnkQuerySCPI(uint32_t handle, const char* query, char** reply) {
    VNK_STATE_OR_RETURN(pState);
    const ReferencePtr<Device> cDevice = pState->findDevice(handle);
    if (!cDevice)
        return kBadDeviceHandle;
    std::string text;
    if (!cDevice->queryRaw(exports::textOf(query), text))
        return -37;
    // Overwrites: unlike the parameter exports, this one leaves the old text to its owner.
    if (reply)
        *reply = exports::heapText(text);
    return 0;
}

}  // extern "C"
