#include "host/colour/pref_manager.h"

TcolorPrefManager& TcolorPrefManager::instance() {
    static TcolorPrefManager manager;
    return manager;
}

TcolorPrefManager::Palette& TcolorPrefManager::palettes() {
    return fStack.back();
}

const TportColor* TcolorPrefManager::color(const Tstring& name) const {
    const auto it = fStack.back().find(name);
    return it == fStack.back().end() ? nullptr : &it->second;
}

void TcolorPrefManager::setColor(const Tstring& name, const TportColor& colour) {
    fStack.back()[name] = colour;
}

TcolorPrefManager::PaletteCopy::~PaletteCopy() {
    std::vector<Palette>& stack = TcolorPrefManager::instance().fStack;
    if (stack.size() > 1)
        stack.pop_back();
}

std::unique_ptr<TcolorPrefManager::PaletteCopy> TcolorPrefManager::pushCopyPalettes() {
    fStack.push_back(fStack.back());
    return std::unique_ptr<PaletteCopy>(new PaletteCopy());
}
