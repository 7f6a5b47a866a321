#pragma once

#include <functional>
#include <string>
#include <string_view>

// Warnings of the caches to the user. They go through the command engine's
// displayWarning, unless a test has put a sink of its own in place.

using TcacheWarningSink = std::function<void(const std::string&)>;

void cacheWarning(const std::string& text);

// Installs `sink` (an empty function restores the default) and returns the
// one that was in place.
TcacheWarningSink setCacheWarningSink(TcacheWarningSink sink);

// The text of a cache message from the string catalogue, by its identifier
// (such as "s_TrenderSwapStrings.rSwapLimitErrorStr"), with {} standing for
// its arguments. An unknown identifier gives the identifier itself.
std::string cacheMessageText(std::string_view id);
