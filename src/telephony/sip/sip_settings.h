#pragma once

// The SIP line's settings: section "sip" of application "withheld".
//
//   listen        where the direct line takes calls, "ADDR:PORT" ("[ADDR]:PORT" for IPv6);
//                 default 0.0.0.0:5060
//   account       a SIP account to register, as its address ("sip:620@fritz.box"); further
//                 accounts as account2, account3 ... each with its own user and password
//   user          the name to log in with (default: the account address's user part)
//   password      kept in the settings file, which only its owner can read; never logged
//   phone         the user's own telephone, to which a caller is handed over ("sip:**611@fritz.box",
//                 or an extension that the account's server knows); empty: the desktop itself
//   ringinterval  milliseconds between two rings of an incoming call; default 6000
//   trusted       hosts, separated by commas, whose P-Asserted-Identity counts; an account's
//                 server always counts for calls through it
//   medialoss     seconds without a sound from the caller after which the call has been lost;
//                 default 60

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/event_loop.h"
#include "base/settings_store.h"

namespace corvel::sip {

inline constexpr std::string_view section = "sip";

struct ListenAddress {
    std::string host = "0.0.0.0";
    int port = 5060;
    bool ipv6() const { return host.find(':') != std::string::npos; }
    std::string text() const; // "host:port", with brackets around an IPv6 host
};

// "ADDR:PORT", "[ADDR]:PORT", "ADDR" (port 5060) or ":PORT" (every address); nothing when it
// is none of those or the port is out of range.
std::optional<ListenAddress> parseListenAddress(std::string_view text);

struct Account {
    std::string address;  // sip:user@domain
    std::string user;     // the login name
    std::string password;
    std::string domain;   // the host of `address`
    std::string server;   // where it registers: "sip:" and the host part of `address`, port included
};

// The listen address: `override` (the --sip-listen option) when given, else the setting; a
// setting that cannot be read is logged and the default taken.
ListenAddress listenAddress(const SettingsStore& settings, const std::optional<std::string>& override);

// The configured accounts, in order; reading stops at the first empty "accountN". An account
// whose address is no SIP address is logged and left out.
std::vector<Account> accounts(const SettingsStore& settings);

Milliseconds ringInterval(const SettingsStore& settings);
std::chrono::seconds mediaLossTime(const SettingsStore& settings);
std::string handOverPhone(const SettingsStore& settings);
std::vector<std::string> trustedHosts(const SettingsStore& settings);

// The address to hand a caller over to: `phone` as a SIP address, completed with the
// account's domain when it is only a number or name; empty when it cannot be completed.
std::string handOverAddress(std::string_view phone, const Account* account);

} // namespace corvel::sip
