#include "RenderGeometry.h"

#include <QStringList>

#include <array>

namespace Veloran {

namespace {

// A stream rotation as a number of quarter turns clockwise, 0..3.
int quarterTurns(int rotation)
{
    return ((qRound(rotation / 90.0) % 4) + 4) % 4;
}

// The texture position of the point (s, t) of the upright picture, for a frame that
// is turned `turns` quarter turns clockwise when shown.
QPointF texturePoint(double s, double t, int turns)
{
    switch (turns) {
    case 1: return {t, 1 - s};
    case 2: return {1 - s, 1 - t};
    case 3: return {1 - t, s};
    default: return {s, t};
    }
}

} // namespace

QSizeF RenderGeometry::displaySize(const QSize &coded, double sampleAspect, int rotation)
{
    const QSizeF size(coded.width() * (sampleAspect > 0 ? sampleAspect : 1.0), coded.height());
    return quarterTurns(rotation) % 2 ? size.transposed() : size;
}

QRectF RenderGeometry::cropRect(const QString &crop)
{
    const QRectF whole(0, 0, 1, 1);
    const QStringList parts = crop.split(QLatin1Char(','));
    if (parts.size() != 4)
        return whole;
    std::array<double, 4> v{};
    for (int i = 0; i < 4; ++i) {
        bool ok = false;
        v[size_t(i)] = parts[i].trimmed().toDouble(&ok);
        if (!ok)
            return whole;
    }
    const QRectF clamped = QRectF(v[0], v[1], v[2], v[3]).normalized() & whole;
    return clamped.isEmpty() ? whole : clamped;
}

QRectF RenderGeometry::fitRect(const QSizeF &picture, const QSizeF &canvas, const QString &fillMode)
{
    const bool fit = fillMode == QLatin1String("aspect_fit");
    if ((!fit && fillMode != QLatin1String("aspect_fill")) || picture.isEmpty())
        return QRectF(QPointF(0, 0), canvas);
    const QSizeF scaled = picture.scaled(canvas, fit ? Qt::KeepAspectRatio : Qt::KeepAspectRatioByExpanding);
    return QRectF(QPointF((canvas.width() - scaled.width()) / 2, (canvas.height() - scaled.height()) / 2), scaled);
}

QMatrix4x4 RenderGeometry::transformMatrix(const QVariantMap &transform, const QSizeF &picture, const QSizeF &canvas,
                                           const QString &fillMode)
{
    const QRectF crop = cropRect(transform.value(QStringLiteral("crop")).toString());
    const QRectF fitted =
        fitRect(QSizeF(picture.width() * crop.width(), picture.height() * crop.height()), canvas, fillMode);
    const float cx = float(canvas.width() / 2);
    const float cy = float(canvas.height() / 2);
    const auto number = [&](const char *key, double absent) { return transform.value(key, absent).toFloat(); };
    const float zoom = number("zoom", 1.0);
    const float flipX = transform.value(QStringLiteral("flip_h")).toBool() ? -1.f : 1.f;
    const float flipY = transform.value(QStringLiteral("flip_v")).toBool() ? -1.f : 1.f;

    // Built from the last step to the first: each call applies before those above it.
    QMatrix4x4 m;
    // Canvas pixels (y down) to normalised device coordinates (y up).
    m.translate(-1, 1);
    m.scale(2 / float(canvas.width()), -2 / float(canvas.height()));
    // Flips, about the canvas centre.
    m.translate(cx, cy);
    m.scale(flipX, flipY);
    m.translate(-cx, -cy);
    // Offset.
    m.translate(number("offset_x", 0) * float(canvas.width()), number("offset_y", 0) * float(canvas.height()));
    // Rotation (clockwise on screen, as y points down) and zoom, about the centre.
    m.translate(cx, cy);
    m.rotate(number("rotate", 0), 0, 0, 1);
    m.scale(zoom, zoom);
    m.translate(-cx, -cy);
    // The unit quad onto the fitted rectangle.
    m.translate(float(fitted.x()), float(fitted.y()));
    m.scale(float(fitted.width()), float(fitted.height()));
    return m;
}

QVector<RenderVertex> RenderGeometry::quadVertices(const QVariantMap &transform, const QSizeF &picture,
                                                   const QSizeF &canvas, const QString &fillMode, int rotation)
{
    const QMatrix4x4 m = transformMatrix(transform, picture, canvas, fillMode);
    const QRectF crop = cropRect(transform.value(QStringLiteral("crop")).toString());
    const int turns = quarterTurns(rotation);
    QVector<RenderVertex> corners;
    for (const QPointF corner : {QPointF(0, 0), QPointF(1, 0), QPointF(0, 1), QPointF(1, 1)}) {
        const QPointF position = m.map(corner);
        const QPointF texture = texturePoint(crop.x() + corner.x() * crop.width(),
                                             crop.y() + corner.y() * crop.height(), turns);
        corners.append({float(position.x()), float(position.y()), float(texture.x()), float(texture.y())});
    }
    return corners;
}

QVector<QRectF> RenderGeometry::blurAreas(const QRectF &drawn, const QSizeF &canvas)
{
    const QRectF whole(QPointF(0, 0), canvas);
    const QRectF d = drawn.normalized() & whole;
    if (whole.isEmpty())
        return {};
    if (d.isEmpty())
        return {whole};
    const QRectF bands[] = {
        {QPointF(0, 0), QPointF(whole.right(), d.top())},              // above
        {QPointF(0, d.bottom()), whole.bottomRight()},                 // below
        {QPointF(0, d.top()), QPointF(d.left(), d.bottom())},          // left
        {d.topRight(), QPointF(whole.right(), d.bottom())},            // right
    };
    QVector<QRectF> areas;
    for (const QRectF &band : bands)
        if (!band.isEmpty())
            areas.append(band);
    return areas;
}

} // namespace Veloran
