#include "host/scene/dag.h"

#include <algorithm>
#include <numbers>

#include <fmt/format.h>

#include "host/scene/render_layer.h"

ORVO_REGISTER_NODE(TdagObject)
ORVO_DEPENDENCIES(TdagObject) {}

ORVO_REGISTER_NODE(Ttransform)
ORVO_DEPENDENCIES(Ttransform) {
    auto placing = [&](Tattribute& input) {
        affectsAll(m, input, Matrix);
        affectsAll(m, input, InverseMatrix);
    };
    placing(Translate);
    placing(Rotate);
    placing(RotateOrder);
    placing(Scale);
    placing(RotatePivot);
    placing(ScalePivot);
}

// ---------------------------------------------------------------- paths

Ttransform* TdagPath::transform() const {
    for (auto it = fNodes.rbegin(); it != fNodes.rend(); ++it)
        if (auto* t = dynamic_cast<Ttransform*>(*it))
            return t;
    return nullptr;
}

TdagPath TdagPath::parentPath() const {
    TdagPath p(*this);
    if (p.isValid())
        p.pop();
    return p;
}

TdagPath TdagPath::childPath(TdagObject* child) const {
    TdagPath p(*this);
    p.push(child);
    return p;
}

unsigned TdagPath::whichInstance() const {
    if (!isValid())
        return 0;
    const TdagPathArray all = node()->getAllPaths();
    const auto it = std::find(all.begin(), all.end(), *this);
    return it == all.end() ? 0u : unsigned(it - all.begin());
}

std::string TdagPath::fullPathName() const {
    std::string name;
    for (const TdagObject* n : fNodes)
        name += "|" + n->name();
    return name;
}

std::string TdagPath::partialPathName() const {
    if (!isValid())
        return {};
    const TdagPathArray all = node()->getAllPaths();
    // Grow the tail until no other path of the node ends the same way.
    for (size_t tail = 1; tail <= fNodes.size(); ++tail) {
        bool unique = true;
        for (const TdagPath& other : all) {
            if (other == *this)
                continue;
            if (other.fNodes.size() >= tail && std::equal(fNodes.end() - long(tail), fNodes.end(),
                                                          other.fNodes.end() - long(tail)))
                unique = false;
        }
        if (unique) {
            std::string name;
            for (size_t i = fNodes.size() - tail; i < fNodes.size(); ++i)
                name += (name.empty() ? "" : "|") + fNodes[i]->name();
            return name;
        }
    }
    return fullPathName();
}

T4dDblMatrix TdagPath::inclusiveMatrix() const {
    T4dDblMatrix m;
    for (auto it = fNodes.rbegin(); it != fNodes.rend(); ++it)
        m = m * (*it)->localMatrix();
    return m;
}

T4dDblMatrix TdagPath::exclusiveMatrix() const {
    return parentPath().inclusiveMatrix();
}

std::vector<TdagPath> TdagPath::pathsNamed(const TdependGraph& graph, std::string_view name) {
    std::vector<std::string_view> parts;
    for (size_t start = 0;;) {
        const size_t bar = name.find('|', start);
        parts.push_back(name.substr(start, bar == std::string_view::npos ? bar : bar - start));
        if (bar == std::string_view::npos)
            break;
        start = bar + 1;
    }
    const bool absolute = parts.size() > 1 && parts.front().empty();
    if (absolute)
        parts.erase(parts.begin());
    for (std::string_view p : parts)
        if (p.empty())
            return {};
    auto* node = TdagObject::fromNode(graph.findNode(parts.back()));
    if (!node)
        return {};
    std::vector<TdagPath> found;
    for (const TdagPath& path : node->getAllPaths()) {
        const auto& nodes = path.nodes();
        if (nodes.size() < parts.size() || (absolute && nodes.size() != parts.size()))
            continue;
        bool match = true;
        for (size_t i = 0; i < parts.size(); ++i)
            if (nodes[nodes.size() - parts.size() + i]->name() != parts[i])
                match = false;
        if (match)
            found.push_back(path);
    }
    return found;
}

// ---------------------------------------------------------------- iterators

