#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace cli {

/// The entries of a record in the library's pretty text form, in its order. A text value comes without
/// its quotes; a nested record or array comes as its own text, on one line.
struct RecordEntry {
    std::string key;
    std::string value;
    bool text = false;  ///< the value stood in quotes
};

std::vector<RecordEntry> readRecord(std::string_view text);

/// What is said behind a key: the plain form, or "description" of the nested form.
std::string schemaDescription(const RecordEntry& entry);

/// Splits KEY=VALUE at the first "="; nothing when the key is empty, or a quote or brace would break the
/// record's text form.
std::optional<std::pair<std::string, std::string>> splitAssignment(std::string_view text);

/// The text of a record of such assignments. true and false are booleans, whole numbers integers, other
/// numbers (units allowed: 98.1M, -30dBm) floats, the rest text. A value in quotes is text in any case.
std::string recordText(const std::vector<std::pair<std::string, std::string>>& assignments);

}  // namespace cli
