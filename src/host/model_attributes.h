#pragma once

// The colours the viewport draws the model's own parts in (wireframes,
// selections, components, the grid), by name. A drawing scope may change
// them for a while: it saves them to a memento first and restores them from
// it after.

#include <map>
#include <memory>

#include "host/draw/port.h"
#include "host/types.h"

class TmodelAttributes {
public:
    using Colors = std::map<Tstring, TportColor>;

    static TmodelAttributes& instance();

    Colors& colors() { return fColors; }
    const TportColor* color(const Tstring& name) const;
    void setColor(const Tstring& name, const TportColor& colour) { fColors[name] = colour; }

    // A copy of the colours as they stand.
    struct Memento {
        Colors colors;
    };
    std::unique_ptr<Memento> saveToMemento() const;
    void restoreFromMemento(const Memento& memento) { fColors = memento.colors; }

private:
    TmodelAttributes() = default;
    Colors fColors;
};
