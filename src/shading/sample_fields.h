#pragma once

// The sixty-four sample fields: number (also the bit in every field set),
// name, type, offset in the static layout, size. The static layout is the
// layout of the default sample; an option's layout keeps the order and
// leaves out absent fields.
//
// X(number, name, Name, Type, offset, size)
#define ORVO_SAMPLE_FIELDS(X)                                                                      \
    X(0, pointCamera, PointCamera, T3Float, 40, 12)                                                \
    X(1, pointObj, PointObj, T3Float, 52, 12)                                                      \
    X(2, pointWorld, PointWorld, T3Float, 64, 12)                                                  \
    X(3, refPointCamera, RefPointCamera, T3Float, 76, 12)                                          \
    X(4, refPointObj, RefPointObj, T3Float, 88, 12)                                                \
    X(5, refPointWorld, RefPointWorld, T3Float, 100, 12)                                           \
    X(6, farPointCamera, FarPointCamera, T3Float, 112, 12)                                         \
    X(7, farPointObj, FarPointObj, T3Float, 124, 12)                                               \
    X(8, farPointWorld, FarPointWorld, T3Float, 136, 12)                                           \
    X(9, uvCoord, UvCoord, T2Float, 148, 8)                                                        \
    X(10, normalCamera, NormalCamera, T3Float, 156, 12)                                            \
    X(11, triangleNormalCamera, TriangleNormalCamera, T3Float, 168, 12)                            \
    X(12, tangentUCamera, TangentUCamera, T3Float, 180, 12)                                        \
    X(13, tangentVCamera, TangentVCamera, T3Float, 192, 12)                                        \
    X(14, filterSize, FilterSize, T3Float, 204, 12)                                                \
    X(15, uvFilterSize, UvFilterSize, T2Float, 216, 8)                                             \
    X(16, rayOrigin, RayOrigin, T3Float, 224, 12)                                                  \
    X(17, rayDirection, RayDirection, T3Float, 236, 12)                                            \
    X(18, outColor, OutColor, T3Float, 248, 12)                                                    \
    X(19, outTransparency, OutTransparency, T3Float, 260, 12)                                      \
    X(20, outGlowColor, OutGlowColor, T3Float, 272, 12)                                            \
    X(21, lightData, LightData, TlightData, 288, 48)                                               \
    X(22, outParticleEmission, OutParticleEmission, T3Float, 336, 12)                              \
    X(23, particleOrder, ParticleOrder, int32_t, 348, 4)                                           \
    X(24, blobbySurfaceFactor, BlobbySurfaceFactor, float, 352, 4)                                 \
    X(25, opticalDepth, OpticalDepth, float, 356, 4)                                               \
    X(26, particleWeight, ParticleWeight, float, 360, 4)                                           \
    X(27, particleEntryParam, ParticleEntryParam, float, 364, 4)                                   \
    X(28, particleExitParam, ParticleExitParam, float, 368, 4)                                     \
    X(29, particleEmission, ParticleEmission, T3Float, 372, 12)                                    \
    X(30, particleColor, ParticleColor, T3Float, 384, 12)                                          \
    X(31, particleTransparency, ParticleTransparency, T3Float, 396, 12)                            \
    X(32, particleIncandescence, ParticleIncandescence, T3Float, 408, 12)                          \
    X(33, particleAge, ParticleAge, float, 420, 4)                                                 \
    X(34, particleLifespan, ParticleLifespan, float, 424, 4)                                       \
    X(35, objectId, ObjectId, TsampleObject, 432, 8)                                               \
    X(36, rayDepth, RayDepth, int32_t, 440, 4)                                                     \
    X(37, rayInstance, RayInstance, uint32_t, 444, 4)                                              \
    X(38, pixelCenter, PixelCenter, T2Float, 448, 8)                                               \
    X(39, vertexCameraOne, VertexCameraOne, T3Float, 456, 12)                                      \
    X(40, vertexCameraTwo, VertexCameraTwo, T3Float, 468, 12)                                      \
    X(41, vertexCameraThree, VertexCameraThree, T3Float, 480, 12)                                  \
    X(42, vertexUvOne, VertexUvOne, T2Float, 492, 8)                                               \
    X(43, vertexUvTwo, VertexUvTwo, T2Float, 500, 8)                                               \
    X(44, vertexUvThree, VertexUvThree, T2Float, 508, 8)                                           \
    X(45, primitiveId, PrimitiveId, int32_t, 516, 4)                                               \
    X(46, mediumRefractiveIndex, MediumRefractiveIndex, float, 520, 4)                             \
    X(47, outMatteOpacity, OutMatteOpacity, T3Float, 524, 12)                                      \
    X(48, objectType, ObjectType, char, 536, 1)                                                    \
    X(49, numShadingSamples, NumShadingSamples, char, 537, 1)                                      \
    X(50, matrixObjectToWorld, MatrixObjectToWorld, T4dFltMatrix, 540, 64)                         \
    X(51, matrixWorldToObject, MatrixWorldToObject, T4dFltMatrix, 604, 64)                         \
    X(52, renderState, RenderedState, uint32_t, 668, 4)                                            \
    X(53, particleAttrArray, ParticleAttrArray, TsampleObject, 672, 8)                             \
    X(54, displacement, Displacement, float, 680, 4)                                               \
    X(55, lightTable, LightTable, TlightDataPtr, 688, 8)                                           \
    X(56, illuminationIndex, IlluminationIndex, int16_t, 696, 2)                                   \
    X(57, pixelCoverage, PixelCoverage, float, 700, 4)                                             \
    X(58, easMask, EasMask, uint32_t, 704, 4)                                                      \
    X(59, flippedNormal, FlippedNormal, bool, 708, 1)                                              \
    X(60, receiveShadows, ReceiveShadows, bool, 709, 1)                                            \
    X(61, translucenceDepth, TranslucenceDepth, float, 712, 4)                                     \
    X(62, shadowAttenuation, ShadowAttenuation, float, 716, 4)                                     \
    X(63, infoBits, InfoBits, uint32_t, 720, 4)
