#include "host/draw/file_pixel_map_cache.h"

#include <map>
#include <mutex>
#include <set>
#include <tuple>

#include <fmt/format.h>

#include "host/dependnode.h"
#include "host/image_file.h"
#include "host/messages.h"

namespace {

struct Cache {
    std::mutex mutex;
    std::map<std::tuple<Tstring, int, bool>, std::shared_ptr<const TpixelMap>> maps;
    std::set<Tstring> warned;
};

Cache& cache() {
    static Cache c;
    return c;
}

} // namespace

std::shared_ptr<const TpixelMap> TfilePixelMapCache::pixelMap(const Tstring& fileName, int frame,
                                                              bool useAlpha,
                                                              const TdependNode* node) {
    Cache& c = cache();
    std::lock_guard<std::mutex> lock(c.mutex);
    const auto key = std::make_tuple(fileName, frame, useAlpha);
    if (const auto it = c.maps.find(key); it != c.maps.end())
        return it->second;
    Tstring error;
    auto file = TimageFile::identifyAndOpen(fileName, &error);
    auto map = std::make_shared<TpixelMap>();
    if (!file || !file->readPixelMap(*map)) {
        if (c.warned.insert(fileName).second)
            TcommandEngine::displayWarning(fmt::format(
                "{}: cannot read '{}' for the viewport{}{}", node ? node->name() : "", fileName,
                error.empty() ? "" : ": ", error.empty() && file ? file->errorText() : error));
        c.maps.emplace(key, nullptr);
        return nullptr;
    }
    if (!useAlpha && map->channels() == 4) {
        for (unsigned y = 0; y < map->height(); ++y)
            for (unsigned x = 0; x < map->width(); ++x)
                map->pixel(x, y)[TpixelMap::kAlpha] = 255;
        map->setChannels(3);
    }
    std::shared_ptr<const TpixelMap> shared = std::move(map);
    c.maps.emplace(key, shared);
    return shared;
}

void TfilePixelMapCache::clear() {
    Cache& c = cache();
    std::lock_guard<std::mutex> lock(c.mutex);
    c.maps.clear();
    c.warned.clear();
}
