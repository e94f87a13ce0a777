#pragma once

#include "receivers/devicetype.h"

/// Accepts nothing, so that a unit is always opened raw; can build its receiver all the same.
class ZelvarHiSlipDeviceType : public DeviceType {
 public:
    ZelvarHiSlipDeviceType() : DeviceType("Zelvar-HiSlip") {}
    bool accepts(const std::string& model) const override;
    ReferencePtr<Device> create(const std::string& connectionType, const std::string& address) override;
};

class ZelvarRawDeviceType : public DeviceType {
 public:
    ZelvarRawDeviceType() : DeviceType("Zelvar-Raw") {}
    /// The text holds any of the family's model names.
    bool accepts(const std::string& model) const override;
    ReferencePtr<Device> create(const std::string& connectionType, const std::string& address) override;
};
