#include "base/settings_store.h"

namespace corvel::settings {

std::string readData(const SettingsStore& store, std::string_view key, std::string_view fallback)
{
    return store.read(application, data, key, fallback);
}

bool dataFlag(const SettingsStore& store, std::string_view key, std::string_view fallback)
{
    return isSet(readData(store, key, fallback));
}

void writeData(SettingsStore& store, std::string_view key, std::string_view value)
{
    store.write(application, data, key, value);
}

} // namespace corvel::settings
