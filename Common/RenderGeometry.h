#pragma once

#include "vrfetcher_export.h"

#include <QMatrix4x4>
#include <QRectF>
#include <QSizeF>
#include <QString>
#include <QVariantMap>
#include <QVector>

namespace Veloran {

/// One corner of a drawn picture: x, y in normalised device coordinates (-1..1, y
/// up), u, v in texture coordinates of the decoded frame (0..1, v down).
struct RenderVertex
{
    float x, y, u, v;
};

/// What a renderer needs to draw a clip's frame on the canvas, worked out from the
/// clip's "background_fill_mode" ("aspect_fit", "aspect_fill", anything else
/// stretches) and its transform map (VideoFrame::transformMap()): "crop" ("x,y,w,h"
/// in fractions of the picture), "zoom" (about the canvas centre, 1.0), "rotate"
/// (degrees clockwise, 0), "offset_x"/"offset_y" (fractions of the canvas width and
/// height, right and down, 0), "flip_h"/"flip_v" (false). Sizes and rectangles are
/// in canvas pixels with y down unless said otherwise. Stateless.
class VRFETCHER_EXPORT RenderGeometry
{
public:
    /// The picture's shape on screen: the coded size with the sample aspect ratio
    /// applied to the width (none when it is not positive), width and height swapped
    /// for a stream rotation of 90 or 270 degrees.
    static QSizeF displaySize(const QSize &coded, double sampleAspect, int rotation);
    /// The crop "x,y,w,h" as a rectangle in fractions of the picture, clamped to
    /// [0,1]; the whole picture when the text is not four numbers or leaves no area.
    static QRectF cropRect(const QString &crop);
    /// Where a picture of size `picture` (the cropped picture) lands on the canvas:
    /// scaled to fit inside ("aspect_fit") or to cover ("aspect_fill") the canvas
    /// with its aspect kept and centred; stretched to the canvas otherwise.
    static QRectF fitRect(const QSizeF &picture, const QSizeF &canvas, const QString &fillMode);
    /// Maps the unit quad (0..1 in both axes, y down, the cropped picture as shown)
    /// to normalised device coordinates: fit, then zoom about the canvas centre,
    /// rotation about the canvas centre, offset, and flips (mirroring about the
    /// canvas centre), in that order. `picture` is the display size (displaySize()).
    static QMatrix4x4 transformMatrix(const QVariantMap &transform, const QSizeF &picture, const QSizeF &canvas,
                                      const QString &fillMode);
    /// The four corners in triangle-strip order (top-left, top-right, bottom-left,
    /// bottom-right of the picture as shown) through transformMatrix(), with texture
    /// coordinates of the crop, turned by the stream `rotation` (0, 90, 180 or 270
    /// degrees clockwise) so that the picture appears upright.
    static QVector<RenderVertex> quadVertices(const QVariantMap &transform, const QSizeF &picture,
                                              const QSizeF &canvas, const QString &fillMode, int rotation);
    /// The canvas parts that the `drawn` rectangle leaves uncovered, where a blurred
    /// copy of the picture goes ("background_style" "blur"): the bars beside or
    /// above and below an aspect-fit picture, nothing when the picture covers the
    /// canvas. Clipped to the canvas; together with the drawn rectangle's part on the
    /// canvas they tile it exactly.
    static QVector<QRectF> blurAreas(const QRectF &drawn, const QSizeF &canvas);
};

} // namespace Veloran
