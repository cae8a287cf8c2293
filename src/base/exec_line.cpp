#include "base/exec_line.h"

#include <utility>

namespace corvel {
namespace {

bool isBlank(char c) { return c == ' ' || c == '\t'; }

bool escapableInQuotes(char c) { return c == '"' || c == '`' || c == '$' || c == '\\'; }

} // namespace

std::optional<std::vector<std::string>> splitExecLine(std::string_view line)
{
    std::vector<std::string> words;
    std::string word;
    bool inWord = false; // a quoted "" is an empty argument, so a word can be empty and still be there
    bool quoted = false;
    for (std::size_t i = 0; i < line.size(); ++i) {
        const char c = line[i];
        if (quoted) {
            if (c == '\\' && i + 1 < line.size() && escapableInQuotes(line[i + 1])) word += line[++i];
            else if (c == '"') quoted = false;
            else word += c;
        } else if (isBlank(c)) {
            if (inWord) words.push_back(std::exchange(word, {}));
            inWord = false;
        } else if (c == '"') {
            quoted = inWord = true;
        } else if (c == '%' && i + 1 < line.size()) {
            if (line[++i] == '%') {
                word += '%';
                inWord = true;
            }
        } else {
            word += c;
            inWord = true;
        }
    }
    if (quoted) return std::nullopt;
    if (inWord) words.push_back(std::move(word));
    if (words.empty()) return std::nullopt;
    return words;
}

} // namespace corvel