TdagIterator::TdagIterator(const TdependGraph& graph) {
    const auto& nodes = graph.nodes();
    for (auto it = nodes.rbegin(); it != nodes.rend(); ++it)
        if (auto* dag = TdagObject::fromNode(*it); dag && dag->parents().empty())
            fStack.push_back(TdagPath({dag}));
}

TdagIterator::TdagIterator(const TdagPath& root) {
    if (root.isValid()) {
        fStack.push_back(root);
        fBaseLength = root.length();
    }
}

void TdagIterator::next() {
    if (fStack.empty())
        return;
    const TdagPath current = fStack.back();
    fStack.pop_back();
    if (!fPruned)
        if (auto* t = dynamic_cast<Ttransform*>(current.node())) {
            const std::vector<TdagObject*> children = t->children();
            for (auto it = children.rbegin(); it != children.rend(); ++it)
                fStack.push_back(current.childPath(*it));
        }
    fPruned = false;
}

// ---------------------------------------------------------------- visibility

bool TdagPathUtils::isObjectVisible(const TdagPath& path, const TdnRenderLayer* layer) {
    if (!path.isValid())
        return false;
    for (TdagObject* n : path.nodes())
        if (!TdnRenderLayer::readValue(Tplug(n, &TdagObject::aVisibility), layer).asBool())
            return false;
    return true;
}

bool TdagPathUtils::isObjectVisibleToRenderer(const TdagPath& path) {
    if (!path.isValid() || !path.node()->graph())
        return false;
    return isObjectVisible(path, TdnRenderLayerManager::currentLayer(*path.node()->graph()));
}

bool TdagPathUtils::inRenderLayer(const TdagPath& path, const TdnRenderLayer* layer) {
    if (!layer || layer->isDefaultLayer())
        return true;
    for (TdagPathIterator it(path); !it.isDone(); it.next())
        if (layer->hasMember(it.node()))
            return true;
    return false;
}

// ---------------------------------------------------------------- dagNode

TdagObject* TdagObject::fromNode(TdependNode* node) {
    return node ? static_cast<TdagObject*>(node->cast(TdagObject::sTypeof())) : nullptr;
}

TdagPathArray TdagObject::getAllPaths() const {
    auto* self = const_cast<TdagObject*>(this);
    if (fParents.empty())
        return {TdagPath({self})};
    TdagPathArray all;
    for (Ttransform* parent : fParents)
        for (TdagPath path : parent->getAllPaths()) {
            path.push(self);
            all.push_back(std::move(path));
        }
    return all;
}

TdagPath TdagObject::firstPath() const {
    const TdagObject* n = this;
    std::vector<TdagObject*> chain;
    while (n) {
        chain.push_back(const_cast<TdagObject*>(n));
        n = n->fParents.empty() ? nullptr : n->fParents.front();
    }
    std::reverse(chain.begin(), chain.end());
    return TdagPath(std::move(chain));
}

unsigned TdagObject::instanceCount() const {
    if (fParents.empty())
        return 1;
    unsigned count = 0;
    for (const Ttransform* parent : fParents)
        count += parent->instanceCount();
    return count;
}

bool TdagObject::ownVisibility() const {
    return TdnRenderLayer::readValue(Tplug(this, &aVisibility), nullptr).asBool();
}

bool TdagObject::inCurrentRenderLayer() const {
    if (!graph())
        return true;
    return TdagPathUtils::inRenderLayer(firstPath(), TdnRenderLayerManager::currentLayer(*graph()));
}

void* TdagObject::cast(Tmetaclass* meta) {
    if (meta && meta == TshadingNodeTmeta())
        return dynamic_cast<TshadingNode*>(this);
    return TdnPattern::cast(meta);
}

void TdagObject::connectionMade(const Tplug& mine, const Tplug& other, bool asSource) {
    TdnPattern::connectionMade(mine, other, asSource);
    if (asSource && mine.attribute() == &aMessage && other.attribute() == &Ttransform::aDagChildren)
        fParents.push_back(static_cast<Ttransform*>(other.node()));
}

