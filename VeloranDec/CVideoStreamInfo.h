#pragma once

#include "VeloranDec/CStreamInfo.h"
#include "vrfetcher_export.h"

#include <QSize>
#include <QtGlobal>

namespace Veloran {

/// A video stream as the thumbnail and frame code needs it: coded size, pixel
/// format, frame rate, aspect ratio, rotation and whether it is only a cover picture.
struct VRFETCHER_EXPORT CVideoStreamInfo : public CStreamInfo
{
    quint32 codecTag = 0;         ///< the codec tag (FourCC)
    int pixFmt = -1;              ///< AVPixelFormat
    int width = 0;                ///< coded width in pixels
    int height = 0;               ///< coded height in pixels
    /// The average frame rate when plausible, else the stream's base rate.
    AVRational frameRate {25, 1};
    long long durationMs = 0;     ///< stream duration; 0 when unknown
    long long bitRate = 0;        ///< bits per second; 0 when unknown
    AVRational sar {1, 1};        ///< sample (pixel) aspect ratio
    int rotation = 0;             ///< degrees clockwise: 0, 90, 180 or 270 in practice
    bool isCover = false;         ///< an attached picture (cover art), not a moving video

    /// The size a viewer sees: aspect-corrected, even, and turned by the rotation.
    QSize displaySize() const;
};

} // namespace Veloran
