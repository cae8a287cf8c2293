#include "character/speech_tags.h"

#include <algorithm>
#include <cctype>
#include <charconv>

namespace corvel {
namespace {

bool named(std::string_view text, std::string_view name)
{
    return text.size() == name.size() && std::equal(text.begin(), text.end(), name.begin(), [](char a, char b) {
               return std::tolower(static_cast<unsigned char>(a)) == std::tolower(static_cast<unsigned char>(b));
           });
}

std::optional<int> number(std::string_view value, int highest)
{
    if (value.empty() || value.size() > 9) return std::nullopt;
    int n = 0;
    const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), n);
    if (error != std::errc{} || end != value.data() + value.size() || n < 0) return std::nullopt;
    return std::min(n, highest);
}

bool space(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }

class Parser {
public:
    explicit Parser(std::string_view text) : text_(text) {}

    std::vector<SpeechPart> run()
    {
        while (at_ < text_.size()) {
            if (text_[at_] == '\\') tag();
            else character(text_[at_++]);
        }
        flush();
        return std::move(parts_);
    }

private:
    void character(char c)
    {
        if (emphasisWaiting_ && !space(c)) {
            flush();
            emphasisWaiting_ = false;
            inEmphasis_ = true;
        } else if (inEmphasis_ && space(c)) {
            flush();
        }
        current_.push_back(c);
    }

    void flush()
    {
        if (!current_.empty()) parts_.push_back({current_, current_, 0, inEmphasis_, voice_});
        current_.clear();
        inEmphasis_ = false;
    }

    // At a backslash: reads the tag to its closing backslash and applies it.
    void tag()
    {
        const std::size_t start = at_ + 1;
        std::size_t nameEnd = start;
        while (nameEnd < text_.size() && std::isalpha(static_cast<unsigned char>(text_[nameEnd]))) ++nameEnd;
        const std::string_view name = text_.substr(start, nameEnd - start);
        if (named(name, "Map") && nameEnd < text_.size() && text_[nameEnd] == '=' && map(nameEnd + 1)) return;

        const std::size_t close = text_.find('\\', start);
        if (close == std::string_view::npos) {
            ++at_; // a lone backslash
            return;
        }
        at_ = close + 1;
        std::string_view value;
        if (nameEnd < close) {
            if (text_[nameEnd] != '=') return; // damaged: dropped
            value = text_.substr(nameEnd + 1, close - nameEnd - 1);
        }
        apply(name, value, nameEnd < close);
    }

    void apply(std::string_view name, std::string_view value, bool hasValue)
    {
        const auto change = [&](std::optional<int>& setting, int highest) {
            if (const auto n = number(value, highest)) {
                flush();
                setting = n;
            }
        };
        if (hasValue && named(name, "Vol")) change(voice_.volume, 65535);
        else if (hasValue && named(name, "Spd")) change(voice_.speed, 1000);
        else if (hasValue && named(name, "Pit")) change(voice_.pitch, 2000);
        else if (hasValue && named(name, "Pau")) {
            if (const auto n = number(value, 65535)) {
                flush();
                parts_.push_back({"", "", *n, false, voice_});
            }
        } else if (!hasValue && named(name, "Emp")) {
            flush();
            emphasisWaiting_ = true;
        } else if (!hasValue && named(name, "Rst")) {
            flush();
            voice_ = {};
            emphasisWaiting_ = false;
        }
    }

    // \Map="said"="shown"\ from just after "Map=". False when it is not of that form.
    bool map(std::size_t from)
    {
        const auto quoted = [&](std::size_t& i) -> std::optional<std::string_view> {
            if (i >= text_.size() || text_[i] != '"') return std::nullopt;
            const std::size_t end = text_.find('"', i + 1);
            if (end == std::string_view::npos) return std::nullopt;
            const std::string_view inside = text_.substr(i + 1, end - i - 1);
            i = end + 1;
            return inside;
        };
        std::size_t i = from;
        const auto said = quoted(i);
        if (!said || i >= text_.size() || text_[i] != '=') return false;
        ++i;
        const auto shown = quoted(i);
        if (!shown || i >= text_.size() || text_[i] != '\\') return false;
        at_ = i + 1;
        flush();
        emphasisWaiting_ = false;
        if (!said->empty() || !shown->empty()) parts_.push_back({std::string(*said), std::string(*shown), 0, false, voice_});
        return true;
    }

    std::string_view text_;
    std::size_t at_ = 0;
    std::vector<SpeechPart> parts_;
    std::string current_;
    SpeechVoice voice_;
    bool emphasisWaiting_ = false;
    bool inEmphasis_ = false;
};

} // namespace

std::vector<SpeechPart> parseSpeech(std::string_view text) { return Parser(text).run(); }

std::string shownText(const std::vector<SpeechPart>& parts)
{
    std::string shown;
    for (const SpeechPart& part : parts) shown += part.shown;
    return shown;
}

} // namespace corvel
