#include "viewport/file_colour.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "colour/colour_choice.h"
#include "textures/file_texture.h"
#include "viewport/material_texture.h"

std::shared_ptr<const TpixelMap> OrvoFileMapInRenderingSpace(std::shared_ptr<const TpixelMap> map,
                                                             TdnFileTexture& node,
                                                             const Tstring& fileName) {
    if (!map)
        return map;
    const TcolourRenderSettings settings = OrvoColourRenderSettings(node.graph());
    const TcolourInputChoice choice = OrvoChooseInputColour(
        settings, fileName, false, OrvoAttributeValue(&node, "colorSpace", Tstring()),
        OrvoAttributeValue(&node, "ignoreColorSpaceFileRules", false),
        OrvoAttributeValue(&node, "colorManagementEnabled", true));
    if (choice.processor.isNoOp())
        return map;
    auto out = std::make_shared<TpixelMap>(map->width(), map->height(), map->channels());
    std::copy_n(map->data(), size_t(map->width()) * map->height() * TpixelMap::kComponents,
                out->data());
    const size_t count = size_t(out->width()) * out->height();
    std::vector<float> rgb(count * 3);
    for (unsigned y = 0, i = 0; y < out->height(); ++y)
        for (unsigned x = 0; x < out->width(); ++x, ++i) {
            const uint8_t* p = out->pixel(x, y);
            rgb[i * 3 + 0] = float(p[TpixelMap::kRed]) / 255.0f;
            rgb[i * 3 + 1] = float(p[TpixelMap::kGreen]) / 255.0f;
            rgb[i * 3 + 2] = float(p[TpixelMap::kBlue]) / 255.0f;
        }
    choice.processor.apply(rgb.data(), count, 3);
    const auto byte = [](float v) {
        return uint8_t(std::lround(std::clamp(v, 0.0f, 1.0f) * 255.0f));
    };
    for (unsigned y = 0, i = 0; y < out->height(); ++y)
        for (unsigned x = 0; x < out->width(); ++x, ++i) {
            uint8_t* p = out->pixel(x, y);
            p[TpixelMap::kRed] = byte(rgb[i * 3 + 0]);
            p[TpixelMap::kGreen] = byte(rgb[i * 3 + 1]);
            p[TpixelMap::kBlue] = byte(rgb[i * 3 + 2]);
        }
    return out;
}
