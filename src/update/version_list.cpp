#include "update/version_list.h"

#include <algorithm>
#include <cctype>
#include <vector>

#include "base/text.h"

namespace corvel {
namespace {

bool isHexDigest(std::string_view text)
{
    return text.size() == 64 && std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isxdigit(c); });
}

} // namespace

std::optional<OfferedVersion> offeredVersion(std::string_view list)
{
    constexpr std::string_view key = "corvel:";
    const std::string lower = text::lower(list);
    for (std::string_view rest = lower; !rest.empty();) {
        const auto end = rest.find_first_of("\r\n");
        std::string_view line = text::trim(rest.substr(0, end));
        rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
        if (!line.starts_with(key)) continue;
        line = text::trim(line.substr(key.size()));
        const auto blank = line.find(' ');
        OfferedVersion offer{std::string(line.substr(0, blank)), std::nullopt};
        if (offer.version.empty()) return std::nullopt;
        if (blank != std::string_view::npos) {
            const std::string_view extra = text::trim(line.substr(blank + 1));
            if (extra.starts_with("sha256=") && isHexDigest(extra.substr(7))) offer.sha256 = std::string(extra.substr(7));
        }
        return offer;
    }
    return std::nullopt;
}

bool isNewerVersion(std::string_view offered, std::string_view running)
{
    // The numbers of "1.7.10", or none when it is anything else.
    const auto numbers = [](std::string_view version) -> std::optional<std::vector<long long>> {
        std::vector<long long> parts;
        for (std::string_view rest = version;;) {
            const std::string_view part = rest.substr(0, rest.find('.'));
            if (part.empty() || part.size() > 9 || !std::all_of(part.begin(), part.end(), [](unsigned char c) { return std::isdigit(c); }))
                return std::nullopt;
            parts.push_back(text::leadingNumber(part));
            if (part.size() == rest.size()) return parts;
            rest.remove_prefix(part.size() + 1);
        }
    };
    auto offeredParts = numbers(offered);
    auto runningParts = numbers(running);
    if (!offeredParts || !runningParts) return false;
    const std::size_t size = std::max(offeredParts->size(), runningParts->size());
    offeredParts->resize(size, 0); // 1.7 is 1.7.0
    runningParts->resize(size, 0);
    return *offeredParts > *runningParts;
}

} // namespace corvel
