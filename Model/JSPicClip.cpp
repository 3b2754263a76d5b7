#include "JSPicClip.h"

namespace Veloran {

namespace {
const QString kTransformKey = QStringLiteral("transform");
}

JSPicClip::JSPicClip(NLMapNodePtr node)
    : JSBasicClip(std::move(node))
{
}

JSNode JSPicClip::transform() const
{
    return JSNode(getMapNodeByKey(kTransformKey));
}

float JSPicClip::alpha() const
{
    return opFloatValue(QStringLiteral("alpha")).value_or(1.0f);
}

std::optional<int> JSPicClip::zOrder() const
{
    return opIntValue(QStringLiteral("z_order"));
}

void JSPicClip::setZoom(double zoom)
{
    const NLMapNodePtr clip = node();
    if (!clip)
        return;
    // The zoom goes to a copy of the transform: holders of the old one keep it as it is.
    NLMapNodePtr transformNode = clip->getMapNodeByKey(kTransformKey);
    if (transformNode) {
        transformNode = transformNode->shallowCopy();
        transformNode->setValue(QStringLiteral("zoom"), zoom);
    }
    // Stored back even when absent: a clip without transform gets a null node there.
    clip->setValue(kTransformKey, NLMapNode::wrap(transformNode));
}

} // namespace Veloran