void TdagObject::connectionBroken(const Tplug& mine, const Tplug& other, bool asSource) {
    TdnPattern::connectionBroken(mine, other, asSource);
    if (asSource && mine.attribute() == &aMessage &&
        other.attribute() == &Ttransform::aDagChildren) {
        const auto it = std::find(fParents.begin(), fParents.end(), other.node());
        if (it != fParents.end())
            fParents.erase(it);
    }
}

// ---------------------------------------------------------------- transform

namespace {

// True when `node` lies at or below `top`.
bool isAtOrBelow(const TdagObject* node, const TdagObject* top) {
    if (node == top)
        return true;
    for (const Ttransform* parent : node->parents())
        if (isAtOrBelow(parent, top))
            return true;
    return false;
}

} // namespace

T4dDblMatrix Ttransform::composeMatrix(const Values& v) {
    auto vec = [](const double(&a)[3]) {
        return T3dDblVector{a[0], a[1], a[2]};
    };
    constexpr double kRadians = std::numbers::pi / 180.0;
    // The axes in the order they turn: kXYZ turns about X first, and with
    // row vectors the first rotation stands leftmost.
    static constexpr int kAxes[6][3] = {{0, 1, 2}, {1, 2, 0}, {2, 0, 1},
                                        {0, 2, 1}, {1, 0, 2}, {2, 1, 0}};
    const int order = std::clamp(v.rotateOrder, 0, 5);
    T4dDblMatrix rotation;
    for (int axis : kAxes[order])
        rotation = rotation * T4dDblMatrix::rotation(axis, v.rotate[axis] * kRadians);
    const T3dDblVector sp = vec(v.scalePivot), rp = vec(v.rotatePivot);
    return T4dDblMatrix::translation(sp * -1.0) * T4dDblMatrix::scaling(vec(v.scale)) *
           T4dDblMatrix::translation(sp) * T4dDblMatrix::translation(rp * -1.0) * rotation *
           T4dDblMatrix::translation(rp) * T4dDblMatrix::translation(vec(v.translate));
}

Ttransform::Values Ttransform::values() const {
    Values v;
    TdependGraph* g = graph();
    auto read3 = [&](const Tattribute& a, double(&out)[3]) {
        const TplugValue value = TdnRenderLayer::readValue(Tplug(this, &a), nullptr);
        for (int i = 0; i < 3; ++i)
            out[i] = value.number(i);
    };
    if (!g)
        return v;
    read3(aTranslate, v.translate);
    read3(aRotate, v.rotate);
    read3(aScale, v.scale);
    read3(aRotatePivot, v.rotatePivot);
    read3(aScalePivot, v.scalePivot);
    v.rotateOrder = TdnRenderLayer::readValue(Tplug(this, &aRotateOrder), nullptr).asInt();
    return v;
}

std::vector<TdagObject*> Ttransform::children() const {
    std::vector<TdagObject*> out;
    out.reserve(fChildren.size());
    for (const auto& [index, child] : fChildren)
        out.push_back(child);
    return out;
}

bool Ttransform::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                                   unsigned count) {
    if (!computesAttribute(plug.attribute()))
        return TdnPattern::vectorComputePlug(plug, block, first, count);
    for (unsigned e = first; e < first + count; ++e) {
        block.setCurrentIndex(e);
        Values v;
        auto read3 = [&](const Tattribute& a, double(&out)[3]) {
            const float* f = block.inputValue(a).asFloat3();
            for (int i = 0; i < 3; ++i)
                out[i] = f[i];
        };
        read3(aTranslate, v.translate);
        read3(aRotate, v.rotate);
        read3(aScale, v.scale);
        read3(aRotatePivot, v.rotatePivot);
        read3(aScalePivot, v.scalePivot);
        v.rotateOrder = block.inputValue(aRotateOrder).asShort();
        const T4dDblMatrix m = composeMatrix(v);
        TdataHandle out = block.outputValue(aMatrix);
        out.as<T4dFltMatrix>() = m.asFloat();
        out.setClean();
        TdataHandle inverse = block.outputValue(aInverseMatrix);
        inverse.as<T4dFltMatrix>() = m.inverse().asFloat();
        inverse.setClean();
    }
    block.setCurrentIndex(first);
    return true;
}

