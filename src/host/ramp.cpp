#include "host/ramp.h"

#include <algorithm>
#include <cstring>

#include "host/attribute.h"

TrampData TrampData::of(const Tattribute& curve, const Tattribute& position,
                        const Tattribute& value, const Tattribute& interp) {
    TrampData d;
    d.valueAt = TmultiBuilder::valueOffset(curve);
    d.positionAt = position.offsetInParent();
    d.entryValueAt = value.offsetInParent();
    d.interpAt = interp.offsetInParent();
    d.width = value.numChildren() == 3 ? 3u : 1u;
    return d;
}

uint32_t Tramp::index(unsigned k) const {
    uint32_t i;
    std::memcpy(&i, element(k), sizeof i);
    return i;
}

float Tramp::position(unsigned k) const {
    float p;
    std::memcpy(&p, element(k) + fLayout.valueAt + fLayout.positionAt, sizeof p);
    return p;
}

int16_t Tramp::interp(unsigned k) const {
    int16_t i;
    std::memcpy(&i, element(k) + fLayout.valueAt + fLayout.interpAt, sizeof i);
    return i;
}

void Tramp::value(unsigned k, float* out) const {
    std::memcpy(out, element(k) + fLayout.valueAt + fLayout.entryValueAt,
                sizeof(float) * fLayout.width);
}

bool Tramp::before(unsigned a, unsigned b) const {
    const float pa = position(a), pb = position(b);
    return pa < pb || (pa == pb && index(a) < index(b));
}

int Tramp::previous(unsigned k) const {
    int best = -1;
    for (unsigned j = 0; j < count(); ++j)
        if (before(j, k) && (best < 0 || before(unsigned(best), j)))
            best = int(j);
    return best;
}

int Tramp::next(unsigned k) const {
    int best = -1;
    for (unsigned j = 0; j < count(); ++j)
        if (before(k, j) && (best < 0 || before(j, unsigned(best))))
            best = int(j);
    return best;
}

void Tramp::evaluate(float t, float* out) const {
    const unsigned n = count(), w = fLayout.width;
    for (unsigned c = 0; c < w; ++c)
        out[c] = n == 0 ? fEmpty : 0.0f;
    if (n == 0)
        return;
    // The lower end: the last entry at or before t. The entries are scanned
    // in place: a curve has a handful of them and is read for every sample,
    // so sorting them (and finding room to) would cost more.
    int lower = -1, first = 0;
    for (unsigned k = 0; k < n; ++k) {
        if (before(k, unsigned(first)))
            first = int(k);
        if (position(k) <= t && (lower < 0 || before(unsigned(lower), k)))
            lower = int(k);
    }
    if (lower < 0) { // before the first entry (or t is not a number)
        value(unsigned(first), out);
        return;
    }
    const int upper = next(unsigned(lower));
    const int16_t kind = interp(unsigned(lower));
    if (upper < 0 || kind == TrampData::kNone) {
        value(unsigned(lower), out);
        return;
    }
    float a[3], b[3];
    value(unsigned(lower), a);
    value(unsigned(upper), b);
    const float pl = position(unsigned(lower)), pu = position(unsigned(upper));
    // pu > t >= pl, so the span is not empty.
    const float u = (t - pl) / (pu - pl);
    if (kind == TrampData::kSpline) {
        // Catmull-Rom through the neighbours, the ends doubled where there
        // are none.
        const int before0 = previous(unsigned(lower)), after3 = next(unsigned(upper));
        float p0[3], p3[3];
        if (before0 >= 0)
            value(unsigned(before0), p0);
        else
            std::memcpy(p0, a, sizeof a);
        if (after3 >= 0)
            value(unsigned(after3), p3);
        else
            std::memcpy(p3, b, sizeof b);
        const float u2 = u * u, u3 = u2 * u;
        for (unsigned c = 0; c < w; ++c)
            out[c] = 0.5f * (2.0f * a[c] + (b[c] - p0[c]) * u +
                             (2.0f * p0[c] - 5.0f * a[c] + 4.0f * b[c] - p3[c]) * u2 +
                             (3.0f * a[c] - p0[c] - 3.0f * b[c] + p3[c]) * u3);
        return;
    }
    // Linear, and anything unknown; Smooth eases in and out.
    const float f = kind == TrampData::kSmooth ? u * u * (3.0f - 2.0f * u) : u;
    for (unsigned c = 0; c < w; ++c)
        out[c] = a[c] + (b[c] - a[c]) * f;
}

float Tramp::valueAtPoint(float t) const {
    float v[3];
    evaluate(t, v);
    return v[0];
}

T3Float Tramp::colorAtPoint(float t) const {
    float v[3] = {0.0f, 0.0f, 0.0f};
    evaluate(t, v);
    if (fLayout.width == 1)
        return {v[0], v[0], v[0]};
    return {v[0], v[1], v[2]};
}

float Tramp::largestValue() const {
    float largest = fEmpty;
    for (unsigned k = 0; k < count(); ++k) {
        float v[3];
        value(k, v);
        largest = k == 0 ? v[0] : std::max(largest, v[0]);
    }
    return largest;
}
