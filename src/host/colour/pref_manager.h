#pragma once

// The user-interface colour palettes: named colours that menus, handles and
// overlays are drawn in, chosen by the user as they should look on screen.
// A drawing scope that needs other values for a while (colours that will
// still go through a view transform) pushes a copy, changes the copy, and
// pops it when done; the user's own palettes are never touched.

#include <map>
#include <memory>
#include <vector>

#include "host/draw/port.h"
#include "host/types.h"

class TcolorPrefManager {
public:
    using Palette = std::map<Tstring, TportColor>;

    static TcolorPrefManager& instance();

    // The palettes in force: the top copy, or the user's own.
    Palette& palettes();
    const TportColor* color(const Tstring& name) const;
    void setColor(const Tstring& name, const TportColor& colour);

    // Pops the copy it pushed when it goes (copies pushed later are popped
    // first, by their own tokens).
    class PaletteCopy {
    public:
        ~PaletteCopy();
        PaletteCopy(const PaletteCopy&) = delete;
        PaletteCopy& operator=(const PaletteCopy&) = delete;

    private:
        friend class TcolorPrefManager;
        PaletteCopy() = default;
    };
    // Pushes a copy of the palettes in force, which then is in force.
    std::unique_ptr<PaletteCopy> pushCopyPalettes();
    size_t pushedCopies() const { return fStack.size() - 1; }

private:
    TcolorPrefManager() : fStack(1) {}
    std::vector<Palette> fStack; // the user's own first
};
