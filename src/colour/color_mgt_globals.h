#pragma once

// colorManagementGlobals: a scene's colour settings, and the scene's face
// to the host's colour services. The node is the preferences object the
// host's colour code calls (it derives from TcolorMgtPrefs); it keeps the
// chosen transforms valid as configurations change, reacts to scene loads,
// and applies policy files.
//
// Every scene has one, "defaultColorMgtGlobals", among the defaults its
// render info makes.

#include <array>
#include <memory>

#include "framework/node_pattern.h"
#include "host/colour/prefs.h"

class TdependGraph;

#define ORVO_CMG_BOOL(A, Name, Long, Short, Default)                                               \
    A(TattributeBoolean, Name, Long, Short, .input().setNativeDefaultData(Default))
#define ORVO_CMG_STRING(A, Name, Long, Short) A(TattributeTyped, Name, Long, Short, .input())
// The transform names start as the built-in configuration's defaults, the
// names a new scene's reset writes, so that a new scene saves as empty.
#define ORVO_CMG_NAME(A, Name, Long, Short, Default)                                               \
    A(TattributeTyped, Name, Long, Short,                                                          \
      .input().setNativeDefaultData(OrvoMakeStringData(Default)))

#define ORVO_SCHEMA_TdnColorMgtGlobals(A, C2, C3)                                                  \
    ORVO_CMG_BOOL(A, CmEnabled, "cmEnabled", "cme", true)                                          \
    ORVO_CMG_BOOL(A, ConfigFileEnabled, "configFileEnabled", "cfe", false)                         \
    ORVO_CMG_STRING(A, ConfigFilePath, "configFilePath", "cfp")                                    \
    ORVO_CMG_NAME(A, ViewTransformName, "viewTransformName", "vtn", "Standard (sRGB)")             \
    ORVO_CMG_NAME(A, WorkingSpaceName, "workingSpaceName", "wsn", "scene-linear Rec.709-sRGB")     \
    ORVO_CMG_STRING(A, DefaultInputSpaceName, "defaultInputSpaceName", "din")                      \
    ORVO_CMG_BOOL(A, OutputTransformEnabled, "outputTransformEnabled", "ote", false)               \
    ORVO_CMG_BOOL(A, OutputTransformUseColorConversion, "outputTransformUseColorConversion",       \
                  "otc", false)                                                                    \
    ORVO_CMG_BOOL(A, PlaybOutputTransformEnabled, "playblastOutputTransformEnabled", "pote", true) \
    ORVO_CMG_BOOL(A, PlaybOutputTransformUseColorConversion,                                       \
                  "playblastOutputTransformUseColorConversion", "potc", false)                     \
    ORVO_CMG_BOOL(A, OutputUseViewTransform, "outputUseViewTransform", "ovt", true)                \
    ORVO_CMG_BOOL(A, PlaybOutputUseViewTransform, "playblastOutputUseViewTransform", "povt", true) \
    ORVO_CMG_NAME(A, OutputTransformName, "outputTransformName", "otn", "Standard (sRGB)")         \
    ORVO_CMG_NAME(A, PlaybOutputTransformName, "playblastOutputTransformName", "potn",             \
                  "Standard (sRGB)")

ORVO_NODE(TdnColorMgtGlobals, TdependNode, "colorManagementGlobals", "CMGB", 1096,
          "kColorMgtGlobals", "colorManagement", "n_colorManagementGlobals")

