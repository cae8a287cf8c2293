#include "character/voice_grammar.h"

#include <algorithm>
#include <cctype>
#include <set>

namespace corvel {
namespace {

using Node = VoiceGrammar::Node;
using Kind = Node::Kind;

bool wordCharacter(char c)
{
    return std::isalnum(static_cast<unsigned char>(c)) || c == '\'' || static_cast<unsigned char>(c) >= 0x80;
}

// Grammar text, split into tokens: words, brackets, "|", "*", "+" and "...".
std::vector<std::string> tokens(std::string_view text)
{
    std::vector<std::string> out;
    std::size_t i = 0;
    while (i < text.size()) {
        const char c = text[i];
        if (text.substr(i, 3) == "...") {
            out.emplace_back("...");
            i += 3;
        } else if (std::string_view("()[]|*+").find(c) != std::string_view::npos) {
            out.emplace_back(1, c);
            ++i;
        } else if (std::isspace(static_cast<unsigned char>(c))) {
            ++i;
        } else {
            std::string word;
            while (i < text.size() && !std::isspace(static_cast<unsigned char>(text[i])) &&
                   std::string_view("()[]|*+").find(text[i]) == std::string_view::npos && text.substr(i, 3) != "...")
                word.push_back(text[i++]);
            out.push_back(std::move(word));
        }
    }
    return out;
}

class GrammarParser {
public:
    explicit GrammarParser(std::vector<std::string> tokens) : tokens_(std::move(tokens)) {}

    std::optional<Node> run()
    {
        auto node = alternatives();
        if (!node || at_ != tokens_.size()) return std::nullopt;
        return node;
    }

private:
    const std::string* peek() const { return at_ < tokens_.size() ? &tokens_[at_] : nullptr; }

    std::optional<Node> alternatives()
    {
        Node choice{Kind::Alternatives, {}, {}, false};
        while (true) {
            auto sequence = this->sequence();
            if (!sequence) return std::nullopt;
            choice.children.push_back(std::move(*sequence));
            if (!peek() || *peek() != "|") break;
            ++at_;
        }
        if (choice.children.size() == 1) return std::move(choice.children.front());
        return choice;
    }

    std::optional<Node> sequence()
    {
        Node sequence{Kind::Sequence, {}, {}, false};
        while (const std::string* token = peek()) {
            if (*token == "|" || *token == ")" || *token == "]") break;
            auto item = this->item();
            if (!item) return std::nullopt;
            sequence.children.push_back(std::move(*item));
        }
        if (sequence.children.empty()) return std::nullopt; // "()", "a |", "[ ]"
        if (sequence.children.size() == 1) return std::move(sequence.children.front());
        return sequence;
    }

    std::optional<Node> item()
    {
        const std::string token = tokens_[at_++];
        std::optional<Node> node;
        if (token == "(" || token == "[") {
            node = alternatives();
            const char close = token == "(" ? ')' : ']';
            if (!node || !peek() || (*peek())[0] != close || peek()->size() != 1) return std::nullopt;
            ++at_;
            if (token == "[") node = Node{Kind::Optional, {}, {std::move(*node)}, false};
        } else if (token == "...") {
            node = Node{Kind::AnyWords, {}, {}, false};
        } else if (token == "|" || token == "*" || token == "+" || token == ")" || token == "]") {
            return std::nullopt;
        } else {
            const std::vector<std::string> words = normaliseWords(token);
            if (words.empty()) return Node{Kind::Sequence, {}, {}, false}; // punctuation alone says nothing
            Node sequence{Kind::Sequence, {}, {}, false};
            for (const std::string& word : words) sequence.children.push_back({Kind::Word, word, {}, false});
            node = sequence.children.size() == 1 ? std::move(sequence.children.front()) : std::move(sequence);
        }
        while (peek() && (*peek() == "*" || *peek() == "+")) {
            node = Node{Kind::Repeat, {}, {std::move(*node)}, *peek() == "+"};
            ++at_;
        }
        return node;
    }

