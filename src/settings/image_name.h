#pragma once

// The output-name pattern language: static string operations that turn a
// pattern such as "%/l%s.%4n.%e" into "closeUp/ball.0012.png".
//
// Tokens:
//   %s <Scene>      the scene name
//   %l <Layer>      the layer; with a pass "layer_pass" (the pass alone
//                   when there is no layer)
//   %c <Camera>     the camera; with a field "camera_field"
//   %e <Extension>  the extension
//   %v <Version>    the version name
//   %n              the frame number; "%4n" pads it to 4 digits
//   <RenderLayer>   the layer (with its pass)
//   <SceneVersion> <RenderLayerVersion> <CameraVersion> <RenderPassVersion>
//                   always "0"
//   <name>          any other name: from the caller's list, else removed
//   #               "%4n";  @ to @@@@@@: "%n" to "%6n", one @ a digit
//
// A token of the first five rows (and %n) may carry a separator between the
// "%" and its letter: "%_c", "%-c" and "%.c" put it before the value, "%/c"
// behind it (a directory). An empty value takes its separator with it. In a
// value, ":" and "|" become "_".

#include <cstdint>

#include "host/types.h"

class TimageName {
public:
    // Number shorthands into "%" form: "a.@@@.#" gives "a.%3n.%4n".
    static Tstring fixNumberPattern(const Tstring& pattern);
    // Completes a file pattern with what a render needs to tell its images
    // apart, in this order: a pass directory, a camera directory, a layer
    // directory (so the directories read layer, camera, pass), and a frame
    // number before the extension.
    static Tstring fixPattern(const Tstring& pattern, bool frame, bool camera, bool layer,
                              bool pass);
    // Completes a buffer (image channel) name pattern: the camera first
    // when asked for, and the pass type and pass.
    static Tstring fixBufferNamePattern(const Tstring& pattern, bool camera);

    // The name a pattern gives. `frameEnabled` off with no `frameOverride`
    // drops the frame token; a non-empty override stands in for the number.
    // `customTokens` is a list of "name=value" entries separated by blanks.
    static Tstring relativeFileName(const Tstring& pattern, int32_t frame, bool frameEnabled,
                                    const Tstring& frameOverride, const Tstring& extension,
                                    const Tstring& scene, const Tstring& camera,
                                    const Tstring& layer, const Tstring& pass, const Tstring& field,
                                    const Tstring& version, bool noFrame,
                                    const Tstring& customTokens, bool keepUnknownTokens);

    // A buffer name: "%t" the pass type, "%n" the pass, "%c" the camera, "%l"
    // the layer. A name longer than `maxLength` keeps its first characters
    // and ends in the decimal hash of the whole name, `maxLength` long in
    // all; `untruncated` receives the whole name.
    static Tstring getBufferName(const Tstring& pattern, const Tstring& passType,
                                 const Tstring& passName, const Tstring& camera,
                                 const Tstring& layer, Tstring& untruncated, int32_t maxLength,
                                 const Tstring& customTokens, bool keepUnknownTokens);

    // Replaces "<name>" tokens from a "name=value ..." list; the first entry
    // for a name wins. Unless `keepUnknown`, tokens left over are removed.
    static Tstring replaceCustomTokens(const Tstring& text, const Tstring& list, bool keepUnknown);
    // Replaces the frame tokens "%[sep][width]<letter>" by the number.
    static Tstring replaceNumberFormatString(const Tstring& text, const Tstring& letter,
                                             int32_t frame, bool enable,
                                             const Tstring& frameOverride);
    // Inserts `addition` before the last "." of the last path component
    // (at the end when it has none).
    static Tstring addBeforeExtension(const Tstring& text, const Tstring& addition);

    // Widths of the frame token are capped here: a pattern cannot ask for
    // megabytes of zeros.
    static constexpr int kMaxFrameWidth = 64;

private:
    // The trailing frame-and-extension part of a pattern, or empty.
    static Tstring matchesEndingPattern(const Tstring& text);
    // Replaces "%<letter>" and `token` by `value`, and the separator forms.
    static Tstring replaceFormatString(const Tstring& text, const Tstring& letter,
                                       const Tstring& token, const Tstring& value);
};
