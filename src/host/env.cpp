#include "host/env.h"

#include <charconv>
#include <cstdlib>
#include <map>
#include <mutex>

namespace {

struct EnvCache {
    std::mutex mutex;
    std::map<std::string, std::optional<std::string>, std::less<>> values;
};

EnvCache& envCache() {
    static EnvCache cache;
    return cache;
}

std::string_view trimBlanks(std::string_view text) {
    const auto isBlank = [](char c) {
        return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v';
    };
    while (!text.empty() && isBlank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back()))
        text.remove_suffix(1);
    return text;
}

// from_chars takes a leading '-' but not '+'; people write both. A sign
// after the '+' is not a number. Returns false when nothing is left.
bool dropPlusSign(std::string_view& text) {
    if (!text.empty() && text.front() == '+') {
        text.remove_prefix(1);
        if (!text.empty() && (text.front() == '-' || text.front() == '+'))
            return false;
    }
    return !text.empty();
}

} // namespace

std::optional<std::string> OrvoGetEnv(const char* name) {
    EnvCache& cache = envCache();
    std::lock_guard lock(cache.mutex);
    auto it = cache.values.find(std::string_view(name));
    if (it == cache.values.end()) {
        const char* raw = std::getenv(name);
        std::optional<std::string> value;
        if (raw)
            value = std::string(raw);
        it = cache.values.emplace(name, std::move(value)).first;
    }
    return it->second;
}

bool OrvoEnvIsSet(const char* name) {
    const auto value = OrvoGetEnv(name);
    return value && !value->empty();
}

long long OrvoGetEnvInt(const char* name, long long fallback) {
    const auto value = OrvoGetEnv(name);
    if (!value)
        return fallback;
    return OrvoParseInteger(*value).value_or(fallback);
}

double OrvoGetEnvDouble(const char* name, double fallback) {
    const auto value = OrvoGetEnv(name);
    if (!value)
        return fallback;
    return OrvoParseDouble(*value).value_or(fallback);
}

void OrvoEnvRefresh() {
    EnvCache& cache = envCache();
    std::lock_guard lock(cache.mutex);
    cache.values.clear();
}

std::optional<long long> OrvoParseInteger(std::string_view text) {
    text = trimBlanks(text);
    if (!dropPlusSign(text))
        return std::nullopt;
    long long value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return value;
}

std::optional<double> OrvoParseDouble(std::string_view text) {
    text = trimBlanks(text);
    if (!dropPlusSign(text))
        return std::nullopt;
    double value = 0.0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return value;
}
