// libFuzzer target for the SIP header rules: whatever an INVITE's From, P-Asserted-Identity,
// Privacy and Via hold, and whatever an INFO body holds, the caller identity keeps to its
// bounds and to the characters of a telephone number, and a key is one a telephone has.

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "telephony/sip/sip_headers.h"

namespace {

using namespace corvel::sip;

// The input cut at NUL bytes into the fields of one request.
std::vector<std::string_view> fields(std::string_view input, std::size_t count)
{
    std::vector<std::string_view> parts;
    while (parts.size() + 1 < count) {
        const auto end = input.find('\0');
        if (end == std::string_view::npos) break;
        parts.push_back(input.substr(0, end));
        input.remove_prefix(end + 1);
    }
    parts.push_back(input);
    parts.resize(count);
    return parts;
}

bool isNumberText(std::string_view number)
{
    return number.find_first_not_of("+0123456789*#-") == std::string_view::npos &&
           number.find('+', 1) == std::string_view::npos;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    const auto part = fields(input, 8);

    for (const NameAddress& address : parseNameAddresses(part[3]))
        if (address.scheme != "sip" && address.scheme != "sips" && address.scheme != "tel") __builtin_trap();

    const CallerHeaders headers{std::string(part[0]), std::string(part[1]), std::string(part[2]), std::string(part[3]),
                                std::string(part[4]), size > 0 && (data[0] & 1)};
    const CallerIdentity caller = callerIdentity(headers);
    if (caller.number.size() > maxNumberBytes || caller.name.size() > maxNameBytes || !isNumberText(caller.number))
        __builtin_trap();
    if (caller.withheld && !caller.number.empty()) __builtin_trap();

    if (const auto number = telephoneNumber(part[1]); number && !isNumberText(*number)) __builtin_trap();
    (void)viaSourceHost(part[5]);
    if (const auto key = keyFromInfo(part[6], part[7], part[0]);
        key && std::string_view("0123456789*#ABCD").find(*key) == std::string_view::npos)
        __builtin_trap();
    return 0;
}
