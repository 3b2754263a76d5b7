#pragma once

#include "Model/JSNode.h"
#include "vrfetcher_export.h"

#include <QList>
#include <QString>
#include <QVariantMap>

#include <optional>

namespace Veloran {

/// Accessors every clip of the timeline has, and its length on the timeline under
/// constant or variable speed. Absent values read as 0, empty or false unless noted.
/// Like every view it reads the node on the caller's thread and locks nothing.
class VRFETCHER_EXPORT JSBasicClip : public JSNode
{
public:
    /// A view over `node`; a null node reads every value as absent.
    explicit JSBasicClip(NLMapNodePtr node = NLMapNodePtr());

    QString trackID() const;                  ///< "track_ref"
    qint64 timelinePos() const;               ///< "timeline_pos", ms
    std::optional<qint64> rangeBegin() const; ///< "range_begin", ms; empty when absent
    qint64 rangeLength() const;               ///< "range_length", ms
    double speed() const;                     ///< "speed", 1.0 when absent
    qint64 originalLength() const;            ///< "original_length", ms
    QString dirPath() const;                  ///< "dir_path" resolved against the timeline directory
    QString rccPrefix() const;                ///< "rcc_prefix"
    QString source() const;                   ///< "source"
    QString filePath() const;                 ///< "file_path" resolved against the timeline directory
    bool disabled() const;                    ///< "disabled"
    int streamIndex() const;                  ///< "stream_index"
    /// The point maps of the "variableSpeed" list; empty for a constant-speed clip.
    QList<QVariantMap> variableSpeed() const;

    /// True for a "clip" of kind "video", "video_only" or "audio_with_cover", and for
    /// "text", "image" and "sticker" items.
    bool isVideo() const;
    /// True for a "clip" of kind "audio", "video" or "audio_with_cover".
    bool isAudio() const;

    /// Length on the timeline of the used source span [range_begin, +range_length]:
    /// range_length / speed without a speed curve, else the time the curve spends on it.
    qint64 timelineLength() const;

    /// Source position between p and q where the speed curve from vp to vq passes 1.
    float calPrevToIntersectDesireLength(float vp, float vq, float p, float q) const;
    /// A root of a·t³ + b·t² + c·t + d in [0, 1] (0 and an "error" line if none);
    /// every real root found is appended to `roots`.
    float calculateEquation(double a, double b, double c, double d, QList<double> &roots) const;
    /// Speed at source position `pos` of a piece [p, q] whose speed runs from vp to vq
    /// linearly in timeline time.
    float calculateSpeed(float vp, float vq, float p, float q, float pos) const;
};

} // namespace Veloran
