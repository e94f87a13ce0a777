#pragma once

#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "foundations/referencecountedobject.h"

namespace utils {

class VariantRecord;

/// One typed value. Copies of a nested record are deep.
class Variant {
 public:
    enum Type : int32_t {
        kFloat = 0,
        kInt32 = 1,
        kUnsigned32 = 2,
        kInt64 = 3,
        kUnsigned64 = 4,
        kBool = 5,
        kText = 6,
        kRecord = 7,
        kArray = 8,
        kNone = 9,
    };

    Variant();
    explicit Variant(float fValue);
    explicit Variant(int32_t iValue);
    explicit Variant(uint32_t uValue);
    explicit Variant(int64_t iValue);
    explicit Variant(uint64_t uValue);
    explicit Variant(bool bValue);
    explicit Variant(std::string text);
    explicit Variant(const VariantRecord& cRecord);
    explicit Variant(std::vector<VariantRecord> cArray);
    Variant(const Variant&);
    Variant(Variant&&) noexcept;
    Variant& operator=(const Variant&);
    Variant& operator=(Variant&&) noexcept;
    ~Variant();

    Type getType() const { return meType; }
    /// Types 0 to 4.
    bool isNumber() const { return meType >= kFloat && meType <= kUnsigned64; }
    /// Types 1 to 4.
    bool isInteger() const { return meType >= kInt32 && meType <= kUnsigned64; }
    float getFloat() const;
    int32_t getInt32() const { return static_cast<int32_t>(muScalar); }
    uint32_t getUnsigned32() const { return static_cast<uint32_t>(muScalar); }
    int64_t getInt64() const { return static_cast<int64_t>(muScalar); }
    uint64_t getUnsigned64() const { return muScalar; }
    bool getBool() const { return (muScalar & 0xFF) == 1; }
    const std::string& getText() const { return mcText; }
    const VariantRecord* getRecord() const { return mpRecord.get(); }
    const std::vector<VariantRecord>& getArray() const;
    /// Any number as a float; an unsigned 64-bit value keeps its full magnitude. Empty for other types.
    std::optional<float> toFloat() const;

    /// By the left type's rule; see the implementation. Arrays compare by length alone.
    friend bool operator==(const Variant& cLeft, const Variant& cRight);

 private:
    friend class VariantRecord;
    friend class VariantParser;
    Type meType = kNone;
    uint64_t muScalar = 0;
    std::string mcText;
    std::unique_ptr<VariantRecord> mpRecord;
    std::unique_ptr<std::vector<VariantRecord>> mpArray;
};

/// An ordered map from text keys to typed values, with a JSON-like text form of its own rules. All
/// parameters, schemas and descriptions are such records. No operation uses the C stack in proportion to
/// the nesting depth. Not thread-safe.
class VariantRecord : public ReferenceCountedObject {
 public:
    using Entries = std::map<std::string, Variant, std::less<>>;

    VariantRecord() = default;
    /// Parses; a null text gives an empty record.
    explicit VariantRecord(const char* pText);
    /// Copies take the frozen flag over; assignment replaces the entries alone.
    VariantRecord(const VariantRecord& cOther);
    VariantRecord(VariantRecord&&) noexcept;
    VariantRecord& operator=(const VariantRecord& cOther);
    VariantRecord& operator=(VariantRecord&&) noexcept;
    ~VariantRecord() override;

    // Setters insert or replace; false, with no change, while frozen.
    bool set(std::string_view key, float fValue);
    bool set(std::string_view key, int32_t iValue);
    bool set(std::string_view key, uint32_t uValue);
    bool set(std::string_view key, uint64_t uValue);
    bool set(std::string_view key, bool bValue);
    bool set(std::string_view key, const char* pText);
    bool set(std::string_view key, std::string_view text);
    bool set(std::string_view key, const std::string& text) { return set(key, std::string_view(text)); }
    bool set(std::string_view key, const VariantRecord& cRecord);
    bool set(std::string_view key, std::vector<VariantRecord> cArray);
    /// An array of plain text elements.
    bool set(std::string_view key, const std::list<std::string>& lTexts);
    bool set(std::string_view key, Variant cValue);

    /// The empty key finds the only entry of a one-entry record; otherwise blanks, then double quotes are
    /// stripped from both ends of the key.
    const Variant* find(std::string_view key) const;

    // Reads by find: a value of any numeric type, or of just the type named; empty otherwise.
    std::optional<float> getNumber(std::string_view key) const;
    std::optional<bool> getBool(std::string_view key) const;
    std::optional<std::string> getText(std::string_view key) const;

    /// Stores and erases; false and untouched when absent or not to be held in 32 bits.
    /// A float is rounded to nearest, half away from zero.
    bool takeInt32(std::string_view key, int32_t& iValue);
    bool takeText(std::string_view key, std::string& text, bool bErase);
    /// As a setParameters chain takes them: the value if present with an acceptable type, erased.
    std::optional<float> takeNumber(std::string_view key);
    std::optional<bool> takeBool(std::string_view key);
    std::optional<std::string> takeText(std::string_view key);

    /// By the exact key.
    bool erase(std::string_view key);
    void clear();
    bool empty() const { return mcEntries.empty(); }
    size_t size() const { return mcEntries.size(); }
    const Entries& entries() const { return mcEntries; }
    std::list<std::string> keys() const;
    /// Drops every entry that the list does not name.
    void keep(const std::list<std::string>& lKeys);
    /// Those entries of the other record whose key is not here or whose value differs.
    VariantRecord difference(const VariantRecord& cOther) const;
    /// Copies every entry of the other record in, frozen or not.
    void merge(const VariantRecord& cOther);

    void setFrozen(bool bFrozen) { mbFrozen = bFrozen; }
    bool isFrozen() const { return mbFrozen; }

    /// Replaces the contents (a frozen record is left empty). Never reports an error: what cannot be read is left out.
    bool parse(std::string_view text);
    /// Replaces the output.
    void format(std::string& output, bool bCompact, std::string_view indent, bool bQuoteKeys) const;
    /// Compact with quoted keys, as all texts that cross the interface.
    std::string toCompactText() const;
    /// Pretty with quoted keys and an empty indent.
    std::string toPrettyText() const;
    /// One array element in the text form.
    static std::string formatElement(const VariantRecord& cElement, bool bCompact, std::string_view indent,
                                     bool bQuoteKeys);

    friend bool operator==(const VariantRecord& cLeft, const VariantRecord& cRight);

 private:
    friend class VariantParser;
    Entries::iterator lookUp(std::string_view key);
    template <typename Convert>
    auto take(std::string_view key, Convert convert);
    Variant& place(std::string_view key);
    static void copyEntries(const Entries& cSource, Entries& cTarget);

    Entries mcEntries;
    bool mbFrozen = false;
};

/// The scalar rule of the text form; false leaves the variant as it was.
bool parseScalar(std::string_view text, Variant& cVariant);

}  // namespace utils
