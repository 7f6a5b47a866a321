#pragma once

// TtextureMethods: evaluating a texture on arrays of coordinates with no
// render in progress (the viewport bakes networks of textures this way).

#include <vector>

#include "host/metaclass.h"
#include "host/plug.h"

// Arrays of the host's core library, in the shapes the texture interface
// takes them. A colour is a four-vector whose w stays 1.
using TdoubleArray = std::vector<double>;
struct T4dDblVector {
    double x = 0.0;
    double y = 0.0;
    double z = 0.0;
    double w = 1.0;
};
using T4dDblVectorArray = std::vector<T4dDblVector>;

class TtextureMethods {
public:
    virtual Tmetaclass* typeof() const;
    virtual void* cast(Tmetaclass* meta);
    virtual ~TtextureMethods();
    // Evaluates the texture at (u[i], v[i]) for every i. `plugs` holds the
    // plugs on the way here, against cycles; any output may be null. The
    // base answers black, 0 and alpha 1 for as many elements as the first
    // output array that is not null holds.
    virtual void mapUVtoClr(TplugArray& plugs, T4dDblVectorArray* colors, TdoubleArray* reserved,
                            TdoubleArray* alphas, const TdoubleArray* u, const TdoubleArray* v);

    static Tmetaclass* sTypeof();
};
