#include "foundations/variantrecord.h"

namespace utils {

namespace {

struct Pair {
    const VariantRecord* mpLeft;
    const VariantRecord* mpRight;
};

bool sameLow32(const Variant& cLeft, const Variant& cRight) {
    return cRight.isInteger() && cLeft.getUnsigned32() == cRight.getUnsigned32();
}

bool same64(const Variant& cLeft, const Variant& cRight) {
    const uint64_t uLeft = cLeft.getUnsigned64();
    switch (cRight.getType()) {
        case Variant::kInt32:
            return uLeft == static_cast<uint64_t>(int64_t{cRight.getInt32()});
        case Variant::kUnsigned32:
            return uLeft == cRight.getUnsigned32();
        case Variant::kInt64:
        case Variant::kUnsigned64:
            return uLeft == cRight.getUnsigned64();
        default:
            return false;
    }
}

/// The left type's rule; a pair of records is not looked into but put off.
bool equalApartFromRecords(const Variant& cLeft, const Variant& cRight, std::vector<Pair>& cPending) {
    switch (cLeft.getType()) {
        case Variant::kFloat:
            return cRight.getType() == Variant::kFloat && cLeft.getFloat() == cRight.getFloat();
        case Variant::kInt32:
        case Variant::kUnsigned32:
            return sameLow32(cLeft, cRight);
        case Variant::kInt64:
        case Variant::kUnsigned64:
            return same64(cLeft, cRight);
        case Variant::kBool:
            return (cLeft.getUnsigned64() & 0xFF) == (cRight.getUnsigned64() & 0xFF);
        case Variant::kText:
            return cLeft.getText() == cRight.getText();
        case Variant::kRecord:
            if (!cLeft.getRecord() || !cRight.getRecord())
                return false;
            cPending.push_back({cLeft.getRecord(), cRight.getRecord()});
            return true;
        case Variant::kArray:
            return cRight.getType() == Variant::kArray && cLeft.getArray().size() == cRight.getArray().size();
        default:
            return false;
    }
}

bool settle(std::vector<Pair>& cPending) {
    while (!cPending.empty()) {
        const Pair cPair = cPending.back();
        cPending.pop_back();
        const auto& cLeft = cPair.mpLeft->entries();
        const auto& cRight = cPair.mpRight->entries();
        if (cLeft.size() != cRight.size())
            return false;
        // Both are ordered, so equal sets of keys go in step.
        for (auto itLeft = cLeft.begin(), itRight = cRight.begin(); itLeft != cLeft.end();
             ++itLeft, ++itRight)
            if (itLeft->first != itRight->first ||
                !equalApartFromRecords(itLeft->second, itRight->second, cPending))
                return false;
    }
    return true;
}

}  // namespace

bool operator==(const Variant& cLeft, const Variant& cRight) {
    std::vector<Pair> cPending;
    return equalApartFromRecords(cLeft, cRight, cPending) && settle(cPending);
}

bool operator==(const VariantRecord& cLeft, const VariantRecord& cRight) {
    std::vector<Pair> cPending{{&cLeft, &cRight}};
    return settle(cPending);
}

}  // namespace utils
