#include "zelvar/devicetypes.h"

#include "zelvar/modeltable.h"
#include "zelvar/zelvarreceiver.h"

bool ZelvarHiSlipDeviceType::accepts(const std::string&) const {
    return false;
}

ReferencePtr<Device> ZelvarHiSlipDeviceType::create(const std::string& connectionType,
                                                    const std::string& address) {
    return openOrForget(makeReference<ZelvarReceiver>(connectionType, address, true));
}

bool ZelvarRawDeviceType::accepts(const std::string& model) const {
    return namesAnyModel(model);
}

ReferencePtr<Device> ZelvarRawDeviceType::create(const std::string& connectionType,
                                                 const std::string& address) {
    return openOrForget(makeReference<ZelvarReceiver>(connectionType, address, false));
}
