#include <gtest/gtest.h>

#include "host/hash.h"
#include "settings/image_name.h"

// The pattern language, case by case, each result worked out from its rules.
namespace {

Tstring name(const Tstring& pattern, int frame, const Tstring& camera = "cam",
             const Tstring& layer = "", const Tstring& pass = "", const Tstring& custom = "",
             bool keepUnknown = false) {
    return TimageName::relativeFileName(pattern, frame, true, "", "iff", "ball", camera, layer,
                                        pass, "", "v2", false, custom, keepUnknown);
}

TEST(ImageName, NumberShorthandsLongestRunFirst) {
    EXPECT_EQ(TimageName::fixNumberPattern("a.@@@.#"), "a.%3n.%4n");
    // Seven @ are a run of six and a run of one.
    EXPECT_EQ(TimageName::fixNumberPattern("@@@@@@@"), "%6n%n");
    EXPECT_EQ(TimageName::fixNumberPattern("x@@y@@@@@"), "x%2ny%5n");
}

TEST(ImageName, FrameNumbersPadSignAndSeparate) {
    auto number = [](const Tstring& text, int frame) {
        return TimageName::replaceNumberFormatString(text, "n", frame, true, "");
    };
    // -7 with width 4: the sign takes a place, so 3 digits "007".
    EXPECT_EQ(number("%4n", -7), "-007");
    EXPECT_EQ(number("%_4n", -7), "_-007");
    // Width 2 less the sign is 1: "7", and "/" goes behind.
    EXPECT_EQ(number("%/2n", -7), "-7/");
    EXPECT_EQ(number("a.%4n.b", 12), "a.0012.b");
    EXPECT_EQ(number("a%-3n", 5), "a-005");
    EXPECT_EQ(number("a%.n", 12345), "a.12345");
    // A number wider than the padding keeps its digits.
    EXPECT_EQ(number("%2n", 12345), "12345");
    // Every token is replaced, the last first.
    EXPECT_EQ(number("%2n_%3n", 4), "04_004");
    // Disabled without an override: the token and its separator vanish.
    EXPECT_EQ(TimageName::replaceNumberFormatString("a%_4n.b", "n", 3, false, ""), "a.b");
    // An override stands as it is, without the separator.
    EXPECT_EQ(TimageName::replaceNumberFormatString("a%_4n", "n", 3, true, "tmp"), "atmp");
    EXPECT_EQ(TimageName::relativeFileName("a.%4n.%e", 3, false, "tmp", "iff", "", "", "", "", "",
                                           "", false, "", false),
              "a.tmp.iff");
    // An override that is itself a token does not loop for ever: what it
    // brings in is not read again, however many "%" the text holds.
    EXPECT_EQ(TimageName::replaceNumberFormatString("a.%4n", "n", 3, true, "%4n"), "a.%4n");
    EXPECT_EQ(TimageName::replaceNumberFormatString("%%%%a.%4n", "n", 3, true, "x%2n"),
              "%%%%a.x%2n");
    // A token is still found where the text before it and the value meet:
    // "%" and the override "n" make "%n", which is replaced in its turn.
    EXPECT_EQ(TimageName::replaceNumberFormatString("b%%3n", "n", 3, true, "n"), "bn");
}

TEST(ImageName, TokensAndTheirSeparators) {
    EXPECT_EQ(name("%s.%4n.%e", 7), "ball.0007.iff");
    EXPECT_EQ(name("<Scene>_<Camera>.<Extension>", 7), "ball_cam.iff");
    EXPECT_EQ(name("%/c%s_%v", 7), "cam/ball_v2");
    EXPECT_EQ(name("%s%_c%-c%.c", 7), "ball_cam-cam.cam");
    // An empty value takes its separator with it, and "%/c" leaves no
    // leading slash behind.
    EXPECT_EQ(name("%/c%s%_c", 7, ""), "ball");
    // A pattern that really begins with "/" keeps it.
    EXPECT_EQ(name("/renders/%s.%e", 7), "/renders/ball.iff");
    // Layer with pass "closeUp_diffuse"; the pass alone without a layer.
    EXPECT_EQ(name("%/l%s", 1, "cam", "closeUp", "diffuse"), "closeUp_diffuse/ball");
    EXPECT_EQ(name("%/l%s", 1, "cam", "", "diffuse"), "diffuse/ball");
    // ":" and "|" in a value become "_".
    EXPECT_EQ(name("%c", 1, "ns:cam|shape"), "ns_cam_shape");
}

TEST(ImageName, CustomTokens) {
    EXPECT_EQ(name("<Foo>%s", 1), "ball");
    EXPECT_EQ(name("<Foo>%s", 1, "cam", "", "", "", true), "<Foo>ball");
    EXPECT_EQ(name("<Shot>/%s", 1, "cam", "", "", "Shot=sh010"), "sh010/ball");
    // "Take=" gives an empty value; entries of other forms are skipped.
    EXPECT_EQ(name("a<Take>b<X>", 1, "cam", "", "", "Take= X=1=2 =3", true), "ab<X>");
    // The version tokens are always 0, whatever the caller says.
    EXPECT_EQ(name("%s_<SceneVersion>", 1, "cam", "", "", "SceneVersion=9"), "ball_0");
    // <RenderLayer> is the layer with its pass.
    EXPECT_EQ(name("<RenderLayer>/%s", 1, "cam", "bg", "shadow"), "bg_shadow/ball");
    // The greedy rule: the last "<" before the last ">" to that ">".
    EXPECT_EQ(TimageName::replaceCustomTokens("a<b>c<d>e", "", false), "ace");
    EXPECT_EQ(TimageName::replaceCustomTokens("a<b>>c", "", false), "ac");
    EXPECT_EQ(TimageName::replaceCustomTokens("x<y<z>", "", false), "x<y");
    // Leading slashes go unless the text began with one: "//a" -> "a", "/" -> "".
    EXPECT_EQ(TimageName::replaceCustomTokens("<Gone>//a", "", false), "a");
    EXPECT_EQ(TimageName::replaceCustomTokens("<Gone>/", "", false), "");
}

TEST(ImageName, PatternsAreCompletedLayerCameraPassFrame) {
    // The frame goes before the ending "." extension.
    EXPECT_EQ(TimageName::fixPattern("a.%e", true, false, false, false), "a%_4n.%e");
    EXPECT_EQ(TimageName::fixPattern("a", true, false, false, false), "a%_4n");
    EXPECT_EQ(TimageName::fixPattern("a.%-e", true, false, false, false), "a%_4n.%-e");
    // A frame of any width is a frame: nothing is added.
    EXPECT_EQ(TimageName::fixPattern("a.%12n.%e", true, false, false, false), "a.%12n.%e");
    EXPECT_EQ(TimageName::fixPattern("a.#.%e", true, false, false, false), "a.%4n.%e");
    // Directories read layer, camera, pass.
    EXPECT_EQ(TimageName::fixPattern("%s.%e", false, true, true, true), "%/l%/c<RenderPass>/%s.%e");
    // A pattern that names them already keeps its own places.
    EXPECT_EQ(TimageName::fixPattern("%s_%c_<RenderLayer>", false, true, true, false),
              "%s_%c_<RenderLayer>");
    EXPECT_EQ(TimageName::fixPattern("<RenderPass>_%s", false, false, false, true),
              "<RenderPass>_%s");
}

TEST(ImageName, BufferNames) {
    EXPECT_EQ(TimageName::fixBufferNamePattern("", false), "<RenderPassType>:<RenderPass>");
    // "<Camera>", then "." in front, then the pass type and pass.
    EXPECT_EQ(TimageName::fixBufferNamePattern("", true), "<RenderPassType>:<RenderPass>.<Camera>");
    EXPECT_EQ(TimageName::fixBufferNamePattern("%l", true),
              "<RenderPassType>:<RenderPass>.<Camera>-%l");
    EXPECT_EQ(TimageName::fixBufferNamePattern("<RenderPassType>", false),
              "<RenderPass>.<RenderPassType>");
    EXPECT_EQ(TimageName::fixBufferNamePattern("<RenderPass>", true), "<Camera>-<RenderPass>");

    Tstring whole;
    EXPECT_EQ(TimageName::getBufferName("<RenderPassType>:<RenderPass>.<Camera>", "DIFF", "dif1",
                                        "cam", "", whole, 28, "", false),
              "DIFF:dif1.cam");
    EXPECT_EQ(whole, "DIFF:dif1.cam");
    EXPECT_EQ(TimageName::getBufferName("%t_%n_%l", "SPEC", "s", "", "bg", whole, 28, "", false),
              "SPEC_s_bg");

    // 40 characters at a limit of 28: the first characters, then the
    // decimal hash of the whole name, 28 in all.
    const Tstring longName =
        TimageName::getBufferName("%t%n", "DIFF", Tstring(36, 'p'), "", "", whole, 28, "", false);
    ASSERT_EQ(whole.size(), 40u); // "DIFF" + 36
    const Tstring hash = std::to_string(ThashFunction::hash32(whole, 0));
    EXPECT_EQ(longName.size(), 28u);
    EXPECT_EQ(longName, whole.substr(0, 28 - hash.size()) + hash);
}

// The host's hash is Bob Jenkins' lookup3 hashlittle; the vectors are those
// its author publishes.
TEST(ImageName, BufferHashIsLookup3) {
    EXPECT_EQ(ThashFunction::hash32("", 0), 0xdeadbeefu);
    EXPECT_EQ(ThashFunction::hash32("Four score and seven years ago", 0), 0x17770551u);
    EXPECT_EQ(ThashFunction::hash32("Four score and seven years ago", 1), 0xcd628161u);
}

TEST(ImageName, AddBeforeExtension) {
    EXPECT_EQ(TimageName::addBeforeExtension("/a/b.0001.iff", "_tmp"), "/a/b.0001_tmp.iff");
    EXPECT_EQ(TimageName::addBeforeExtension("/a.d/b", "_tmp"), "/a.d/b_tmp");
}

} // namespace
