#include "settings/settings_values.h"

#include "host/graph.h"
#include "host/scene/render_layer.h"

namespace orvo::settings {

double number(const TdependNode& node, const Tattribute& attribute) {
    return TdnRenderLayer::readValue(Tplug(&node, &attribute), nullptr).number(0);
}

Tstring text(const TdependNode& node, const Tattribute& attribute, bool* isString) {
    const TplugValue value = TdnRenderLayer::readValue(Tplug(&node, &attribute), nullptr);
    const Tstring* s = attribute.kind() == TattrKind::Typed
                           ? OrvoStringOf(*static_cast<const Tdata*>(value.address()))
                           : nullptr;
    if (isString)
        *isString = s != nullptr;
    return s ? *s : Tstring();
}

TdependNode* sourceNode(const TdependNode& node, const Tattribute& attribute) {
    const Tplug source = Tplug(&node, &attribute).source();
    return source.isNull() ? nullptr : source.node();
}

bool breakIncomingConnection(TdependNode& node, const Tattribute& attribute) {
    TdependGraph* graph = node.graph();
    if (!graph)
        return false;
    const Tplug plug(&node, &attribute);
    const Tplug source = graph->sourceOf(plug);
    if (source.isNull())
        return false;
    TDGcommand command(*graph);
    command.newConnectionToBreak(source, plug);
    return true;
}

namespace {
void write(TdependNode& node, const Tattribute& attribute, const void* value) {
    breakIncomingConnection(node, attribute);
    if (TdependGraph* graph = node.graph())
        graph->setPlugValue(Tplug(&node, &attribute), value);
    else
        node.setAttributeValue(&attribute, value);
}
} // namespace

void setNumber(TdependNode& node, const Tattribute& attribute, double value) {
    TplugValue v(attribute);
    if (const auto lo = attribute.minValue(); lo && value < *lo)
        value = *lo;
    if (const auto hi = attribute.maxValue(); hi && value > *hi)
        value = *hi;
    attribute.numericSet(v.address(), 0, value);
    write(node, attribute, v.address());
}

void setText(TdependNode& node, const Tattribute& attribute, const Tstring& value) {
    const Tdata data = OrvoMakeStringData(value);
    write(node, attribute, &data);
}

} // namespace orvo::settings
