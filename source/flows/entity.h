#pragma once

#include <list>
#include <string>
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
                      float fMinimum, float fMaximum, float fDefault, const std::string& units, bool bReadOnly);
void addEnumSchema(utils::VariantRecord& cSchema, const std::string& key, const std::string& description,
                   const std::list<std::string>& lValues, bool bReadOnly);
void addTextSchema(utils::VariantRecord& cSchema, const std::string& key, const std::string& description,
                   bool bReadOnly);
