#pragma once

#include "quillon/quillonreceiver.h"
#include "receivers/devicetypeof.h"

/// Accepts a model that is named so, or "unknown".
class NamedQuillonDeviceType : public RawDeviceTypeOf<QuillonReceiver> {
 public:
    NamedQuillonDeviceType(std::string name, std::string word)
        : RawDeviceTypeOf(std::move(name)), mcWord(std::move(word)) {}
    bool accepts(const std::string& model) const override {
        return model.find("unknown") != std::string::npos || model.find(mcWord) != std::string::npos;
    }

 private:
    std::string mcWord;
};

class QuillonHiSlipDeviceType : public HiSlipDeviceTypeOf<QuillonReceiver> {
 public:
    QuillonHiSlipDeviceType() : HiSlipDeviceTypeOf("Quillon-HiSlip") {}
};

class QuillonRawDeviceType : public NamedQuillonDeviceType {
 public:
    QuillonRawDeviceType() : NamedQuillonDeviceType("Quillon-Raw", "Quillon") {}
};

class DravikHiSlipDeviceType : public HiSlipDeviceTypeOf<QuillonReceiver> {
 public:
    DravikHiSlipDeviceType() : HiSlipDeviceTypeOf("Dravik-HiSlip") {}
};

class DravikRawDeviceType : public NamedQuillonDeviceType {
 public:
    DravikRawDeviceType() : NamedQuillonDeviceType("Dravik-Raw", "Dravik") {}
};
