#pragma once

#include "Model/JSBasicClip.h"
#include "vrfetcher_export.h"

#include <optional>

namespace Veloran {

// A clip with a picture: its transform, opacity and stacking.
class VRFETCHER_EXPORT JSPicClip : public JSBasicClip
{
public:
    explicit JSPicClip(NLMapNodePtr node = NLMapNodePtr());

    JSNode transform() const; // over the "transform" child, a null node when absent
    float alpha() const;
    std::optional<int> zOrder() const;

    // Sets "zoom" on an existing transform child; never creates one.
    void setZoom(double zoom);
};

} // namespace Veloran
