#pragma once

// The colour-management preferences: the host's face of a scene's colour
// settings. The scene node that holds the settings derives from this class
// and registers itself as the instance; the host's colour code (file
// textures, image output, the catalogue's events) speaks to it through the
// virtual calls below.

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "host/colour/catalog.h"
#include "host/trigger.h"
#include "host/types.h"

// A named notification that scripts can listen to; firing counts and calls
// back, as every trigger does.
class TcolorMgtTrigger : public Ttrigger {
public:
    explicit TcolorMgtTrigger(Tstring event) : fEvent(std::move(event)) {}
    const Tstring& eventName() const { return fEvent; }

private:
    Tstring fEvent;
};

// The messages a change sends to the preferences' listeners.
enum class TcolorMgtMsg {
    kEnableChanged,             // TcolorMgtEnableChangedMsg
    kConfigChanged,             // TcolorMgtConfigChangedMsg
    kPrefsViewTransformChanged, // TcolorMgtPrefsViewTransformChangedMsg
    kOutputChanged,             // TcolorMgtOutputChangedMsg
    kPrefsReloaded,             // TcolorMgtPrefsReloadedMsg
};

class TcolorMgtPrefs {
public:
    TcolorMgtPrefs() = default;
    TcolorMgtPrefs(const TcolorMgtPrefs&) = delete;
    TcolorMgtPrefs& operator=(const TcolorMgtPrefs&) = delete;
    virtual ~TcolorMgtPrefs();

    // The registered preferences, or null.
    static TcolorMgtPrefs* GetInstance();
    static void SetInstance(TcolorMgtPrefs* prefs);

    // ---- the interface the settings node fills in. Setters throw a Tstring
    // with the message when they fail, after restoring the former value.
    virtual void SetCMEnable(bool on) = 0;
    virtual bool CMIsEnabled() const = 0;
    virtual void SetCMConfigFileEnable(bool on) = 0;
    virtual bool CMConfigFileIsEnabled() const = 0;
    virtual void SetViewTransformName(const Tstring& name) = 0;
    virtual Tstring GetViewTransformName() const = 0;
    virtual void SetWorkingSpaceName(const Tstring& name) = 0;
    virtual Tstring GetWorkingSpaceName() const = 0;
    virtual void SetOutputTransformEnable(bool on) = 0;
    virtual bool IsOutputTransformEnabled() const = 0;
    virtual void SetOutputTransformUseColorConversion(bool on) = 0;
    virtual bool OutputTransformUseColorConversion() const = 0;
    virtual void SetPlayblastOutputTransformEnable(bool on) = 0;
    virtual bool IsPlayblastOutputTransformEnabled() const = 0;
    virtual void SetPlayblastOutputTransformUseColorConversion(bool on) = 0;
    virtual bool PlayblastOutputTransformUseColorConversion() const = 0;
    virtual void SetOutputUseViewTransform() = 0;
    virtual bool OutputUseViewTransform() const = 0;
    virtual void SetPlayblastOutputUseViewTransform() = 0;
    virtual bool PlayblastOutputUseViewTransform() const = 0;
    virtual void SetOutputTransformName(const Tstring& name) = 0;
    virtual Tstring GetOutputTransformName() const = 0;
    virtual void SetPlayblastOutputTransformName(const Tstring& name) = 0;
    virtual Tstring GetPlayblastOutputTransformName() const = 0;
    virtual void SetConfigFilePath(const Tstring& path) = 0;
    virtual Tstring GetConfigFilePath() const = 0;
    virtual Tstring GetDefaultInputSpaceName() const = 0;
    // A colour in the working space through the view transform, and back.
    virtual T3Float GetViewTransformedColor(const T3Float& color) const = 0;
    virtual T3Float GetReverseViewTransformedColor(const T3Float& color) const = 0;
    virtual bool HasIncompleteSettings() const = 0;
    virtual void Reset() = 0;
    virtual Tstring GetLoadedWorkingSpaceName() const = 0;
    virtual Tstring GetLoadedViewTransformName() const = 0;
    virtual Tstring GetLoadedOutputTransformName() const = 0;
    virtual Tstring GetLoadedPlayblastOutputTransformName() const = 0;
    virtual void LoadPolicy(const Tstring& file) = 0;
    virtual void RestoreDefaults() = 0;
    virtual void RefreshInstance() = 0;
    virtual void ColorManageAllNodes() = 0;

    // ---- what the host's colour library offers the node
    // 1 when a configuration file is in force, else 0.
    int GetMode() const;
    // Loads the configuration the settings name (the file when the config
    // file is on, else the built-in one). False, with `why`, when the file
    // cannot be used; the built-in configuration is then in force.
    bool RefreshColorSpaces(std::string& why);
    // Reloads the built-in configuration's tables of synthetic colours.
    void RefreshSynColor() {}
    std::vector<Tstring> GetViewTransformNames() const;
    std::vector<Tstring> GetWorkingSpaceNames() const;
    std::vector<Tstring> GetInputSpaceNames() const;
    std::vector<Tstring> GetRendererOutputTransformNames() const;
    std::vector<Tstring> GetPlayblastOutputTransformNames() const;
    // Deprecated colour spaces are left out of the lists while hidden.
    void HideDeprecatedColorSpaces(int hide) { fHideDeprecated = hide != 0; }
    bool DeprecatedColorSpacesHidden() const { return fHideDeprecated; }

    static Tstring GetNativeDefaultViewTransformName();
    static Tstring GetNativeDefaultWorkingSpaceName();
    static Tstring GetNativeDefaultInputTransformName();
    static Tstring GetNativeDefaultOutputTransformName();

    // ---- messages: listeners hear every change unless an InhibitEvents
    // scope is alive.
    using Listener = std::function<void(TcolorMgtMsg)>;
    void addListener(Listener listener) { fListeners.push_back(std::move(listener)); }
    void sendMessage(TcolorMgtMsg msg);

    class InhibitEvents {
    public:
        explicit InhibitEvents(TcolorMgtPrefs& prefs) : fPrefs(prefs) { ++fPrefs.fInhibit; }
        ~InhibitEvents() { --fPrefs.fInhibit; }
        InhibitEvents(const InhibitEvents&) = delete;
        InhibitEvents& operator=(const InhibitEvents&) = delete;

    private:
        TcolorMgtPrefs& fPrefs;
    };

private:
    std::vector<Listener> fListeners;
    int fInhibit = 0;
    bool fHideDeprecated = true;
};
