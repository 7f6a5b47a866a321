#pragma once

#include <optional>
#include <string>
#include <string_view>

// Environment settings. Each variable is read from the process environment the
// first time it is asked for and cached, so that a render sees one value from
// start to end even if something changes the environment underneath it.
// Tests that change a variable call OrvoEnvRefresh() to drop the cache.

// The value of NAME, or nothing when it is not set.
std::optional<std::string> OrvoGetEnv(const char* name);

// True when NAME is set to anything but the empty string.
bool OrvoEnvIsSet(const char* name);

// NAME as a whole number; `fallback` when it is unset or not a number.
long long OrvoGetEnvInt(const char* name, long long fallback);

// NAME as a number; `fallback` when it is unset or not a number.
double OrvoGetEnvDouble(const char* name, double fallback);

// Forgets every cached value.
void OrvoEnvRefresh();

// Parsing rules shared by the helpers above (and by anything else that reads
// numbers written by people): surrounding blanks are ignored, the whole rest
// must be the number.
std::optional<long long> OrvoParseInteger(std::string_view text);
std::optional<double> OrvoParseDouble(std::string_view text);
