#pragma once

#include <bit>
#include <cstdint>
#include <cstdio>
#include <map>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "foundations/variantrecord.h"

/// A slow model of the record text: it copies, scans and recurses without a thought for cost, and shares
/// nothing with the library. For small texts only.
namespace recordmodel {

struct Value;
using Record = std::map<std::string, Value>;

struct Value {
    int type = 9;
    uint64_t scalar = 0;
    std::string text;
    Record record;
    std::vector<Record> array;
};

inline std::string beforeFirst(const std::string& text, const std::string& mark) {
    return text.substr(0, text.find(mark));
}

inline std::string afterFirst(const std::string& text, const std::string& mark) {
    const size_t at = text.find(mark);
    return at == std::string::npos ? "" : text.substr(at + mark.size());
}

inline std::string leftStrip(std::string text, const std::string& set) {
    while (!text.empty() && set.find(text.front()) != std::string::npos)
        text.erase(0, 1);
    return text;
}

inline std::string rightStrip(std::string text, const std::string& set) {
    while (!text.empty() && set.find(text.back()) != std::string::npos)
        text.pop_back();
    return text;
}

inline std::string strip(const std::string& text) {
    return rightStrip(leftStrip(text, "\r\n\t "), "\r\n\t ");
}

inline std::string takeBlock(std::string& text) {
    if (text.size() < 2 || std::string("([{").find(text[0]) == std::string::npos)
        return "";
    const char opener = text[0];
    const char closer = opener == '(' ? ')' : opener == '[' ? ']' : '}';
    int depth = 1;
    for (size_t i = 1; i < text.size(); ++i) {
        if (text[i] == opener)
            ++depth;
        else if (text[i] == closer)
            --depth;
        if (depth == 0) {
            const std::string block = text.substr(0, i + 1);
            text = text.substr(i + 1);
            return block;
        }
    }
    return "";
}

template <typename Convert>
bool converts(Convert convert, uint64_t& value) {
    try {
        value = static_cast<uint64_t>(convert());
        return true;
    } catch (const std::exception&) {
        value = 0;
        return false;
    }
}

template <typename Wide>
Wide limited(Wide value, Wide lowest, Wide highest) {
    if (value < lowest || value > highest)
        throw std::out_of_range("limit");
    return value;
}

inline void parseInteger(const std::string& text, Value& value) {
    uint64_t u = 0, s = 0;
    bool haveUnsigned =
        converts([&] { return limited<unsigned long long>(std::stoull(text), 0, 0xFFFFFFFFull); }, u);
    bool haveSigned =
        converts([&] { return limited<long long>(std::stoll(text), -0x80000000ll, 0x7FFFFFFFll); }, s);
    if (haveUnsigned && haveSigned) {
        value.type = u == s ? 2 : 1;
        value.scalar = u == s ? u : s;
    } else if (haveUnsigned && u != 0) {
        value.type = 2;
        value.scalar = u;
    } else {
        haveUnsigned = converts([&] { return std::stoull(text); }, u);
        haveSigned = converts([&] { return std::stoll(text); }, s);
        const bool differ = haveUnsigned && haveSigned && u != s;
        value.type = differ ? 3 : 4;
        value.scalar = differ ? s : u;
    }
}

inline bool parseScalar(const std::string& source, Value& value) {
    const std::string text = strip(source);
    if (!text.empty() && text[0] == '"') {
        value.type = 6;
        value.text = rightStrip(leftStrip(text, "\""), "\"");
        return true;
    }
    if (text == "true" || text == "false") {
        value.type = 5;
        value.scalar = text == "true";
        return true;
    }
    if (text.find('.') != std::string::npos || text.find('e') != std::string::npos) {
        try {
            const float number = std::stof(text);
            value.type = 0;
            value.scalar = std::bit_cast<uint32_t>(number);
            return true;
        } catch (const std::exception&) {
            return false;
        }
    }
    const bool digits = text.find_first_not_of("0123456789") == std::string::npos;
    const bool hex = (text.substr(0, 2) == "0x" || text.substr(0, 2) == "0X") &&
                     text.substr(2).find_first_not_of("0123456789ABCDEFabcdef") == std::string::npos;
    if (!digits && !hex) {
        value.type = 6;
        value.text = text;
        return true;
    }
    parseInteger(text, value);
    return true;
}

inline void parse(Record& record, std::string text);

inline std::vector<Record> parseArray(std::string inner) {
    std::vector<Record> array;
    while (!inner.empty()) {
        const std::string block = takeBlock(inner);
        Record element;
        if (!block.empty()) {
            parse(element, block);
            inner = leftStrip(inner, ", \t\r\n");
        } else {
            const std::string item = beforeFirst(inner, ",");
            inner = afterFirst(inner, ",");
            parseScalar(item, element[""]);
        }
        array.push_back(element);
    }
    return array;
}

inline std::string parseValue(Record& record, const std::string& key, std::string rest) {
    std::string text;
    if (!rest.empty() && rest[0] == '"') {
        text = std::string(1, rest[0]).append(beforeFirst(rest.substr(1), "\"")).append(1, rest[0]);
        rest = afterFirst(rest, text);
    } else {
        text = beforeFirst(rest, ",");
    }
    text = strip(text);
    rest = afterFirst(rest, ",");
    Value value;
    if (parseScalar(text, value))
        record[key] = value;
    return rest;
}

inline void parse(Record& record, std::string text) {
    text = strip(leftStrip(text, ", \t\r\n"));
    if (beforeFirst(text, "{").empty()) {
        text = afterFirst(text, "{");
        text = text.substr(0, text.rfind('}'));
        text = rightStrip(leftStrip(text, "\r\n\t "), " ,\t\r\n");
    }
    if (text.empty())
        return;
    const std::string key = rightStrip(leftStrip(beforeFirst(text, ":"), "\""), "\"");
    std::string rest = strip(afterFirst(text, ":"));
    const std::string block = takeBlock(rest);
    if (block.empty()) {
        rest = parseValue(record, key, rest);
    } else {
        const std::string inner = block.substr(1, block.size() - 2);
        Value value;
        if (block[0] == '{') {
            value.type = 7;
            parse(value.record, inner);
            record[key] = value;
        } else if (block[0] == '[') {
            value.type = 8;
            value.array = parseArray(inner);
            record[key] = value;
        }
    }
    parse(record, rest);
}

inline std::string formatScalar(const Value& value) {
    char buffer[64];
    switch (value.type) {
        case 0:
            std::snprintf(buffer, sizeof buffer, "%f",
                          static_cast<double>(std::bit_cast<float>(static_cast<uint32_t>(value.scalar))));
            return buffer;
        case 1:
            std::snprintf(buffer, sizeof buffer, "%d", static_cast<int>(value.scalar));
            return buffer;
        case 2:
            std::snprintf(buffer, sizeof buffer, "%lu", static_cast<unsigned long>(value.scalar));
            return buffer;
        case 3:
            std::snprintf(buffer, sizeof buffer, "%lld", static_cast<long long>(value.scalar));
            return buffer;
        case 5:
            return (value.scalar & 0xFF) == 1 ? "true" : "false";
        case 6:
            return "\"" + value.text + "\"";
        case 9:
            return "\"\"";
        default:
            std::snprintf(buffer, sizeof buffer, "%llu", static_cast<unsigned long long>(value.scalar));
            return buffer;
    }
}

struct Style {
    bool compact;
    std::string indent;
    bool quoteKeys;
};

inline std::string format(const Record& record, const Style& style);

inline std::string formatElement(const Record& element, const Style& style) {
    const std::string e = style.compact ? "" : "\r\n", b = style.compact ? "" : "\t";
    if (element.size() != 1)
        return "";
    const auto& [key, value] = *element.begin();
    const Style inside{style.compact, style.indent + b + b, true};
    if (value.type == 9)
        return style.quoteKeys ? "\"" + key + "\"" : key;
    if (value.type == 7)
        return format(value.record, inside);
    if (value.type != 8)
        return formatScalar(value);
    std::string output = "[";
    for (size_t i = 0; i < value.array.size(); ++i)
        output += (i ? "," : "") + e + style.indent + b + b + format(value.array[i], inside);
    return output + e + style.indent + b + "]";
}

inline std::string format(const Record& record, const Style& style) {
    const std::string e = style.compact ? "" : "\r\n", b = style.compact ? "" : "\t";
    const std::string p = e + style.indent + b;
    std::string output = "{";
    bool first = true;
    for (const auto& [key, value] : record) {
        output += (first ? "" : ",") + p + (style.quoteKeys ? "\"" + key + "\":" : key + ":");
        first = false;
        if (value.type == 7) {
            output += format(value.record, {style.compact, style.indent + b, style.quoteKeys});
        } else if (value.type == 8) {
            output += "[";
            for (size_t i = 0; i < value.array.size(); ++i)
                output += (i ? "," : "") + p + b + formatElement(value.array[i], style);
            output += p + "]";
        } else {
            output += formatScalar(value);
        }
    }
    return output + e + style.indent + "}";
}

inline bool same(const Record& model, const utils::VariantRecord& record);

inline bool same(const Value& model, const utils::Variant& value) {
    if (model.type != value.getType() || model.scalar != value.getUnsigned64() ||
        model.text != value.getText())
        return false;
    if ((model.type == 7) != (value.getRecord() != nullptr) || model.array.size() != value.getArray().size())
        return false;
    if (model.type == 7 && !same(model.record, *value.getRecord()))
        return false;
    for (size_t i = 0; i < model.array.size(); ++i)
        if (!same(model.array[i], value.getArray()[i]))
            return false;
    return true;
}

inline bool same(const Record& model, const utils::VariantRecord& record) {
    if (model.size() != record.size())
        return false;
    auto it = record.entries().begin();
    for (const auto& [key, value] : model) {
        if (key != it->first || !same(value, it->second))
            return false;
        ++it;
    }
    return true;
}

/// Empty when the library agrees with the model on the parse of a text, on its formats and on the parse of
/// the format; otherwise what differs.
inline std::string difference(const std::string& text, const std::string& indent = "") {
    Record model;
    parse(model, text);
    utils::VariantRecord record;
    if (!record.parse(text))
        return "parse failed";
    if (!same(model, record)) {
        const std::string parsed = record.toPrettyText();
        return "parse: " + parsed + " instead of " + format(model, {false, "", true});
    }
    for (const Style& style : {Style{true, "", true}, Style{false, indent, true}, Style{true, indent, false},
                               Style{false, "", false}}) {
        const std::string expected = format(model, style);
        std::string output;
        record.format(output, style.compact, style.indent, style.quoteKeys);
        if (output != expected)
            return "format: " + output + " instead of " + expected;
        Record modelAgain;
        parse(modelAgain, output);
        utils::VariantRecord again;
        again.parse(output);
        if (!same(modelAgain, again))
            return "parse of the format " + output;
    }
    const utils::VariantRecord copy(record);
    if (!same(model, copy))
        return "copy";
    return "";
}

}  // namespace recordmodel
