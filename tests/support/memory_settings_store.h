#pragma once

#include <algorithm>
#include <cctype>
#include <map>
#include <string>

#include "base/settings_store.h"

namespace corvel::testing {

// Settings kept in memory, names folded to lower case as the real store compares them.
class MemorySettingsStore final : public SettingsStore {
public:
    std::string read(std::string_view application, std::string_view section, std::string_view key,
                     std::string_view fallback) const override
    {
        const auto found = values_.find(address(application, section, key));
        return found == values_.end() ? std::string(fallback) : found->second;
    }
    void write(std::string_view application, std::string_view section, std::string_view key,
               std::string_view value) override
    {
        values_[address(application, section, key)] = std::string(value);
    }
    void deleteKey(std::string_view application, std::string_view section,
                   std::string_view key) override
    {
        values_.erase(address(application, section, key));
    }

    // Section "data" of "withheld", where the tests set most values.
    void set(std::string_view key, std::string_view value) { write("withheld", "data", key, value); }

private:
    static std::string address(std::string_view application, std::string_view section,
                               std::string_view key)
    {
        std::string text = std::string(application) + '/' + std::string(section) + '/' + std::string(key);
        std::transform(text.begin(), text.end(), text.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        return text;
    }

    std::map<std::string, std::string> values_;
};

} // namespace corvel::testing
