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

struct FrameId
{
    int segment = -1;
    int number = -1;
};
// Reads a decoded 4:2:0 frame's centre, or a converted picture's (an RGB thumbnail).
FrameId identify(const AVFrame *frame);
FrameId identify(const QImage &image);
// Whole-file frame index shown: its segment's first frame plus its number; -1 if unknown.
int globalFrame(const FrameId &id);

QString chaptersPath();
QString writeScratch(const QString &test, const QString &name, const QByteArray &bytes);
QByteArray readAll(const QString &path);

} // namespace VobTestKit
