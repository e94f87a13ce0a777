#include "foundations/text.h"
#include "foundations/variantrecord.h"

namespace utils {

namespace {

const VariantRecord& recordOf(const Variant& cValue) {
    static const auto* const pEmpty = new VariantRecord;
    return cValue.getRecord() ? *cValue.getRecord() : *pEmpty;
}

/// One format into a text; records and arrays that are open wait on a stack of its own.
class Formatter {
 public:
    Formatter(std::string& output, bool bCompact, std::string_view indent)
        : mcOutput(output), mbCompact(bCompact), mcIndent(indent) {}

    void record(const VariantRecord& cRecord, bool bQuoteKeys) {
        openRecord(cRecord, 0, bQuoteKeys);
        run();
    }
    void element(const VariantRecord& cElement, bool bQuoteKeys) {
        openElement(cElement, 0, bQuoteKeys);
        run();
    }

 private:
    struct Frame {
        const std::vector<VariantRecord>* mpArray;  // null for a record
        size_t muNext;
        VariantRecord::Entries::const_iterator mcNext;
        VariantRecord::Entries::const_iterator mcEnd;
        size_t muTabs;  // of the indent, behind the one given
        bool mbQuoteKeys;
        bool mbElementsAsRecords;
        bool mbFirst;
    };

    void run();
    void stepRecord();
    void stepArray();
    void openRecord(const VariantRecord& cRecord, size_t uTabs, bool bQuoteKeys);
    void openArray(const std::vector<VariantRecord>& cArray, size_t uTabs, bool bQuoteKeys, bool bAsRecords);
    void openElement(const VariantRecord& cElement, size_t uTabs, bool bQuoteKeys);
    void scalar(const Variant& cValue);
    void quoted(std::string_view text) { mcOutput.append(1, '"').append(text).append(1, '"'); }
    void newLine(size_t uTabs) {
        if (!mbCompact)
            mcOutput.append("\r\n");
        mcOutput.append(mcIndent);
        if (!mbCompact)
            mcOutput.append(uTabs, '\t');
    }

    std::string& mcOutput;
    bool mbCompact;
    std::string_view mcIndent;
    std::vector<Frame> mcFrames;
};

void Formatter::run() {
    while (!mcFrames.empty()) {
        if (mcFrames.back().mpArray)
            stepArray();
        else
            stepRecord();
    }
}

void Formatter::openRecord(const VariantRecord& cRecord, size_t uTabs, bool bQuoteKeys) {
    mcOutput += '{';
    mcFrames.push_back(
        {nullptr, 0, cRecord.entries().begin(), cRecord.entries().end(), uTabs, bQuoteKeys, false, true});
}

void Formatter::openArray(const std::vector<VariantRecord>& cArray, size_t uTabs, bool bQuoteKeys,
                          bool bAsRecords) {
    mcOutput += '[';
    mcFrames.push_back({&cArray, 0, {}, {}, uTabs, bQuoteKeys, bAsRecords, true});
}

void Formatter::stepRecord() {
    Frame& cFrame = mcFrames.back();
    if (cFrame.mcNext == cFrame.mcEnd) {
        newLine(cFrame.muTabs);
        mcOutput += '}';
        mcFrames.pop_back();
        return;
    }
    if (!std::exchange(cFrame.mbFirst, false))
        mcOutput += ',';
    const auto& [key, cValue] = *cFrame.mcNext++;
    const size_t uTabs = cFrame.muTabs;
    const bool bQuoteKeys = cFrame.mbQuoteKeys;
    newLine(uTabs + 1);
    if (bQuoteKeys)
        quoted(key);
    else
        mcOutput += key;
    mcOutput += ':';
    if (cValue.getType() == Variant::kRecord)
        openRecord(recordOf(cValue), uTabs + 1, bQuoteKeys);
    else if (cValue.getType() == Variant::kArray)
        openArray(cValue.getArray(), uTabs, bQuoteKeys, false);
    else
        scalar(cValue);
}

void Formatter::stepArray() {
    Frame& cFrame = mcFrames.back();
    if (cFrame.muNext == cFrame.mpArray->size()) {
        newLine(cFrame.muTabs + 1);
        mcOutput += ']';
        mcFrames.pop_back();
        return;
    }
    if (!std::exchange(cFrame.mbFirst, false))
        mcOutput += ',';
    newLine(cFrame.muTabs + 2);
    const VariantRecord& cElement = (*cFrame.mpArray)[cFrame.muNext++];
    if (cFrame.mbElementsAsRecords)
        openRecord(cElement, cFrame.muTabs + 2, true);
    else
        openElement(cElement, cFrame.muTabs, cFrame.mbQuoteKeys);
}

/// An element is meant to hold one value: the key of it is not shown, and one of several prints nothing.
void Formatter::openElement(const VariantRecord& cElement, size_t uTabs, bool bQuoteKeys) {
    if (cElement.size() != 1)
        return;
    const auto& [key, cValue] = *cElement.entries().begin();
    if (cValue.getType() == Variant::kNone && bQuoteKeys)
        quoted(key);
    else if (cValue.getType() == Variant::kNone)
        mcOutput += key;
    else if (cValue.getType() == Variant::kRecord)
        openRecord(recordOf(cValue), uTabs + 2, true);
    else if (cValue.getType() == Variant::kArray)
        openArray(cValue.getArray(), uTabs, true, true);
    else
        scalar(cValue);
}

void Formatter::scalar(const Variant& cValue) {
    switch (cValue.getType()) {
        case Variant::kFloat:
            mcOutput += formatText("%f", static_cast<double>(cValue.getFloat()));
            break;
        case Variant::kInt32:
            mcOutput += std::to_string(cValue.getInt32());
            break;
        case Variant::kUnsigned32:
            mcOutput += std::to_string(cValue.getUnsigned32());
            break;
        case Variant::kInt64:
            mcOutput += std::to_string(cValue.getInt64());
            break;
        case Variant::kBool:
            mcOutput += cValue.getBool() ? "true" : "false";
            break;
        case Variant::kText:
            quoted(cValue.getText());
            break;
        case Variant::kNone:
            mcOutput += "\"\"";
            break;
        default:
            mcOutput += std::to_string(cValue.getUnsigned64());
    }
}

}  // namespace

void VariantRecord::format(std::string& output, bool bCompact, std::string_view indent,
                           bool bQuoteKeys) const {
    output.clear();
    Formatter(output, bCompact, indent).record(*this, bQuoteKeys);
}

std::string VariantRecord::toCompactText() const {
    std::string text;
    format(text, true, "", true);
    return text;
}

std::string VariantRecord::toPrettyText() const {
    std::string text;
    format(text, false, "", true);
    return text;
}

std::string VariantRecord::formatElement(const VariantRecord& cElement, bool bCompact,
                                         std::string_view indent, bool bQuoteKeys) {
    std::string text;
    Formatter(text, bCompact, indent).element(cElement, bQuoteKeys);
    return text;
}

}  // namespace utils
