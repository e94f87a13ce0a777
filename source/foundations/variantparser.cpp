#include <algorithm>
#include <array>

#include "foundations/text.h"
#include "foundations/variantrecord.h"

namespace utils {

static constexpr std::string_view kSeparators = ", \t\r\n";
static constexpr std::string_view kQuote = "\"";
static constexpr size_t kSearchedRecord = 256;

/// The first eight bytes as a number of the same order, filled up with zeros.
static uint64_t prefixOf(std::string_view key) {
    uint64_t uPrefix = 0;
    for (size_t i = 0; i < 8; ++i)
        uPrefix = uPrefix << 8 | (i < key.size() ? static_cast<uint8_t>(key[i]) : 0u);
    return uPrefix;
}

/// One parse of a text. Nested blocks wait on a stack of its own. Every text that the rules cut off is a
/// piece of the whole one, and the front of the pieces only moves forward: so the partner of each opening
/// bracket is looked up once, over the whole text, and holds for each piece that reaches so far.
class VariantParser {
 public:
    explicit VariantParser(std::string_view text) : mcText(text) { indexBrackets(); }
    void run(VariantRecord& cRoot);

 private:
    struct Opener {
        size_t muPosition;
        size_t muPartner;
    };
    struct Entry {
        std::string_view mcKey;
        Variant mcValue;
    };
    /// What is left to read into a record or, if there is one, an array.
    struct Frame {
        std::string_view mcRest;
        VariantRecord* mpRecord;
        std::vector<VariantRecord>* mpArray;
        std::vector<Entry> mcUnordered;
    };

    void indexBrackets();
    std::string_view takeBlock(std::string_view& rest);
    std::string_view unwrap(std::string_view text) const;
    void stepRecord();
    void stepArray();
    void storeBlock(Frame& cFrame, std::string_view key, std::string_view block);
    static std::string_view storeScalar(Frame& cFrame, std::string_view key, std::string_view rest);
    static void store(Frame& cFrame, std::string_view key, Variant cValue);
    static void storeUnordered(Frame& cFrame);