class TdnColorMgtGlobals : public TdnPattern<TdnColorMgtGlobals, TdependNode>,
                           public TcolorMgtPrefs {
public:
    static constexpr const char* kDefaultName = "defaultColorMgtGlobals";

    // The scene's node (the default one, else the first of the type), or null.
    static TdnColorMgtGlobals* find(const TdependGraph& graph);
    // The scene's node, made as the scene's default when it has none.
    static TdnColorMgtGlobals* ensure(TdependGraph& graph);

    // Makes the triggers and registers this node as the preferences
    // instance; runs once, when the default node is made. Resets the
    // settings to the new-scene state.
    void SetPrefsInstance();

    // ---- TcolorMgtPrefs
    void SetCMEnable(bool on) override;
    bool CMIsEnabled() const override;
    void SetCMConfigFileEnable(bool on) override;
    bool CMConfigFileIsEnabled() const override;
    void SetViewTransformName(const Tstring& name) override;
    Tstring GetViewTransformName() const override;
    void SetWorkingSpaceName(const Tstring& name) override;
    Tstring GetWorkingSpaceName() const override;
    void SetOutputTransformEnable(bool on) override;
    bool IsOutputTransformEnabled() const override;
    void SetOutputTransformUseColorConversion(bool on) override;
    bool OutputTransformUseColorConversion() const override;
    void SetPlayblastOutputTransformEnable(bool on) override;
    bool IsPlayblastOutputTransformEnabled() const override;
    void SetPlayblastOutputTransformUseColorConversion(bool on) override;
    bool PlayblastOutputTransformUseColorConversion() const override;
    void SetOutputUseViewTransform() override;
    bool OutputUseViewTransform() const override;
    void SetPlayblastOutputUseViewTransform() override;
    bool PlayblastOutputUseViewTransform() const override;
    void SetOutputTransformName(const Tstring& name) override;
    Tstring GetOutputTransformName() const override;
    void SetPlayblastOutputTransformName(const Tstring& name) override;
    Tstring GetPlayblastOutputTransformName() const override;
    void SetConfigFilePath(const Tstring& path) override;
    Tstring GetConfigFilePath() const override;
    Tstring GetDefaultInputSpaceName() const override;
    T3Float GetViewTransformedColor(const T3Float& color) const override;
    T3Float GetReverseViewTransformedColor(const T3Float& color) const override;
    bool HasIncompleteSettings() const override;
    void Reset() override;
    Tstring GetLoadedWorkingSpaceName() const override { return fLoadedWorkingSpace; }
    Tstring GetLoadedViewTransformName() const override { return fLoadedViewTransform; }
    Tstring GetLoadedOutputTransformName() const override { return fLoadedOutputTransform; }
    Tstring GetLoadedPlayblastOutputTransformName() const override {
        return fLoadedPlayblastOutputTransform;
    }
    void LoadPolicy(const Tstring& file) override;
    void RestoreDefaults() override;
    void RefreshInstance() override;
    void ColorManageAllNodes() override {}

    // False when the config file is on with an empty path.
    bool CheckInvariants() const;
    // Loads the configuration and gives every transform its default.
    void NotifyConfigChangedAndSetDefaults();
    void SetTransformDefaults();
    // Re-validates every name against the loaded configuration.
    void NotifyPrefsReloaded();

    // A scene load: the settings in force are remembered when it starts;
    // when it ends, old names are migrated and a change is announced.
    // `opening` tells opening a file from making a new scene.
    void sceneLoadStarted(bool opening);
    void sceneLoadEnded();
    // Loads the policy file the user's preference
    // "colorManagementPolicyFileName" names; false without one or when it
    // fails (the error is shown).
    bool applyPolicy();

    enum Trigger {
        kEnabledChanged,
        kConfigFileEnableChanged,
        kConfigFilePathChanged,
        kConfigChanged,
        kWorkingSpaceChanged,
        kViewTransformChanged,
        kPrefsReloaded,
        kOutputChanged,
        kPlayblastOutputChanged,
        kRefreshed,
        kTriggerCount
    };
    TcolorMgtTrigger& trigger(Trigger t) { return *fTriggers[t]; }

private:
    struct Snapshot {
        bool cmEnabled = false, configFileEnabled = false;
        Tstring viewTransform, workingSpace, configPath;
        bool outputEnabled = false, outputConversion = false;
        bool playblastEnabled = false, playblastConversion = false;
        Tstring outputName, playblastName;
        bool operator==(const Snapshot&) const = default;
    };
    Snapshot snapshot() const;

    bool flag(const Tattribute& attribute) const;
    Tstring text(const Tattribute& attribute) const;
    void writeFlag(const Tattribute& attribute, bool on);
    void writeText(const Tattribute& attribute, const Tstring& value);
    void fire(Trigger t);
    // The default of one of the four transforms: 0 view, 1 working space,
    // 2 output, 3 playblast output.
    Tstring transformDefault(int which) const;
    std::vector<Tstring> namesOf(int which) const;
    // The shared body of the four name setters.
    void setTransformName(int which, const Tstring& name);

    std::array<std::unique_ptr<TcolorMgtTrigger>, kTriggerCount> fTriggers;
    Tstring fLoadedWorkingSpace, fLoadedViewTransform, fLoadedOutputTransform,
        fLoadedPlayblastOutputTransform;
    Snapshot fSnapshot;
    int fLoadDepth = 0;
    bool fTurnedFloatTargetsOn = false;
};
