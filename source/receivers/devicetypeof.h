#pragma once

#include "receivers/devicetype.h"

/// Opens a family's receivers raw.
template <typename Receiver>
class RawDeviceTypeOf : public DeviceType {
 public:
    using DeviceType::DeviceType;
    ReferencePtr<Device> create(const std::string& connectionType, const std::string& address) override {
        return openOrForget(makeReference<Receiver>(connectionType, address, false));
    }
};

/// Opens them over HiSLIP. Accepts nothing, so that a unit is always opened raw; can build its receiver all the same.
template <typename Receiver>
class HiSlipDeviceTypeOf : public DeviceType {
 public:
    using DeviceType::DeviceType;
    bool accepts(const std::string&) const override { return false; }
    ReferencePtr<Device> create(const std::string& connectionType, const std::string& address) override {
        return openOrForget(makeReference<Receiver>(connectionType, address, true));
    }
};
