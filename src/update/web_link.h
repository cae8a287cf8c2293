#pragma once

#include <string>
#include <string_view>

#include "base/shell.h"
#include "base/view.h"

namespace corvel {

// Where Corvel's web site is; the page, the version list and the downloads all hang off it.
inline constexpr std::string_view defaultWebSite = "https://corvel.example.org";

// Opens a web address in the user's browser, telling the user when that cannot be done.
void linkup(Shell& shell, View& view, const std::string& webaddress);

} // namespace corvel