bool Ttransform::legalConnection(const Tplug& mine, const Tplug& other, bool asSource) {
    if (asSource || mine.attribute() != &aDagChildren)
        return TdnPattern::legalConnection(mine, other, asSource);
    // Only a DAG node's message makes a child, and never one above us.
    const TdagObject* child = TdagObject::fromNode(other.node());
    if (!child || other.attribute() != &TdagObject::aMessage || isAtOrBelow(this, child))
        return false;
    const auto& parents = child->parents();
    return std::find(parents.begin(), parents.end(), this) == parents.end();
}

void Ttransform::connectionMade(const Tplug& mine, const Tplug& other, bool asSource) {
    TdnPattern::connectionMade(mine, other, asSource);
    if (!asSource && mine.attribute() == &aDagChildren)
        if (TdagObject* child = TdagObject::fromNode(other.node())) {
            const unsigned index = mine.logicalIndex();
            const auto at = std::lower_bound(
                fChildren.begin(), fChildren.end(), index,
                [](const std::pair<unsigned, TdagObject*>& e, unsigned i) { return e.first < i; });
            fChildren.insert(at, {index, child});
        }
}

void Ttransform::connectionBroken(const Tplug& mine, const Tplug& other, bool asSource) {
    TdnPattern::connectionBroken(mine, other, asSource);
    if (!asSource && mine.attribute() == &aDagChildren)
        std::erase_if(fChildren, [&](const std::pair<unsigned, TdagObject*>& e) {
            return e.first == mine.logicalIndex();
        });
}

// ---------------------------------------------------------------- edits

void TdagEdit::addParent(TDGcommand& command, TdagObject& child, TdagObject& parent) {
    if (!parent.acceptsChildren())
        throw TgraphError(fmt::format("'{}' ({}) cannot have children: only transforms can",
                                      parent.name(), parent.typeName()));
    if (isAtOrBelow(&parent, &child))
        throw TgraphError(fmt::format("cannot put '{}' under '{}': '{}' would be below itself",
                                      child.name(), parent.name(), child.name()));
    const auto& parents = child.parents();
    if (std::find(parents.begin(), parents.end(), &parent) != parents.end())
        throw TgraphError(fmt::format("'{}' is already under '{}'", child.name(), parent.name()));
    auto& transform = static_cast<Ttransform&>(parent);
    for (unsigned next = 0;; ++next) {
        Tplug slot(&transform, &Ttransform::aDagChildren);
        slot.setMultiIndex(&Ttransform::aDagChildren, next);
        if (slot.source().isNull()) {
            command.newConnectionToMake(Tplug(&child, &TdagObject::aMessage), slot);
            return;
        }
    }
}

void TdagEdit::removeParent(TDGcommand& command, TdagObject& child, TdagObject& parent) {
    TplugArray destinations;
    Tplug(&child, &TdagObject::aMessage).getAllDestinations(destinations);
    for (const Tplug& d : destinations)
        if (d.attribute() == &Ttransform::aDagChildren && d.node() == &parent) {
            command.newConnectionToBreak(Tplug(&child, &TdagObject::aMessage), d);
            return;
        }
    throw TgraphError(fmt::format("'{}' is not under '{}'", child.name(), parent.name()));
}

void TdagEdit::setParent(TDGcommand& command, TdagObject& child, TdagObject* parent) {
    const std::vector<Ttransform*> parents = child.parents();
    if (parent && parents.size() == 1 && parents.front() == parent)
        return;
    if (parent) {
        // Check before anything is broken, so that a refused move changes nothing.
        if (!parent->acceptsChildren())
            throw TgraphError(fmt::format("'{}' ({}) cannot have children: only transforms can",
                                          parent->name(), parent->typeName()));
        if (isAtOrBelow(parent, &child))
            throw TgraphError(fmt::format("cannot put '{}' under '{}': '{}' would be below itself",
                                          child.name(), parent->name(), child.name()));
    }
    TplugArray destinations;
    Tplug(&child, &TdagObject::aMessage).getAllDestinations(destinations);
    for (const Tplug& d : destinations)
        if (d.attribute() == &Ttransform::aDagChildren)
            command.newConnectionToBreak(Tplug(&child, &TdagObject::aMessage), d);
    if (parent)
        addParent(command, child, *parent);
}
