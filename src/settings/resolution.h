#pragma once

// resolution: the size and shape of the rendered image. Width and height
// in pixels, the device's aspect ratio, the print density, and fields.

#include "framework/node_pattern.h"
#include "settings/settings_values.h"

class TdnResolution;

template <>
struct TdnKernel<TdnResolution> {
    enum : int16_t {
        kNoFields = 0,
        kOddFields = 1,
        kEvenFields = 2,
        kAllFields = 3,
        kAllFieldsSeparate = 4,
    };
    enum : int16_t { kAtTop = 0, kAtBottom = 1 };
    enum : int16_t {
        kImagePixels = 0,
        kImageInches = 1,
        kImageCm = 2,
        kImageMm = 3,
        kImagePoints = 4,
        kImagePicas = 5,
    };
    enum : int16_t { kDotsPerInch = 0, kDotsPerCm = 1 };
};

#define ORVO_SCHEMA_TdnResolution(A, C2, C3)                                                       \
    A(TattributeInt32, Width, "width", "w", .input().setNativeDefaultData(960).min(2))             \
    A(TattributeInt32, Height, "height", "h", .input().setNativeDefaultData(540).min(2))           \
    A(TattributeFloat, PixelAspect, "pixelAspect", "pa", .input().setNativeDefaultData(0.0f))      \
    A(TattributeBoolean, AspectLock, "aspectLock", "al", .input())                                 \
    A(TattributeFloat, DeviceAspectRatio, "deviceAspectRatio", "dar",                              \
      .input().setNativeDefaultData(1.7777777f).min(0))                                            \
    A(TattributeBoolean, LockDeviceAspectRatio, "lockDeviceAspectRatio", "ldar", .input())         \
    A(TattributeFloat, DotsPerInch, "dotsPerInch", "dpi",                                          \
      .input().setNativeDefaultData(72.0f).min(1))                                                 \
    A(TattributeBoolean, OddFieldFirst, "oddFieldFirst", "off",                                    \
      .input().setNativeDefaultData(true))                                                         \
    A(TattributeEnum, Fields, "fields", "fld",                                                     \
      .input()                                                                                     \
          .ORVO_FIELD(kNoFields, "None")                                                           \
          .ORVO_FIELD(kOddFields, "Odd")                                                           \
          .ORVO_FIELD(kEvenFields, "Even")                                                         \
          .ORVO_FIELD(kAllFields, "Both, Interlaced")                                              \
          .ORVO_FIELD(kAllFieldsSeparate, "Both, Separate")                                        \
          .setNativeDefaultData(kNoFields))                                                        \
    A(TattributeEnum, ZerothScanline, "zerothScanline", "zsl",                                     \
      .input()                                                                                     \
          .ORVO_FIELD(kAtTop, "At Top")                                                            \
          .ORVO_FIELD(kAtBottom, "At Bottom")                                                      \
          .setNativeDefaultData(kAtTop))                                                           \
    A(TattributeEnum, ImageSizeUnits, "imageSizeUnits", "isu",                                     \
      .input()                                                                                     \
          .ORVO_FIELD(kImagePixels, "pixels")                                                      \
          .ORVO_FIELD(kImageInches, "inches")                                                      \
          .ORVO_FIELD(kImageCm, "cm")                                                              \
          .ORVO_FIELD(kImageMm, "mm")                                                              \
          .ORVO_FIELD(kImagePoints, "points")                                                      \
          .ORVO_FIELD(kImagePicas, "picas")                                                        \
          .setNativeDefaultData(kImagePixels))                                                     \
    A(TattributeEnum, PixelDensityUnits, "pixelDensityUnits", "pdu",                               \
      .input()                                                                                     \
          .ORVO_FIELD(kDotsPerInch, "pixels/inch")                                                 \
          .ORVO_FIELD(kDotsPerCm, "pixels/cm")                                                     \
          .setNativeDefaultData(kDotsPerInch))

ORVO_NODE(TdnResolution, TdependNode, "resolution", "RLTN", 522, "kResolution",
          "rendernode/settings", "n_resolution")

class TdnResolution : public TdnPattern<TdnResolution, TdependNode> {
public:
    ORVO_SETTING_INT(width, setWidth, Width)
    ORVO_SETTING_INT(height, setHeight, Height)
    ORVO_SETTING_FLOAT(pixelAspect, setPixelAspect, PixelAspect)
    ORVO_SETTING_BOOL(aspectLock, setAspectLock, AspectLock)
    ORVO_SETTING_FLOAT(aspectRatio, setAspectRatio, DeviceAspectRatio)
    ORVO_SETTING_BOOL(lockDeviceAspectRatio, setLockDeviceAspectRatio, LockDeviceAspectRatio)
    ORVO_SETTING_FLOAT(dpi, setDpi, DotsPerInch)
    ORVO_SETTING_BOOL(oddFieldFirst, setOddFieldFirst, OddFieldFirst)
    ORVO_SETTING_INT(fields, setFields, Fields)
    ORVO_SETTING_INT(zerothScanline, setZerothScanline, ZerothScanline)
    ORVO_SETTING_INT(imageSizeUnits, setImageSizeUnits, ImageSizeUnits)
    // The density unit as its enum number: 0 per inch, 1 per centimetre.
    ORVO_SETTING_INT(pixelDensityUnits, setPixelDensityUnits, PixelDensityUnits)
};
