#include <array>
#include <cmath>
#include <cstring>
#include <string_view>
#include <utility>

#include "host/attribute.h"
#include "shading/instruction.h"

namespace {

// Class codes: 0 double, 1 float, 2 int32, 3 int16/enum, 4 boolean, 5 char,
// 6 byte, 7 time, 8-11 three of double/float/int32/int16, 12-15 two of
// them, 16 float matrix.
template <int Code>
struct CodeType;
template <>
struct CodeType<0> {
    using T = double;
    static constexpr int N = 1;
};
template <>
struct CodeType<1> {
    using T = float;
    static constexpr int N = 1;
};
template <>
struct CodeType<2> {
    using T = int32_t;
    static constexpr int N = 1;
};
template <>
struct CodeType<3> {
    using T = int16_t;
    static constexpr int N = 1;
};
template <>
struct CodeType<4> {
    using T = bool;
    static constexpr int N = 1;
};
template <>
struct CodeType<5> {
    using T = char;
    static constexpr int N = 1;
};
template <>
struct CodeType<6> {
    using T = uint8_t;
    static constexpr int N = 1;
};
template <>
struct CodeType<7> {
    using T = double;
    static constexpr int N = 1;
};
template <>
struct CodeType<8> {
    using T = double;
    static constexpr int N = 3;
};
template <>
struct CodeType<9> {
    using T = float;
    static constexpr int N = 3;
};
template <>
struct CodeType<10> {
    using T = int32_t;
    static constexpr int N = 3;
};
template <>
struct CodeType<11> {
    using T = int16_t;
    static constexpr int N = 3;
};
template <>
struct CodeType<12> {
    using T = double;
    static constexpr int N = 2;
};
template <>
struct CodeType<13> {
    using T = float;
    static constexpr int N = 2;
};
template <>
struct CodeType<14> {
    using T = int32_t;
    static constexpr int N = 2;
};
template <>
struct CodeType<15> {
    using T = int16_t;
    static constexpr int N = 2;
};
template <>
struct CodeType<16> {
    using T = float;
    static constexpr int N = 16;
};

template <class D, class S>
D castValue(S s) {
    if constexpr (std::is_same_v<D, bool>)
        return s != S(0);
    else if constexpr (std::is_integral_v<D> && std::is_floating_point_v<S>)
        return D(std::round(s));
    else
        return D(s);
}

template <int From, int To>
void convert(const void* source, void* destination, const Tattribute*, const Tattribute*) {
    using S = typename CodeType<From>::T;
    using D = typename CodeType<To>::T;
    constexpr int n = CodeType<From>::N < CodeType<To>::N ? CodeType<From>::N : CodeType<To>::N;
    const S* s = static_cast<const S*>(source);
    D* d = static_cast<D*>(destination);
    if constexpr (std::is_same_v<S, D>) {
        std::memcpy(d, s, sizeof(S) * n);
    } else {
        for (int i = 0; i < n; ++i)
            d[i] = castValue<D>(s[i]);
    }
}

void exactCopy(const void* source, void* destination, const Tattribute*,
               const Tattribute* destinationAttribute) {
    destinationAttribute->copyValue(destination, source);
}

template <int From, int... To>
constexpr std::array<TSEcopyFn, sizeof...(To)> row(std::integer_sequence<int, To...>) {
    return {&convert<From, To>...};
}

template <int... From>
constexpr std::array<std::array<TSEcopyFn, 17>, sizeof...(From)>
table(std::integer_sequence<int, From...>) {
    return {row<From>(std::make_integer_sequence<int, 17>())...};
}

const auto kTable = table(std::make_integer_sequence<int, 17>());

template <int... Code>
constexpr std::array<uint32_t, sizeof...(Code)> byteSizes(std::integer_sequence<int, Code...>) {
    return {uint32_t(sizeof(typename CodeType<Code>::T) * CodeType<Code>::N)...};
}

// The bytes a same-class convert copies with its memcpy.
const auto kBytes = byteSizes(std::make_integer_sequence<int, 17>());

} // namespace

int OrvoCopyClassCode(const Tattribute& a) {
    const std::string_view name = a.className();
    if (name == "TattributeDouble" || name == "TattributeDoubleAngle" ||
        name == "TattributeDoubleLinear")
        return 0;
    if (name == "TattributeFloat" || name == "TattributeFloatLinear")
        return 1;
    if (name == "TattributeInt32")
        return 2;
    if (name == "TattributeInt16" || name == "TattributeEnum")
        return 3;
    if (name == "TattributeBoolean")
        return 4;
    if (name == "TattributeChar")
        return 5;
    if (name == "TattributeTime")
        return 7;
    if (name == "Tattribute3Float")
        return 9;
    if (name == "Tattribute2Float")
        return 13;
    if (name == "Tattribute2Int32")
        return 14;
    if (name == "TattributeFltMatrix")
        return 16;
    return -1;
}

TSEcopyFn OrvoCopyFunction(const Tattribute& source, const Tattribute& destination) {
    const int s = OrvoCopyClassCode(source);
    const int d = OrvoCopyClassCode(destination);
    if (s < 0 || d < 0)
        return &exactCopy;
    return kTable[size_t(s)][size_t(d)];
}

uint32_t OrvoCopyBytes(const Tattribute& source, const Tattribute& destination) {
    const int s = OrvoCopyClassCode(source);
    const int d = OrvoCopyClassCode(destination);
    if (s >= 0 && s == d)
        return kBytes[size_t(s)];
    if (s >= 0 || d >= 0)
        return 0u; // a conversion
    // The exact copy of a value that needs no construction is its bytes.
    if (destination.isArray() ||
        destination.hasFlag(TattrFlag::kValueIsObject | TattrFlag::kCompoundConstructs))
        return 0u;
    return destination.dataSize();
}
