#pragma once

#include "FFmpegJoint.h"

#include <QByteArray>
#include <QImage>
#include <QString>

// The generated VOB media of this folder: three segments joined byte for byte,
// each frame flat, its luma giving its number in the segment, its chroma the segment.
namespace VobTestKit {

constexpr int kSegments = 3;
constexpr qint64 kFrameMs = 40;
extern const qint64 kSegmentMs[kSegments];

qint64 segmentStartMs(int segment);
// The segment that shows at `ms` from the start of the joined file.
int segmentAtMs(qint64 ms);

struct FrameId
{
    int segment = -1;
    int number = -1;
};
// Reads a decoded 4:2:0 frame's centre: which segment it is from and its number there.
FrameId identify(const AVFrame *frame);

// The same for a converted picture (an RGB thumbnail).
FrameId identify(const QImage &image);
// Whole-file frame index shown: its segment's first frame plus its number; -1 if unknown.
int globalFrame(const FrameId &id);

// The first decoded frame's time in ms from `originUs`.
qint64 frameMs(const AVFrame *frame, const AVStream *stream, qint64 originUs);

QString chaptersPath();
QString mediaPath(const QString &name);
QString writeScratch(const QString &test, const QString &name, const QByteArray &bytes);
QByteArray readAll(const QString &path);

} // namespace VobTestKit
