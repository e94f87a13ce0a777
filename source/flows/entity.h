#pragma once

#include <cstdint>
#include <list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "foundations/variantrecord.h"

/// Texts of what was wrong with a request; owned by the caller.
using ErrorList = std::vector<std::string>;

/// Anything a caller can configure: it describes its parameters, reports and accepts them as records.
class Entity : public utils::ReferenceCountedObject {
 public:
    virtual utils::VariantRecord getParameterInfo() { return {}; }
    virtual utils::VariantRecord getParameters() { return {}; }
    /// Takes out of `cRecord` what it understands. Here: "Unknown parameter '%s'" and status -33 for each
    /// key that is left.
    virtual void setParameters(utils::VariantRecord& cRecord, ErrorList& lErrors);
};

/// The only writers of the nested form of a schema entry.
void addNumericSchema(utils::VariantRecord& cSchema, const std::string& key, const std::string& description,
                      float fMinimum, float fMaximum, float fDefault, const std::string& units,
                      bool bReadOnly);
void addEnumSchema(utils::VariantRecord& cSchema, const std::string& key, const std::string& description,
                   const std::list<std::string>& lValues, bool bReadOnly);
void addTextSchema(utils::VariantRecord& cSchema, const std::string& key, const std::string& description,
                   bool bReadOnly);

/// One refusal: the text goes to the caller's list, the status to the calling thread's queue.
void addRefusal(ErrorList& lErrors, int32_t iStatus, std::string text);

/// A parameter that counts something: any integer form that fits 32 bits without a sign, or a float that,
/// rounded, lies between 0 and 4294967296 (of which the low 32 bits are taken). Erased when taken; any other
/// form stays in the record.
std::optional<uint32_t> takeCount(utils::VariantRecord& cRecord, std::string_view key);
