#pragma once

// viewColorManager: the older per-view colour settings: the profiles of the
// image and the display, exposure, contrast around a pivot, and a LUT file,
// which it reports as external content.

#include "framework/node_pattern.h"

class TdnViewColorManager;

template <>
struct TdnKernel<TdnViewColorManager> {
    enum : int16_t {
        kSRGB = 2,
        kSRGBg = 3,
        kHDTV = 4,
        kRec709 = 5,
        kCIEXYZ = 10,
        kCineonLog = 15,
    };
};

#define ORVO_SCHEMA_TdnViewColorManager(A, C2, C3)                                                 \
    A(TattributeEnum, ImageColorProfile, "imageColorProfile", "ip",                                \
      .input()                                                                                     \
          .ORVO_FIELD(kSRGB, "Linear sRGB")                                                        \
          .ORVO_FIELD(kHDTV, "Linear Rec. 709")                                                    \
          .ORVO_FIELD(kSRGBg, "sRGB")                                                              \
          .ORVO_FIELD(kRec709, "HDTV (Rec. 709)")                                                  \
          .ORVO_FIELD(kCIEXYZ, "CIE XYZ")                                                          \
          .setNativeDefaultData(kSRGBg))                                                           \
    A(TattributeEnum, DisplayColorProfile, "displayColorProfile", "dp",                            \
      .input()                                                                                     \
          .ORVO_FIELD(kSRGB, "Linear sRGB")                                                        \
          .ORVO_FIELD(kCineonLog, "Cineon log")                                                    \
          .ORVO_FIELD(kHDTV, "Linear Rec. 709")                                                    \
          .ORVO_FIELD(kSRGBg, "sRGB")                                                              \
          .ORVO_FIELD(kRec709, "HDTV (Rec. 709)")                                                  \
          .ORVO_FIELD(kCIEXYZ, "CIE XYZ")                                                          \
          .setNativeDefaultData(kSRGBg))                                                           \
    A(TattributeFloat, Exposure, "exposure", "exp", .input().setNativeDefaultData(0.0f))           \
    A(TattributeFloat, Contrast, "contrast", "c", .input().setNativeDefaultData(0.0f))             \
    A(TattributeFloat, ContrastPivot, "contrastPivot", "cp", .input().setNativeDefaultData(0.18f)) \
    A(TattributeTyped, LutFile, "lutFile", "lut", .input())

ORVO_NODE(TdnViewColorManager, TdependNode, "viewColorManager", "VWCM", 666, "kViewColorManager",
          "colorManagement", "n_viewColorManager")

class TdnViewColorManager : public TdnPattern<TdnViewColorManager, TdependNode> {
public:
    // The LUT file is the node's one piece of external content.
    Tstring getExternalContent() const;
    void setExternalContent(const Tstring& lutFile);
};
