#pragma once

#include "Model/JSNode.h"
#include "vrfetcher_export.h"

#include <QList>
#include <QString>
#include <QVariantMap>

#include <optional>

namespace Veloran {

// Accessors every clip of the timeline has, and its length on the timeline under
// constant or variable speed.
class VRFETCHER_EXPORT JSBasicClip : public JSNode
{
public:
    explicit JSBasicClip(NLMapNodePtr node = NLMapNodePtr());

    QString trackID() const;
    qint64 timelinePos() const;
    std::optional<qint64> rangeBegin() const;
    qint64 rangeLength() const;
    double speed() const;
    qint64 originalLength() const;
    QString dirPath() const;
    QString rccPrefix() const;
    QString source() const;
    QString filePath() const;
    bool disabled() const;
    int streamIndex() const;
    QList<QVariantMap> variableSpeed() const;

    bool isVideo() const;
    bool isAudio() const;

    // Length on the timeline of the used source span [range_begin, +range_length].
    qint64 timelineLength() const;

    // Source position between p and q where the speed curve from vp to vq passes 1.
    float calPrevToIntersectDesireLength(float vp, float vq, float p, float q) const;
    // A root of a·t³ + b·t² + c·t + d in [0, 1] (0 and an "error" line if none);
    // every real root found is appended to `roots`.
    float calculateEquation(double a, double b, double c, double d, QList<double> &roots) const;
    // Speed at source position `pos` of a piece [p, q] whose speed runs from vp to vq
    // linearly in timeline time.
    float calculateSpeed(float vp, float vq, float p, float q, float pos) const;
};

} // namespace Veloran
