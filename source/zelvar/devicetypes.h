#pragma once

#include "receivers/devicetypeof.h"
#include "zelvar/modeltable.h"
#include "zelvar/zelvarreceiver.h"

class ZelvarHiSlipDeviceType : public HiSlipDeviceTypeOf<ZelvarReceiver> {
 public:
    ZelvarHiSlipDeviceType() : HiSlipDeviceTypeOf("Zelvar-HiSlip") {}
};

class ZelvarRawDeviceType : public RawDeviceTypeOf<ZelvarReceiver> {
 public:
    ZelvarRawDeviceType() : RawDeviceTypeOf("Zelvar-Raw") {}
    /// The text holds any of the family's model names.
    bool accepts(const std::string& model) const override { return namesAnyModel(model); }
};
