#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace corvel {

// The words that say a command, as characters' commands write them:
//   [words]    optional            (a | b)    one of these, always in parentheses
//   x* x+      the word or group before, any number of times / at least once
//   ...        any words
// Words compare without regard to case or punctuation; numbers count as their spelt words.
class VoiceGrammar {
public:
    struct Node {
        enum class Kind { Word, Sequence, Alternatives, Optional, Repeat, AnyWords };
        Kind kind = Kind::Sequence;
        std::string word;           // Word
        std::vector<Node> children; // Sequence, Alternatives; Optional and Repeat have one
        bool atLeastOnce = false;   // Repeat: + rather than *
    };

    // None for a grammar that does not parse (unbalanced brackets, a stray | or *) or that
    // would be said by silence alone.
    static std::optional<VoiceGrammar> parse(std::string_view grammar);

    // Whether the whole of `heard` is one way of saying it.
    bool matches(std::string_view heard) const;
    // The words it can be said with, each once, in the order they first appear.
    std::vector<std::string> words() const;
    // The grammar as the body of a JSGF rule; "..." is written as `<filler>*`.
    std::string jsgf() const;
    bool usesAnyWords() const;

    const Node& root() const { return root_; }

private:
    explicit VoiceGrammar(Node root) : root_(std::move(root)) {}
    Node root_;
};

// Lower case, punctuation dropped (apostrophes inside words kept), numbers spelt out, one
// blank between words.
std::vector<std::string> normaliseWords(std::string_view text);

// "twenty one" for 21; numbers up to 999999.
std::string spellNumber(unsigned long number);

// A JSGF grammar named `name` with the public rule <command>, one alternative per grammar
// (rules <c0>, <c1> ... in order) and a <filler> rule of every word for "...".
std::string compileJsgf(const std::vector<VoiceGrammar>& grammars, std::string_view name = "corvel");

} // namespace corvel