    std::vector<std::string> tokens_;
    std::size_t at_ = 0;
};

// The positions in `words` where `node` can end, starting from any of `starts`.
std::set<std::size_t> ends(const Node& node, const std::vector<std::string>& words, const std::set<std::size_t>& starts)
{
    switch (node.kind) {
    case Kind::Word: {
        std::set<std::size_t> out;
        for (std::size_t s : starts)
            if (s < words.size() && words[s] == node.word) out.insert(s + 1);
        return out;
    }
    case Kind::Sequence: {
        std::set<std::size_t> at = starts;
        for (const Node& child : node.children) {
            if (at.empty()) break;
            at = ends(child, words, at);
        }
        return at;
    }
    case Kind::Alternatives: {
        std::set<std::size_t> out;
        for (const Node& child : node.children) out.merge(ends(child, words, starts));
        return out;
    }
    case Kind::Optional: {
        std::set<std::size_t> out = ends(node.children.front(), words, starts);
        out.insert(starts.begin(), starts.end());
        return out;
    }
    case Kind::Repeat: {
        std::set<std::size_t> reached = node.atLeastOnce ? std::set<std::size_t>{} : starts;
        std::set<std::size_t> frontier = ends(node.children.front(), words, starts);
        while (!frontier.empty()) {
            std::set<std::size_t> fresh;
            for (std::size_t p : frontier)
                if (reached.insert(p).second) fresh.insert(p);
            frontier = fresh.empty() ? fresh : ends(node.children.front(), words, fresh);
        }
        return reached;
    }
    case Kind::AnyWords: {
        std::set<std::size_t> out;
        if (starts.empty()) return out;
        for (std::size_t p = *starts.begin(); p <= words.size(); ++p) out.insert(p);
        return out;
    }
    }
    return {};
}

void collectWords(const Node& node, std::vector<std::string>& out)
{
    if (node.kind == Kind::Word && std::find(out.begin(), out.end(), node.word) == out.end()) out.push_back(node.word);
    for (const Node& child : node.children) collectWords(child, out);
}

bool anyWords(const Node& node)
{
    return node.kind == Kind::AnyWords || std::any_of(node.children.begin(), node.children.end(), anyWords);
}

std::string jsgfOf(const Node& node)
{
    switch (node.kind) {
    case Kind::Word: return node.word;
    case Kind::AnyWords: return "<filler>*";
    case Kind::Optional: return "[ " + jsgfOf(node.children.front()) + " ]";
    case Kind::Repeat: return "( " + jsgfOf(node.children.front()) + " )" + (node.atLeastOnce ? "+" : "*");
    case Kind::Sequence:
    case Kind::Alternatives: {
        if (node.children.empty()) return "<NULL>";
        std::string out = "( ";
        for (std::size_t i = 0; i < node.children.size(); ++i) {
            if (i > 0) out += node.kind == Kind::Sequence ? " " : " | ";
            out += jsgfOf(node.children[i]);
        }
        return out + " )";
    }
    }
    return {};
}

const char* const ones[] = {"zero",    "one",     "two",       "three",    "four",     "five",    "six",
                            "seven",   "eight",   "nine",      "ten",      "eleven",   "twelve",  "thirteen",
                            "fourteen", "fifteen", "sixteen",  "seventeen", "eighteen", "nineteen"};
const char* const tens[] = {"", "", "twenty", "thirty", "forty", "fifty", "sixty", "seventy", "eighty", "ninety"};

std::string belowThousand(unsigned long n)
{
    std::string out;
    if (n >= 100) {
        out = std::string(ones[n / 100]) + " hundred";
        n %= 100;
        if (n == 0) return out;
        out += " ";
    }
    if (n < 20) return out + ones[n];
    out += tens[n / 10];
    if (n % 10) out += std::string(" ") + ones[n % 10];
    return out;
}

} // namespace

std::string spellNumber(unsigned long number)
{
    if (number >= 1000000) return {};
    if (number < 1000) return belowThousand(number);
    std::string out = belowThousand(number / 1000) + " thousand";
    if (number % 1000) out += " " + belowThousand(number % 1000);
    return out;
}

std::vector<std::string> normaliseWords(std::string_view text)
{
    std::vector<std::string> words;
    std::string word;
    const auto finish = [&] {
        while (!word.empty() && word.back() == '\'') word.pop_back();
        while (!word.empty() && word.front() == '\'') word.erase(word.begin());
        if (word.empty()) return;
        if (std::all_of(word.begin(), word.end(), [](char c) { return std::isdigit(static_cast<unsigned char>(c)); }) &&
            word.size() <= 6) {
            const std::string spelt = spellNumber(std::stoul(word));
            std::size_t from = 0;
            while (from < spelt.size()) {
                const std::size_t blank = std::min(spelt.find(' ', from), spelt.size());
                words.push_back(spelt.substr(from, blank - from));
                from = blank + 1;
            }
        } else {
            words.push_back(word);
        }
        word.clear();
    };
    for (const char c : text) {
        if (wordCharacter(c)) word.push_back(static_cast<char>(std::tolower(static_cast<unsigned char>(c))));
        else if (c == '-' || std::isspace(static_cast<unsigned char>(c))) finish();
        // other punctuation is dropped where it stands: "Hello," is "hello"
    }
    finish();
    return words;
}

std::optional<VoiceGrammar> VoiceGrammar::parse(std::string_view grammar)
{
    auto root = GrammarParser(tokens(grammar)).run();
    if (!root) return std::nullopt;
    VoiceGrammar parsed(std::move(*root));
    if (parsed.matches("") || parsed.words().empty()) return std::nullopt;
    return parsed;
}

bool VoiceGrammar::matches(std::string_view heard) const
{
    const std::vector<std::string> words = normaliseWords(heard);
    return ends(root_, words, {0}).contains(words.size());
}

std::vector<std::string> VoiceGrammar::words() const
{
    std::vector<std::string> out;
    collectWords(root_, out);
    return out;
}

std::string VoiceGrammar::jsgf() const { return jsgfOf(root_); }

bool VoiceGrammar::usesAnyWords() const { return anyWords(root_); }

std::string compileJsgf(const std::vector<VoiceGrammar>& grammars, std::string_view name)
{
    std::string out = "#JSGF V1.0;\ngrammar " + std::string(name) + ";\n";
    std::vector<std::string> vocabulary;
    bool filler = false;
    std::string command = "public <command> = ";
    for (std::size_t i = 0; i < grammars.size(); ++i) {
        if (i > 0) command += " | ";
        command += "<c" + std::to_string(i) + ">";
        for (const std::string& word : grammars[i].words())
            if (std::find(vocabulary.begin(), vocabulary.end(), word) == vocabulary.end()) vocabulary.push_back(word);
        filler = filler || grammars[i].usesAnyWords();
    }
    out += (grammars.empty() ? command + "<NULL>" : command) + ";\n";
    for (std::size_t i = 0; i < grammars.size(); ++i)
        out += "<c" + std::to_string(i) + "> = " + grammars[i].jsgf() + ";\n";
    if (filler && !vocabulary.empty()) {
        out += "<filler> = ( ";
        for (std::size_t i = 0; i < vocabulary.size(); ++i) out += (i ? " | " : "") + vocabulary[i];
        out += " );\n";
    }
    return out;
}

} // namespace corvel
