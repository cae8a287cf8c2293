#include "character/voice_hints.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

namespace corvel {
namespace {

// The pitch a voice of each gender usually has, in Hz: neutral, female, male.
constexpr std::array<double, 3> usualPitch{150, 200, 115};

std::string languageVoice(std::uint16_t language)
{
    static constexpr std::pair<std::uint16_t, const char*> exact[] = {
        {0x409, "en-us"}, {0x809, "en"}, {0x416, "pt-br"}, {0x816, "pt"}, {0x804, "cmn"}, {0x404, "cmn"}};
    static constexpr std::pair<std::uint16_t, const char*> primary[] = {
        {0x09, "en-us"}, {0x07, "de"}, {0x0C, "fr"}, {0x0A, "es"}, {0x10, "it"}, {0x13, "nl"}, {0x16, "pt"},
        {0x19, "ru"},    {0x1D, "sv"}, {0x14, "nb"}, {0x06, "da"}, {0x0B, "fi"}, {0x15, "pl"}, {0x05, "cs"},
        {0x0E, "hu"},    {0x08, "el"}, {0x1F, "tr"}, {0x11, "ja"}, {0x12, "ko"}, {0x04, "cmn"}};
    for (const auto& [id, name] : exact)
        if (id == language) return name;
    for (const auto& [id, name] : primary)
        if (id == (language & 0x3FF)) return name;
    return "en-us";
}

int genderIndex(int gender) { return gender == 1 || gender == 2 ? gender : 0; }

} // namespace

int engineVolume(int volume) { return static_cast<int>(std::lround(std::clamp(volume, 0, 65535) * 100.0 / 65535)); }

int engineRate(int wordsPerMinute) { return std::clamp(wordsPerMinute, 80, 450); }

int enginePitch(int hertz, int gender)
{
    const double usual = usualPitch[static_cast<std::size_t>(genderIndex(gender))];
    return static_cast<int>(std::lround(std::clamp(50 + 50 * (hertz - usual) / usual, 0.0, 100.0)));
}

EngineVoice chooseVoice(const VoiceHints& hints)
{
    EngineVoice voice;
    voice.name = languageVoice(hints.language);
    if (hints.gender == 1) voice.name += "+f3";
    else if (hints.gender == 2) voice.name += "+m3";
    // The file's speed is a rate of its own engine's; taken as words a minute, which is what
    // the files' values (about 150 to 160) look like.
    if (hints.speed != 0xFFFFFFFF && hints.speed > 0) voice.rate = engineRate(static_cast<int>(std::min<std::uint32_t>(hints.speed, 1000)));
    if (hints.pitch > 0) voice.pitch = enginePitch(static_cast<int>(std::min(hints.pitch, 2000u)), hints.gender);
    return voice;
}

namespace {

std::string_view bare(std::string_view p)
{
    while (!p.empty() && (p.front() == '\'' || p.front() == ',' || p.front() == '%' || p.front() == '='))
        p.remove_prefix(1);
    while (!p.empty() && (p.back() == '#' || p.back() == '-' || p.back() == '2' || p.back() == '1' || p.back() == ';'))
        p.remove_suffix(1);
    return p;
}

} // namespace

int visemeForPhoneme(std::string_view phoneme)
{
    static constexpr std::pair<std::string_view, int> table[] = {
        {"a", 1},   {"aa", 1},  {"@", 1},   {"V", 1},   {"A", 2},   {"A:", 2},  {"0", 2},   {"A@", 2},  {"O", 3},
        {"O:", 3},  {"O@", 3},  {"o@", 8},  {"E", 4},   {"e", 4},   {"e@", 4},  {"eI", 4},  {"U", 4},   {"3", 5},
        {"3:", 5},  {"@r", 5},  {"i", 6},   {"i:", 6},  {"I", 6},   {"i@", 6},  {"i@3", 6}, {"j", 6},   {"IR", 6},
        {"w", 7},   {"u", 7},   {"u:", 7},  {"U@", 7},  {"oU", 8},  {"o", 8},   {"aU", 9},  {"OI", 10}, {"aI", 11},
        {"aI@", 11}, {"aI3", 11}, {"h", 12}, {"r", 13},  {"l", 14},  {"@L", 14}, {"@5", 14}, {"s", 15},  {"z", 15},
        {"S", 16},  {"Z", 16},  {"tS", 16}, {"dZ", 16}, {"T", 17},  {"D", 17},  {"f", 18},  {"v", 18},  {"t", 19},
        {"d", 19},  {"n", 19},  {"?", 19},  {"k", 20},  {"g", 20},  {"N", 20},  {"x", 20},  {"p", 21},  {"b", 21},
        {"m", 21},
    };
    const std::string_view p = bare(phoneme);
    if (p.empty() || p.front() == '_') return 0;
    for (const auto& [name, viseme] : table)
        if (name == p) return viseme;
    // A vowel of another language's set: a half-open mouth.
    return 1;
}

std::string arpabetFromEspeak(std::string_view phonemes)
{
    static constexpr std::pair<std::string_view, std::string_view> table[] = {
        {"p", "P"},     {"b", "B"},     {"t", "T"},      {"d", "D"},     {"k", "K"},     {"g", "G"},
        {"f", "F"},     {"v", "V"},     {"T", "TH"},     {"D", "DH"},    {"s", "S"},     {"z", "Z"},
        {"S", "SH"},    {"Z", "ZH"},    {"h", "HH"},     {"m", "M"},     {"n", "N"},     {"N", "NG"},
        {"l", "L"},     {"r", "R"},     {"w", "W"},      {"j", "Y"},     {"tS", "CH"},   {"dZ", "JH"},
        {"x", "K"},     {"?", "T"},     {"a", "AE"},     {"aa", "AE"},   {"A", "AA"},    {"A:", "AA"},
        {"0", "AA"},    {"O", "AO"},    {"O:", "AO"},    {"E", "EH"},    {"e", "EH"},    {"I", "IH"},
        {"i", "IY"},    {"i:", "IY"},   {"U", "UH"},     {"u", "UW"},    {"u:", "UW"},   {"V", "AH"},
        {"@", "AH"},    {"3", "ER"},    {"3:", "ER"},    {"aI", "AY"},   {"aU", "AW"},   {"OI", "OY"},
        {"oU", "OW"},   {"o", "OW"},    {"eI", "EY"},    {"@L", "AH L"}, {"@5", "AH L"}, {"A@", "AA R"},
        {"O@", "AO R"}, {"o@", "AO R"}, {"U@", "UH R"},  {"e@", "EH R"}, {"i@", "IH R"}, {"i@3", "IH R"},
        {"aI@", "AY ER"}, {"aU@", "AW ER"}, {"aI3", "AY ER"}, {"3:r", "ER"}, {"@r", "ER"}, {"IR", "IH R"},
    };
    std::string out;
    std::size_t from = 0;
    while (from < phonemes.size()) {
        std::size_t end = phonemes.find(' ', from);
        if (end == std::string_view::npos) end = phonemes.size();
        // Stress marks in front, and marks of a variant or a syllabic consonant behind.
        const std::string_view p = bare(phonemes.substr(from, end - from));
        from = end + 1;
        if (p.empty()) continue;
        const auto found = std::find_if(std::begin(table), std::end(table), [&](const auto& row) { return row.first == p; });
        if (found == std::end(table)) continue;
        if (!out.empty()) out += ' ';
        out += found->second;
    }
    return out;
}

} // namespace corvel