    std::string_view mcText;
    std::vector<Opener> mcOpeners;
    size_t muNextOpener = 0;
    std::vector<size_t> mcClosingBraces;
    std::vector<Frame> mcFrames;
};

void VariantParser::indexBrackets() {
    static constexpr std::string_view kOpening = "([{";
    static constexpr std::string_view kClosing = ")]}";
    std::array<std::vector<size_t>, 3> cOpen;
    for (size_t i = mcText.find_first_of("()[]{}"); i < mcText.size(); ++i) {
        if (const size_t uKind = kOpening.find(mcText[i]); uKind != std::string_view::npos) {
            cOpen[uKind].push_back(mcOpeners.size());
            mcOpeners.push_back({i, std::string_view::npos});
        } else if (const size_t uClosed = kClosing.find(mcText[i]); uClosed != std::string_view::npos) {
            if (!cOpen[uClosed].empty()) {
                mcOpeners[cOpen[uClosed].back()].muPartner = i;
                cOpen[uClosed].pop_back();
            }
            if (mcText[i] == '}')
                mcClosingBraces.push_back(i);
        }
    }
}

/// The bracket block at the front, taken off the rest; empty if there is none.
std::string_view VariantParser::takeBlock(std::string_view& rest) {
    if (rest.empty())
        return {};
    const auto uBegin = static_cast<size_t>(rest.data() - mcText.data());
    while (muNextOpener < mcOpeners.size() && mcOpeners[muNextOpener].muPosition < uBegin)
        ++muNextOpener;
    if (muNextOpener == mcOpeners.size() || mcOpeners[muNextOpener].muPosition != uBegin)
        return {};
    const size_t uPartner = mcOpeners[muNextOpener].muPartner;
    if (uPartner >= uBegin + rest.size())
        return {};
    const std::string_view block = rest.substr(0, uPartner + 1 - uBegin);
    rest.remove_prefix(block.size());
    return block;
}

/// Strips separators at the front and blanks at both ends, then the braces if there is an opening one.
std::string_view VariantParser::unwrap(std::string_view text) const {
    text = strip(leftStrip(text, kSeparators));
    if (text.empty() || text.front() != '{')
        return text;
    text.remove_prefix(1);
    const auto uBegin = static_cast<size_t>(text.data() - mcText.data());
    const auto itBehind =
        std::lower_bound(mcClosingBraces.begin(), mcClosingBraces.end(), uBegin + text.size());
    if (itBehind != mcClosingBraces.begin() && *std::prev(itBehind) >= uBegin)
        text = text.substr(0, *std::prev(itBehind) - uBegin);
    return rightStrip(leftStrip(text, kWhitespace), kSeparators);
}

void VariantParser::run(VariantRecord& cRoot) {
    mcFrames.push_back({mcText, &cRoot, nullptr, {}});
    while (!mcFrames.empty()) {
        if (mcFrames.back().mpArray)
            stepArray();
        else
            stepRecord();
    }
}

void VariantParser::stepRecord() {
    Frame& cFrame = mcFrames.back();
    const std::string_view text = unwrap(cFrame.mcRest);
    if (text.empty()) {
        storeUnordered(cFrame);
        mcFrames.pop_back();
        return;
    }
    const size_t uColon = text.find(':');
    const std::string_view key = strip(text.substr(0, uColon), kQuote);
    std::string_view rest = strip(text.substr(uColon == std::string_view::npos ? text.size() : uColon + 1));
    const std::string_view block = takeBlock(rest);
    if (block.empty()) {
        cFrame.mcRest = storeScalar(cFrame, key, rest);
        return;
    }
    cFrame.mcRest = rest;
    storeBlock(cFrame, key, block);
}

/// Stores what is at the front of the rest and gives what lies behind the comma after it.
std::string_view VariantParser::storeScalar(Frame& cFrame, std::string_view key, std::string_view rest) {
    size_t uValueEnd = 0;
    if (rest.starts_with('"')) {
        const size_t uQuote = rest.find('"', 1);
        uValueEnd = uQuote == std::string_view::npos ? rest.size() : uQuote + 1;
    } else {
        uValueEnd = std::min(rest.find(','), rest.size());
    }
    Variant cValue;
    if (parseScalar(rest.substr(0, uValueEnd), cValue))
        store(cFrame, key, std::move(cValue));
    const size_t uComma = rest.find(',', uValueEnd);
    return rest.substr(uComma == std::string_view::npos ? rest.size() : uComma + 1);
}

void VariantParser::storeBlock(Frame& cFrame, std::string_view key, std::string_view block) {
    if (block.front() == '(')
        return;
    Frame cNested{block.substr(1, block.size() - 2), nullptr, nullptr, {}};
    Variant cValue;
    if (block.front() == '{') {
        cValue.meType = Variant::kRecord;
        cValue.mpRecord = std::make_unique<VariantRecord>();
        cNested.mpRecord = cValue.mpRecord.get();
    } else {
        cValue.meType = Variant::kArray;
        cValue.mpArray = std::make_unique<std::vector<VariantRecord>>();
        cNested.mpArray = cValue.mpArray.get();
    }
    store(cFrame, key, std::move(cValue));
    mcFrames.push_back(std::move(cNested));
}

/// In a large record that does not come in order, a search for each key would miss the cache at every
/// step: from there on entries are put by, and sorted when the record is complete.
void VariantParser::store(Frame& cFrame, std::string_view key, Variant cValue) {
    VariantRecord& cRecord = *cFrame.mpRecord;
    const bool bInPlace = cFrame.mcUnordered.empty() &&
                          (cRecord.size() < kSearchedRecord || cRecord.mcEntries.rbegin()->first < key);
    if (bInPlace)
        cRecord.place(key) = std::move(cValue);
    else
        cFrame.mcUnordered.push_back({key, std::move(cValue)});
}

void VariantParser::storeUnordered(Frame& cFrame) {
    std::vector<Entry>& cEntries = cFrame.mcUnordered;
    struct Rank {
        uint64_t muPrefix;
        size_t muIndex;
    };
    std::vector<Rank> cRanks;
    cRanks.reserve(cEntries.size());
    for (size_t i = 0; i < cEntries.size(); ++i)
        cRanks.push_back({prefixOf(cEntries[i].mcKey), i});
    std::sort(cRanks.begin(), cRanks.end(), [&cEntries](const Rank& cLeft, const Rank& cRight) {
        if (cLeft.muPrefix != cRight.muPrefix)
            return cLeft.muPrefix < cRight.muPrefix;
        const int iOrder = cEntries[cLeft.muIndex].mcKey.compare(cEntries[cRight.muIndex].mcKey);
        return iOrder ? iOrder < 0 : cLeft.muIndex < cRight.muIndex;
    });
    // Of equal keys the one that came last is stored last, and stays.
    auto& cTarget = cFrame.mpRecord->mcEntries;
    auto itHint = cTarget.begin();
    for (const Rank& cRank : cRanks) {
        Entry& cEntry = cEntries[cRank.muIndex];
        itHint = cTarget.insert_or_assign(itHint, std::string(cEntry.mcKey), std::move(cEntry.mcValue));
        ++itHint;
    }
}

void VariantParser::stepArray() {
    Frame& cFrame = mcFrames.back();
    if (cFrame.mcRest.empty()) {
        mcFrames.pop_back();
        return;
    }
    std::vector<VariantRecord>& cArray = *cFrame.mpArray;
    cArray.emplace_back();
    const std::string_view block = takeBlock(cFrame.mcRest);
    if (!block.empty()) {
        cFrame.mcRest = leftStrip(cFrame.mcRest, kSeparators);
        // The element stays where it is until its frame is done: the array takes the next one after that.
        mcFrames.push_back({block, &cArray.back(), nullptr, {}});
        return;
    }
    Variant cItem;
    parseScalar(takeBefore(cFrame.mcRest, ","), cItem);
    cArray.back().place("") = std::move(cItem);
}

bool VariantRecord::parse(std::string_view text) {
    clear();
    if (!mbFrozen)
        VariantParser(text).run(*this);
    return true;
}

}  // namespace utils
