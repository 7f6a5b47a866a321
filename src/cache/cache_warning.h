#pragma once

#include <functional>
#include <string>
#include <string_view>

// Warnings of the caches to the user. They go to a sink: by default standard
// error, as "Warning: <text>"; tests put their own sink in place to see them.
//
// The command engine's displayWarning is where user messages belong; until the
// caches reach it, this is the one place that decides where theirs go.

using TcacheWarningSink = std::function<void(const std::string&)>;

void cacheWarning(const std::string& text);

// Installs `sink` (an empty function restores the default) and returns the
// one that was in place.
TcacheWarningSink setCacheWarningSink(TcacheWarningSink sink);

// The text of a cache message, by its identifier (such as
// "s_TrenderSwapStrings.rSwapLimitErrorStr"), with {} standing for its
// arguments. An unknown identifier gives the identifier itself.
std::string cacheMessageText(std::string_view id);
