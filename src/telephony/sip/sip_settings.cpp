#include "telephony/sip/sip_settings.h"

#include <algorithm>
#include <cctype>

#include "base/log.h"
#include "base/text.h"
#include "telephony/sip/sip_headers.h"

namespace corvel::sip {
namespace {

constexpr int defaultPort = 5060;
constexpr Milliseconds defaultRingInterval{6000};
constexpr std::chrono::seconds defaultMediaLoss{60};

std::string read(const SettingsStore& settings, std::string_view key, std::string_view fallback = {})
{
    return settings.read(settings::application, section, key, fallback);
}

std::string_view trim(std::string_view text)
{
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front()))) text.remove_prefix(1);
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back()))) text.remove_suffix(1);
    return text;
}

std::optional<int> portNumber(std::string_view text)
{
    if (text.empty() || text.size() > 5 || !std::all_of(text.begin(), text.end(), [](char c) {
            return c >= '0' && c <= '9';
        })) {
        return std::nullopt;
    }
    const int port = std::stoi(std::string(text));
    if (port < 1 || port > 65535) return std::nullopt;
    return port;
}

// A number of a setting, within bounds; a text that is no number gives the default.
long long boundedNumber(const SettingsStore& settings, std::string_view key, long long fallback, long long least,
                        long long most)
{
    const std::string value = read(settings, key);
    if (trim(value).empty()) return fallback;
    const long long number = text::leadingNumber(value);
    if (number < least || number > most) {
        log::warning("the SIP setting \"" + std::string(key) + "\" is \"" + value + "\"; using " +
                     std::to_string(std::clamp(number, least, most)));
    }
    return std::clamp(number, least, most);
}

} // namespace

std::string ListenAddress::text() const
{
    return (ipv6() ? "[" + host + "]" : host) + ":" + std::to_string(port);
}

std::optional<ListenAddress> parseListenAddress(std::string_view text)
{
    text = trim(text);
    if (text.empty()) return std::nullopt;
    ListenAddress address;
    std::string_view host = text;
    std::string_view port;
    if (text.front() == '[') {
        const auto close = text.find(']');
        if (close == std::string_view::npos) return std::nullopt;
        host = text.substr(1, close - 1);
        const std::string_view after = text.substr(close + 1);
        if (!after.empty()) {
            if (after.front() != ':') return std::nullopt;
            port = after.substr(1);
            if (port.empty()) return std::nullopt;
        }
    } else if (const auto colon = text.rfind(':'); colon != std::string_view::npos) {
        if (text.find(':') != colon) return std::nullopt; // an IPv6 address needs its brackets
        host = text.substr(0, colon);
        port = text.substr(colon + 1);
        if (port.empty()) return std::nullopt;
    }
    if (host.empty()) host = "0.0.0.0";
    if (!std::all_of(host.begin(), host.end(), [](char c) {
            return std::isalnum(static_cast<unsigned char>(c)) || c == '.' || c == ':' || c == '-';
        })) {
        return std::nullopt;
    }
    address.host = std::string(host);
    if (!port.empty()) {
        const auto number = portNumber(port);
        if (!number) return std::nullopt;
        address.port = *number;
    } else {
        address.port = defaultPort;
    }
    return address;
}

ListenAddress listenAddress(const SettingsStore& settings, const std::optional<std::string>& override)
{
    if (override) {
        if (auto address = parseListenAddress(*override)) return *address;
        log::warning("cannot listen for SIP calls on \"" + *override + "\"; using the setting");
    }
    const std::string value = read(settings, "listen");
    if (trim(value).empty()) return {};
    if (auto address = parseListenAddress(value)) return *address;
    log::warning("the SIP setting \"listen\" is \"" + value + "\", which is no ADDR:PORT; using 0.0.0.0:5060");
    return {};
}

std::vector<Account> accounts(const SettingsStore& settings)
{
    std::vector<Account> found;
    for (int n = 1; n < 100; ++n) {
        const std::string suffix = n == 1 ? "" : std::to_string(n);
        std::string address(trim(read(settings, "account" + suffix)));
        if (address.empty()) break;
        const std::string scheme = text::lower(address.substr(0, 5));
        if (!scheme.starts_with("sip:") && !scheme.starts_with("sips:")) address = "sip:" + address;
        const auto parsed = parseNameAddresses(address);
        if (parsed.size() != 1 || parsed.front().host.empty() || parsed.front().user.empty()) {
            log::warning("the SIP account \"" + address + "\" is no sip:user@domain address; it is left out");
            continue;
        }
        Account account;
        account.address = address;
        account.domain = parsed.front().host;
        // The registrar is the address's host part, with its port and transport if it names them.
        std::string hostPart = address.substr(address.rfind('@') + 1);
        hostPart = hostPart.substr(0, hostPart.find_first_of(">?"));
        account.server = (scheme.starts_with("sips:") ? "sips:" : "sip:") + hostPart;
        account.user = std::string(trim(read(settings, "user" + suffix)));
        if (account.user.empty()) account.user = parsed.front().user;
        account.password = read(settings, "password" + suffix);
        found.push_back(std::move(account));
    }
    return found;
}

Milliseconds ringInterval(const SettingsStore& settings)
{
    return Milliseconds(boundedNumber(settings, "ringinterval", defaultRingInterval.count(), 100, 60000));
}

std::chrono::seconds mediaLossTime(const SettingsStore& settings)
{
    return std::chrono::seconds(boundedNumber(settings, "medialoss", defaultMediaLoss.count(), 1, 3600));
}

std::string handOverPhone(const SettingsStore& settings) { return std::string(trim(read(settings, "phone"))); }

std::vector<std::string> trustedHosts(const SettingsStore& settings)
{
    std::vector<std::string> hosts;
    const std::string list = read(settings, "trusted");
    std::string_view rest = list;
    while (!rest.empty()) {
        const auto comma = rest.find(',');
        std::string_view host = trim(rest.substr(0, comma));
        if (!host.empty() && host.front() == '[' && host.back() == ']') host = host.substr(1, host.size() - 2);
        if (!host.empty()) hosts.push_back(text::lower(host));
        if (comma == std::string_view::npos) break;
        rest.remove_prefix(comma + 1);
    }
    return hosts;
}

std::string handOverAddress(std::string_view phone, const Account* account)
{
    phone = trim(phone);
    if (phone.empty()) return {};
    const std::string lowered = text::lower(phone.substr(0, std::min<std::size_t>(phone.size(), 5)));
    if (lowered.starts_with("sip:") || lowered.starts_with("sips:")) return std::string(phone);
    if (phone.find('@') != std::string_view::npos) return "sip:" + std::string(phone);
    if (!account) return {};
    return "sip:" + std::string(phone) + "@" + account->domain;
}

} // namespace corvel::sip
