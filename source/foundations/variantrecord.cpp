#include "foundations/variantrecord.h"

#include <algorithm>

#include "foundations/text.h"

namespace utils {

using Entries = VariantRecord::Entries;

static bool holdsRecords(const Entries& cEntries) {
    return std::any_of(cEntries.begin(), cEntries.end(), [](const auto& cEntry) {
        return cEntry.second.getType() == Variant::kRecord || cEntry.second.getType() == Variant::kArray;
    });
}

VariantRecord::VariantRecord(const char* pText) {
    if (pText)
        parse(pText);
}

VariantRecord::VariantRecord(const VariantRecord& cOther)
    : ReferenceCountedObject(cOther), mbFrozen(cOther.mbFrozen) {
    copyEntries(cOther.mcEntries, mcEntries);
}

VariantRecord::VariantRecord(VariantRecord&& cOther) noexcept
    : ReferenceCountedObject(cOther), mcEntries(std::move(cOther.mcEntries)), mbFrozen(cOther.mbFrozen) {}

VariantRecord& VariantRecord::operator=(const VariantRecord& cOther) {
    if (this != &cOther) {
        Entries cCopy;
        copyEntries(cOther.mcEntries, cCopy);
        mcEntries.swap(cCopy);
    }
    return *this;
}

VariantRecord& VariantRecord::operator=(VariantRecord&& cOther) noexcept {
    if (this != &cOther)
        mcEntries = std::move(cOther.mcEntries);
    return *this;
}

/// Takes the contents of nested records apart one by one, so that no destructor meets more than two levels.
VariantRecord::~VariantRecord() {
    std::vector<Entries> cPending;
    const auto takeOut = [&cPending](VariantRecord& cNested) {
        if (!holdsRecords(cNested.mcEntries))
            return;
        try {
            cPending.push_back(std::move(cNested.mcEntries));
        } catch (const std::bad_alloc&) {
            // Left where it is, the record is destroyed with its owner.
        }
    };
    const auto takeNested = [&takeOut](Entries& cEntries) {
        for (auto& cEntry : cEntries) {
            if (cEntry.second.mpRecord)
                takeOut(*cEntry.second.mpRecord);
            if (cEntry.second.mpArray)
                std::for_each(cEntry.second.mpArray->begin(), cEntry.second.mpArray->end(), takeOut);
        }
    };
    takeNested(mcEntries);
    while (!cPending.empty()) {
        Entries cEntries = std::move(cPending.back());
        cPending.pop_back();
        takeNested(cEntries);
    }
}

void VariantRecord::copyEntries(const Entries& cSource, Entries& cTarget) {
    struct Job {
        const Entries* mpFrom;
        Entries* mpTo;
    };
    std::vector<Job> cJobs{{&cSource, &cTarget}};
    const auto copyNested = [&cJobs](const VariantRecord& cFrom, VariantRecord& cTo) {
        cTo.mbFrozen = cFrom.mbFrozen;
        cJobs.push_back({&cFrom.mcEntries, &cTo.mcEntries});
    };
    while (!cJobs.empty()) {
        const Job cJob = cJobs.back();
        cJobs.pop_back();
        for (const auto& [key, cFrom] : *cJob.mpFrom) {
            Variant& cTo = cJob.mpTo->emplace_hint(cJob.mpTo->end(), key, Variant())->second;
            cTo.meType = cFrom.meType;
            cTo.muScalar = cFrom.muScalar;
            cTo.mcText = cFrom.mcText;
            if (cFrom.mpRecord) {
                cTo.mpRecord = std::make_unique<VariantRecord>();
                copyNested(*cFrom.mpRecord, *cTo.mpRecord);
            }
            if (cFrom.mpArray) {
                cTo.mpArray = std::make_unique<std::vector<VariantRecord>>(cFrom.mpArray->size());
                for (size_t i = 0; i < cFrom.mpArray->size(); ++i)
                    copyNested((*cFrom.mpArray)[i], (*cTo.mpArray)[i]);
            }
        }
    }
}

/// The value of a key, made without one if the key is new.
Variant& VariantRecord::place(std::string_view key) {
    // Texts that were formatted here come in order.
    if (mcEntries.empty() || std::string_view(mcEntries.rbegin()->first) < key)
        return mcEntries.emplace_hint(mcEntries.end(), std::string(key), Variant())->second;
    const auto it = mcEntries.lower_bound(key);
    if (it != mcEntries.end() && it->first == key)
        return it->second;
    return mcEntries.emplace_hint(it, std::string(key), Variant())->second;
}

bool VariantRecord::set(std::string_view key, Variant cValue) {
    if (mbFrozen)
        return false;
    place(key) = std::move(cValue);
    return true;
}

bool VariantRecord::set(std::string_view key, float fValue) {
    return set(key, Variant(fValue));
}
bool VariantRecord::set(std::string_view key, int32_t iValue) {
    return set(key, Variant(iValue));
}
bool VariantRecord::set(std::string_view key, uint32_t uValue) {
    return set(key, Variant(uValue));
}
bool VariantRecord::set(std::string_view key, uint64_t uValue) {
    return set(key, Variant(uValue));
}
bool VariantRecord::set(std::string_view key, bool bValue) {
    return set(key, Variant(bValue));
}

bool VariantRecord::set(std::string_view key, const char* pText) {
    return set(key, std::string_view(pText ? pText : ""));
}

bool VariantRecord::set(std::string_view key, std::string_view text) {
    return set(key, Variant(std::string(text)));
}

bool VariantRecord::set(std::string_view key, const VariantRecord& cRecord) {
    return set(key, Variant(cRecord));
}

bool VariantRecord::set(std::string_view key, std::vector<VariantRecord> cArray) {
    return set(key, Variant(std::move(cArray)));
}

bool VariantRecord::set(std::string_view key, const std::list<std::string>& lTexts) {
    std::vector<VariantRecord> cArray(lTexts.size());
    size_t i = 0;
    for (const std::string& text : lTexts)
        cArray[i++].set(text, Variant());
    return set(key, std::move(cArray));
}

VariantRecord::Entries::iterator VariantRecord::lookUp(std::string_view key) {
    if (key.empty() && mcEntries.size() == 1)
        return mcEntries.begin();
    return mcEntries.find(strip(strip(key), "\""));
}

const Variant* VariantRecord::find(std::string_view key) const {
    const auto it = const_cast<VariantRecord*>(this)->lookUp(key);
    return it == mcEntries.end() ? nullptr : &it->second;
}

bool VariantRecord::erase(std::string_view key) {
    const auto it = mcEntries.find(key);
    if (it == mcEntries.end())
        return false;
    mcEntries.erase(it);
    return true;
}

void VariantRecord::clear() {
    mcEntries.clear();
}

std::list<std::string> VariantRecord::keys() const {
    std::list<std::string> lKeys;
    for (const auto& cEntry : mcEntries)
        lKeys.push_back(cEntry.first);
    return lKeys;
}

void VariantRecord::keep(const std::list<std::string>& lKeys) {
    Entries cKept;
    for (const std::string& key : lKeys)
        if (auto cNode = mcEntries.extract(key))
            cKept.insert(std::move(cNode));
    mcEntries.swap(cKept);
}

VariantRecord VariantRecord::difference(const VariantRecord& cOther) const {
    VariantRecord cResult;
    for (const auto& [key, cValue] : cOther.mcEntries) {
        const auto it = mcEntries.find(key);
        if (it == mcEntries.end() || !(it->second == cValue))
            cResult.place(key) = cValue;
    }
    return cResult;
}

void VariantRecord::merge(const VariantRecord& cOther) {
    for (const auto& [key, cValue] : cOther.mcEntries)
        place(key) = cValue;
}

}  // namespace utils
