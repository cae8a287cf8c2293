#include "telephony/line.h"

namespace corvel {

std::vector<std::string> playListEntries(std::string_view list)
{
    std::vector<std::string> entries;
    while (!list.empty()) {
        const auto comma = list.find(',');
        const auto entry = list.substr(0, comma);
        if (!entry.empty()) entries.emplace_back(entry);
        if (comma == std::string_view::npos) break;
        list.remove_prefix(comma + 1);
    }
    return entries;
}

} // namespace corvel
