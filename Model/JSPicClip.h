#pragma once

#include "Model/JSBasicClip.h"
#include "vrfetcher_export.h"

#include <optional>

namespace Veloran {

/// A clip with a picture: its transform, opacity and stacking.
class VRFETCHER_EXPORT JSPicClip : public JSBasicClip
{
public:
    /// A view over `node`; a null node reads every value as absent.
    explicit JSPicClip(NLMapNodePtr node = NLMapNodePtr());

    JSNode transform() const;          ///< over the "transform" child, a null node when absent
    float alpha() const;               ///< "alpha", 1.0 when absent
    std::optional<int> zOrder() const; ///< "z_order", empty when absent

    /// Sets "zoom" on an existing transform child; never creates one (a clip without
    /// one gets a null "transform" entry). Does nothing on a null node.
    void setZoom(double zoom);
};

} // namespace Veloran
