#include "simulator/commandtree.h"

#include "simulator/text.h"

namespace vnksim {
namespace {

/// The capitals at the front (and a "*") are the short form.
std::string shortForm(const std::string& word) {
    size_t end = 0;
    while (end < word.size() && !(word[end] >= 'a' && word[end] <= 'z')) {
        ++end;
    }
    return word.substr(0, end);
}

}  // namespace

int CommandTree::add(std::string_view patterns) {
    const int number = mNext++;
    for (const std::string& text : split(patterns, '|')) {
        Pattern pattern{number, {}};
        for (const std::string& word : split(text, ':')) {
            pattern.words.push_back({shortForm(word), upper(word)});
        }
        mlPatterns.push_back(std::move(pattern));
    }
    return number;
}

int CommandTree::find(std::string_view header) const {
    if (!header.empty() && header.front() == ':') {
        header.remove_prefix(1);
    }
    const std::vector<std::string> words = split(upper(header), ':');
    for (const Pattern& pattern : mlPatterns) {
        bool same = words.size() == pattern.words.size();
        for (size_t i = 0; same && i < words.size(); ++i) {
            same = words[i] == pattern.words[i].brief || words[i] == pattern.words[i].full;
        }
        if (same) {
            return pattern.number;
        }
    }
    return kNone;
}

ScpiCommand parseCommand(std::string_view text) {
    const std::string trimmed = trim(text);
    const size_t end = trimmed.find_first_of(" \t");
    ScpiCommand command;
    command.header = trimmed.substr(0, end);
    if (end != std::string::npos) {
        command.parameters = trim(std::string_view(trimmed).substr(end));
    }
    if (!command.header.empty() && command.header.back() == '?') {
        command.query = true;
        command.header.pop_back();
    }
    if (!command.header.empty() && command.header.front() == ':') {
        command.header.erase(0, 1);
    }
    return command;
}

}  // namespace vnksim
