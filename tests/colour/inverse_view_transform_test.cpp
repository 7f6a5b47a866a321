// Interface colours taken back through the inverse of a view transform, one
// at a time and for the life of a drawing scope, checked against the
// encoding curves of the built-in configuration worked by hand.

#include <gtest/gtest.h>

#include <cstdlib>

#include "colour/inverse_view_transform.h"

namespace {

std::shared_ptr<const TcolorMgtViewState> view(const char* name, bool enabled = true) {
    return std::make_shared<const TcolorMgtViewState>(enabled, "", name);
}

// 0.5 through the sRGB curve: 1.055 * 0.5^(1 / 2.4) - 0.055.
constexpr float kSrgbHalf = 0.735357f;
// 0.5 through a pure 2.4 power: 0.5^(1 / 2.4).
constexpr float kGamma24Half = 0.749154f;

// Sets the interface colours to `v` (grey), alpha 0.25.
void setInterfaceColours(float v) {
    TcolorPrefManager::instance().setColor("background", {v, v, v, 0.25f});
    TmodelAttributes::instance().setColor("lead", {v, v, v, 0.25f});
    T3dPort::modelViewColorTable().assign(2, {v, v, v, 0.25f});
}

void expectInterfaceColours(float v) {
    EXPECT_NEAR(TcolorPrefManager::instance().color("background")->g, v, 1e-4f);
    EXPECT_NEAR(TmodelAttributes::instance().color("lead")->g, v, 1e-4f);
    ASSERT_EQ(T3dPort::modelViewColorTable().size(), 2u);
    EXPECT_NEAR(T3dPort::modelViewColorTable()[1].g, v, 1e-4f);
    EXPECT_FLOAT_EQ(TmodelAttributes::instance().color("lead")->a, 0.25f);
}

} // namespace

TEST(InverseViewTransform, TakesAColourBackThroughTheView) {
    // The sRGB display's view: its curve undone, 0.7354 back to 0.5.
    const TportColor srgb = TinverseViewTransform(view("Standard (sRGB)"))({kSrgbHalf, 1, 0, 0.3f});
    EXPECT_NEAR(srgb.r, 0.5f, 1e-4f);
    EXPECT_NEAR(srgb.g, 1.0f, 1e-4f);
    EXPECT_NEAR(srgb.b, 0.0f, 1e-6f);
    EXPECT_FLOAT_EQ(srgb.a, 0.3f);
    // The Rec.709 display's view is a 2.4 power: 0.749154^2.4 = 0.5.
    EXPECT_NEAR(TinverseViewTransform(view("Standard (Rec.709)"))({kGamma24Half, 0, 0, 1}).r, 0.5f,
                1e-4f);
    // No state, or colour management off: the colour as it is.
    EXPECT_EQ(TinverseViewTransform(nullptr)({kSrgbHalf, 0, 0, 1}).r, kSrgbHalf);
    EXPECT_EQ(TinverseViewTransform(view("Standard (sRGB)", false))({kSrgbHalf, 0, 0, 1}).r,
              kSrgbHalf);
}

TEST(InverseViewTransformGuard, InvertsTheInterfaceColoursForItsLife) {
    ASSERT_FALSE(TinverseViewTransformGuard::uiInverseDisabled());
    setInterfaceColours(kSrgbHalf);
    const auto state = view("Standard (sRGB)");
    {
        TinverseViewTransformGuard guard(state);
        EXPECT_TRUE(guard.active());
        EXPECT_EQ(TcolorMgtViewState::current(), state);
        EXPECT_EQ(TcolorPrefManager::instance().pushedCopies(), 1u);
        expectInterfaceColours(0.5f);
        // A model colour set within the scope is the scope's: the memento
        // puts back what there was.
        TmodelAttributes::instance().setColor("lead", {0, 0, 0, 1});
        // Moving hands the scope over; the moved-from guard restores nothing.
        TinverseViewTransformGuard moved(std::move(guard));
        EXPECT_TRUE(moved.active());
        EXPECT_FALSE(guard.active());
    }
    expectInterfaceColours(kSrgbHalf);
    EXPECT_EQ(TcolorMgtViewState::current(), nullptr);
    EXPECT_EQ(TcolorPrefManager::instance().pushedCopies(), 0u);

    // Without a state, or with colour management off, nothing changes.
    for (const auto& none :
         {std::shared_ptr<const TcolorMgtViewState>(), view("Standard (sRGB)", false)}) {
        TinverseViewTransformGuard guard(none);
        EXPECT_FALSE(guard.active());
        expectInterfaceColours(kSrgbHalf);
        EXPECT_EQ(TcolorPrefManager::instance().pushedCopies(), 0u);
    }
}

// The variable is read once per process, so the case runs in a fresh one: a
// threadsafe death test runs this test again from the top in a new process,
// which inherits the variable.
TEST(InverseViewTransformGuard, DoesNothingWithTheVariableSet) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    constexpr const char* kVariable = "ORVO_COLOR_MANAGEMENT_DISABLE_UI_INVERSE";
    const bool child = std::getenv(kVariable) != nullptr;
    // This process keeps the verdict it read before the variable is set.
    const bool before = TinverseViewTransformGuard::uiInverseDisabled();
    if (!child)
        ::setenv(kVariable, "1", 1);
    EXPECT_EXIT(
        {
            setInterfaceColours(kSrgbHalf);
            TinverseViewTransformGuard guard(view("Standard (sRGB)"));
            const bool untouched = !guard.active() &&
                                   TmodelAttributes::instance().color("lead")->g == kSrgbHalf &&
                                   TcolorPrefManager::instance().pushedCopies() == 0;
            std::exit(untouched ? 0 : 3);
        },
        ::testing::ExitedWithCode(0), "");
    if (!child) {
        ::unsetenv(kVariable);
        EXPECT_FALSE(before);
    }
}
