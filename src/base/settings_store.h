#pragma once

#include <string>
#include <string_view>

namespace corvel {

// Per-user settings: text values addressed by application, section and key. Names compare
// without regard to case. There is no cache in front of it: every reader asks at the moment
// it needs a value and gives its own default.
class SettingsStore {
public:
    virtual ~SettingsStore() = default;

    // The stored text, or `fallback` when the key is absent or cannot be read.
    virtual std::string read(std::string_view application, std::string_view section,
                             std::string_view key, std::string_view fallback) const = 0;
    // Stores the text durably before returning; failures are logged, not reported.
    virtual void write(std::string_view application, std::string_view section,
                       std::string_view key, std::string_view value) = 0;
    // Removes one key; an absent key is no error.
    virtual void deleteKey(std::string_view application, std::string_view section,
                           std::string_view key) = 0;
};

namespace settings {

inline constexpr std::string_view application = "withheld";
inline constexpr std::string_view data = "data";
inline constexpr std::string_view audio = "audio";
inline constexpr std::string_view version = "version";

// A flag is set exactly when its text is "True", letter case included.
inline bool isSet(std::string_view flag) { return flag == "True"; }

// Section "data" of application "withheld", where nearly every preference lives.
std::string readData(const SettingsStore& store, std::string_view key, std::string_view fallback);
bool dataFlag(const SettingsStore& store, std::string_view key, std::string_view fallback);
void writeData(SettingsStore& store, std::string_view key, std::string_view value);

} // namespace settings
} // namespace corvel
