#pragma once

#include "VeloranDec/CAudioStreamInfo.h"
#include "VeloranDec/CStreamInfo.h"
#include "VeloranDec/CVideoStreamInfo.h"
#include "VeloranDec/ContainerInfo.h"
#include "vrfetcher_export.h"

#include <QSharedPointer>
#include <QSize>
#include <QString>

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/pixfmt.h>
}

// Builds the stream description records from FFmpeg's streams. The index is the
// caller's: these functions never read it from the stream.
namespace Veloran {

VRFETCHER_EXPORT QSharedPointer<CStreamInfo> makeStreamInfo(AVStream *stream, int index);
VRFETCHER_EXPORT QSharedPointer<CVideoStreamInfo> makeVideoStreamInfo(AVStream *stream, int index);
VRFETCHER_EXPORT QSharedPointer<CAudioStreamInfo> makeAudioStreamInfo(AVStream *stream, int index);

// The whole file: container figures and every stream. `path` is the file the
// context was opened from; it is opened again for the cover test of ASF files.
VRFETCHER_EXPORT QSharedPointer<ContainerInfo> makeContainerInfo(AVFormatContext *context, const QString &path);

// Aspect-corrected, even size, transposed for 90 and 270 degrees.
VRFETCHER_EXPORT QSize calcDisplaySize(int width, int height, int rotation, AVRational sar);

// Whether the format carries an alpha channel (an even component count).
VRFETCHER_EXPORT bool isHasAlpha(AVPixelFormat format);

// For ASF-family files, whose demuxer does not mark cover art: a stream with at
// most three packets in the whole file is a picture, not a video.
VRFETCHER_EXPORT bool isCoverStream(const QString &path, int streamIndex);

} // namespace Veloran
