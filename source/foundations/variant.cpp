#include <bit>

#include "foundations/variantrecord.h"

namespace utils {

Variant::Variant() = default;
Variant::Variant(float fValue) : meType(kFloat), muScalar(std::bit_cast<uint32_t>(fValue)) {}
Variant::Variant(int32_t iValue) : meType(kInt32), muScalar(static_cast<uint32_t>(iValue)) {}
Variant::Variant(uint32_t uValue) : meType(kUnsigned32), muScalar(uValue) {}
Variant::Variant(int64_t iValue) : meType(kInt64), muScalar(static_cast<uint64_t>(iValue)) {}
Variant::Variant(uint64_t uValue) : meType(kUnsigned64), muScalar(uValue) {}
Variant::Variant(bool bValue) : meType(kBool), muScalar(bValue ? 1 : 0) {}
Variant::Variant(std::string text) : meType(kText), mcText(std::move(text)) {}
Variant::Variant(const VariantRecord& cRecord)
    : meType(kRecord), mpRecord(std::make_unique<VariantRecord>(cRecord)) {}
Variant::Variant(std::vector<VariantRecord> cArray)
    : meType(kArray), mpArray(std::make_unique<std::vector<VariantRecord>>(std::move(cArray))) {}

Variant::Variant(const Variant& cOther)
    : meType(cOther.meType),
      muScalar(cOther.muScalar),
      mcText(cOther.mcText),
      mpRecord(cOther.mpRecord ? std::make_unique<VariantRecord>(*cOther.mpRecord) : nullptr),
      mpArray(cOther.mpArray ? std::make_unique<std::vector<VariantRecord>>(*cOther.mpArray) : nullptr) {}

Variant::Variant(Variant&&) noexcept = default;

Variant& Variant::operator=(const Variant& cOther) {
    if (this != &cOther)
        *this = Variant(cOther);
    return *this;
}

Variant& Variant::operator=(Variant&&) noexcept = default;
Variant::~Variant() = default;

float Variant::getFloat() const {
    return std::bit_cast<float>(static_cast<uint32_t>(muScalar));
}

const std::vector<VariantRecord>& Variant::getArray() const {
    static const auto* const pEmpty = new std::vector<VariantRecord>;
    return mpArray ? *mpArray : *pEmpty;
}

std::optional<float> Variant::toFloat() const {
    switch (meType) {
        case kFloat:
            return getFloat();
        case kInt32:
            return static_cast<float>(getInt32());
        case kUnsigned32:
            return static_cast<float>(getUnsigned32());
        case kInt64:
            return static_cast<float>(getInt64());
        case kUnsigned64:
            return static_cast<float>(getUnsigned64());
        default:
            return std::nullopt;
    }
}

}  // namespace utils
