#pragma once

// Reading and writing the values of the settings nodes. Settings never
// compute: their attributes are stored values that renders, the naming code
// and scripts read and write. A value set by code must win over a connected
// one, so every write first breaks the connection that drives the plug.

#include "host/dependnode.h"
#include "host/types.h"

class TdnRenderLayer;

namespace orvo::settings {

// The value as the graph gives it (a connection pulled), outside any render
// layer: the first number of the value (0 for one that holds none).
double number(const TdependNode& node, const Tattribute& attribute);
// The text of a string value, and whether the value holds a string at all.
Tstring text(const TdependNode& node, const Tattribute& attribute, bool* isString = nullptr);
// The node whose plug feeds `attribute`, or null.
TdependNode* sourceNode(const TdependNode& node, const Tattribute& attribute);

// Breaks the connection into the plug, through one graph command, when it
// has one. False when nothing was connected.
bool breakIncomingConnection(TdependNode& node, const Tattribute& attribute);
// Writes a number (a boolean as 0 or 1) or a string, after breaking the
// plug's connection; the attribute's limits clamp the number.
void setNumber(TdependNode& node, const Tattribute& attribute, double value);
void setText(TdependNode& node, const Tattribute& attribute, const Tstring& value);

} // namespace orvo::settings

// Accessors of a settings node: a plain read and a setter that wins over a
// connection. `Get` reads, `Set` writes, `Attr` names the attribute.
#define ORVO_SETTING_BOOL(Get, Set, Attr)                                                          \
    bool Get() const {                                                                             \
        return orvo::settings::number(*this, a##Attr) != 0.0;                                      \
    }                                                                                              \
    void Set(bool on) {                                                                            \
        orvo::settings::setNumber(*this, a##Attr, on ? 1.0 : 0.0);                                 \
    }
#define ORVO_SETTING_INT(Get, Set, Attr)                                                           \
    int Get() const {                                                                              \
        return int(orvo::settings::number(*this, a##Attr));                                        \
    }                                                                                              \
    void Set(int value) {                                                                          \
        orvo::settings::setNumber(*this, a##Attr, double(value));                                  \
    }
#define ORVO_SETTING_FLOAT(Get, Set, Attr)                                                         \
    float Get() const {                                                                            \
        return float(orvo::settings::number(*this, a##Attr));                                      \
    }                                                                                              \
    void Set(float value) {                                                                        \
        orvo::settings::setNumber(*this, a##Attr, double(value));                                  \
    }
// Times are in frames.
#define ORVO_SETTING_TIME(Get, Set, Attr)                                                          \
    double Get() const {                                                                           \
        return orvo::settings::number(*this, a##Attr);                                             \
    }                                                                                              \
    void Set(double frames) {                                                                      \
        orvo::settings::setNumber(*this, a##Attr, frames);                                         \
    }
#define ORVO_SETTING_STRING(Get, Set, Attr)                                                        \
    Tstring Get() const {                                                                          \
        return orvo::settings::text(*this, a##Attr);                                               \
    }                                                                                              \
    void Set(const Tstring& value) {                                                               \
        orvo::settings::setText(*this, a##Attr, value);                                            \
    }
