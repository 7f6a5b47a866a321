#include "host/scene/shape.h"

ORVO_REGISTER_NODE(Tshape)
ORVO_DEPENDENCIES(Tshape) {}

bool Tshape::boundingBox(T3Float&, T3Float&) const {
    return false;
}
