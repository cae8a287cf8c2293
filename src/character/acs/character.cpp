#include "character/acs/character.h"

#include <algorithm>

namespace corvel::acs {

namespace {

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

} // namespace

bool sameName(std::string_view a, std::string_view b)
{
    return std::ranges::equal(a, b, [](char x, char y) { return lower(x) == lower(y); });
}

const Animation* Character::findAnimation(std::string_view name) const
{
    const auto index = animationIndex(name);
    return index ? &animations[*index] : nullptr;
}

std::optional<std::size_t> Character::animationIndex(std::string_view name) const
{
    for (std::size_t i = 0; i < animations.size(); ++i)
        if (sameName(animations[i].name, name)) return i;
    return std::nullopt;
}

const State* Character::findState(std::string_view name) const
{
    const auto found = std::ranges::find_if(states, [&](const State& s) { return sameName(s.name, name); });
    return found == states.end() ? nullptr : &*found;
}

const LocalizedInfo* Character::info(std::uint16_t language) const
{
    const auto find = [&](auto matches) -> const LocalizedInfo* {
        const auto found = std::ranges::find_if(localizedInfo, matches);
        return found == localizedInfo.end() ? nullptr : &*found;
    };
    constexpr std::uint16_t primaryMask = 0x3FF;
    if (const auto* exact = find([&](const LocalizedInfo& i) { return i.language == language; })) return exact;
    if (const auto* primary = find([&](const LocalizedInfo& i) {
            return (i.language & primaryMask) == (language & primaryMask);
        }))
        return primary;
    if (const auto* en = find([](const LocalizedInfo& i) { return (i.language & primaryMask) == (english & primaryMask); }))
        return en;
    return localizedInfo.empty() ? nullptr : &localizedInfo.front();
}

std::string Character::name(std::uint16_t language) const
{
    const auto* entry = info(language);
    return entry ? entry->name : std::string();
}

std::string Character::description(std::uint16_t language) const
{
    const auto* entry = info(language);
    return entry ? entry->description : std::string();
}

} // namespace corvel::acs
