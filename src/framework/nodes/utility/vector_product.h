#pragma once

#include "framework/node_pattern.h"

// vectorProduct: dot or cross product of two vectors, or a vector or point
// through a matrix, optionally normalised.
#define ORVO_SCHEMA_TdnVectorProduct(A, C2, C3)                                                    \
    A(TattributeEnumOf, Operation, "operation", "op",                                              \
      .input()                                                                                     \
          .ORVO_FIELD(kNone, "No operation")                                                       \
          .ORVO_FIELD(kDotProduct, "Dot Product")                                                  \
          .ORVO_FIELD(kCrossProduct, "Cross Product")                                              \
          .ORVO_FIELD(kVectorMatrix, "Vector Matrix Product")                                      \
          .ORVO_FIELD(kPointMatrix, "Point Matrix Product")                                        \
          .setNativeDefaultData(1))                                                                \
    C3(Tattribute3Float, Input1, "input1", "i1", ORVO_XYZ,                                         \
       .inputParent().setNativeDefaultData(0, 0, 0), .input())                                     \
    C3(Tattribute3Float, Input2, "input2", "i2", ORVO_XYZ,                                         \
       .inputParent().setNativeDefaultData(0, 0, 0), .input())                                     \
    A(TattributeFltMatrix, Matrix, "matrix", "m", .input().flagsOn(TattrFlag::kHostFlag8))         \
    A(TattributeBoolean, NormalizeOutput, "normalizeOutput", "no",                                 \
      .input().setNativeDefaultData(false))                                                        \
    C3(Tattribute3Float, Output, "output", "o", ORVO_XYZ, .output().setNativeDefaultData(1, 0, 0), \
       .output())

class TdnVectorProduct;
template <>
struct TdnKernel<TdnVectorProduct> {
    enum : int16_t {
        kNone = 0,
        kDotProduct = 1,
        kCrossProduct = 2,
        kVectorMatrix = 3,
        kPointMatrix = 4,
    };
};

ORVO_NODE(TdnVectorProduct, TshadingDependNode, "vectorProduct", "RVEC", 529, "kVectorProduct",
          "utility/general:drawdb/shader/operation/vectorProduct", "n_vectorProduct")

class TdnVectorProduct : public TdnPattern<TdnVectorProduct, TshadingDependNode> {
public:
    bool computePlug(const Tplug& plug, TdataBlock& block) override;
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                           unsigned count) override;
    void shadingNodeOnDemand(Tplug& plug, TdataBlock& block) override;

private:
    // Set once the zero-length error was shown. A plain byte: render threads
    // racing on it can at worst show the error twice.
    bool fWarnedZeroLength = false;
};
