#pragma once

// A view of the colour settings that user-interface drawing goes through:
// whether colour management is on, the space colours are chosen in (the
// working space), and the view transform that takes them to the display.
// One state is current at a time; drawing code asks for it rather than for
// the scene's settings, so that a view with its own transform can stand in
// while it draws.

#include <memory>

#include "host/colour/catalog.h"
#include "host/types.h"

class TcolorMgtPrefs;

class TcolorMgtViewState {
public:
    TcolorMgtViewState(bool enabled, Tstring workingSpace, Tstring viewTransform);
    // The settings of the registered preferences; null when none is.
    static std::shared_ptr<const TcolorMgtViewState> fromPrefs();

    bool CMIsEnabled() const { return fEnabled; }
    const Tstring& workingSpace() const { return fWorkingSpace; }
    const Tstring& viewTransform() const { return fViewTransform; }

    // From the display back to the working space: the colour space the
    // view shows, converted to the working space. Empty when colour
    // management is off or a name is not in the configuration.
    TcolourProcessor inverseProcessor() const;

    // Restores the state that was current before, when it goes.
    class CurrentToken {
    public:
        ~CurrentToken();
        CurrentToken(const CurrentToken&) = delete;
        CurrentToken& operator=(const CurrentToken&) = delete;

    private:
        friend class TcolorMgtViewState;
        explicit CurrentToken(std::shared_ptr<const TcolorMgtViewState> previous)
            : fPrevious(std::move(previous)) {}
        std::shared_ptr<const TcolorMgtViewState> fPrevious;
    };
    // Makes `state` current until the token goes. Main thread only.
    static std::unique_ptr<CurrentToken>
    makeCurrent(std::shared_ptr<const TcolorMgtViewState> state);
    static std::shared_ptr<const TcolorMgtViewState> current();

private:
    bool fEnabled;
    Tstring fWorkingSpace;
    Tstring fViewTransform;
};
