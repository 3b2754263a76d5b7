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

/// \file
/// Builds the stream description records from FFmpeg's streams. The index is the
/// caller's: these functions never read it from the stream. They only read the
/// FFmpeg objects, so they may run on any thread that may read them.
namespace Veloran {

/// The generic record (the only one that carries the media type).
VRFETCHER_EXPORT QSharedPointer<CStreamInfo> makeStreamInfo(AVStream *stream, int index);
/// The video record: frame rate, duration, aspect ratio, rotation and cover flag.
VRFETCHER_EXPORT QSharedPointer<CVideoStreamInfo> makeVideoStreamInfo(AVStream *stream, int index);
/// The audio record, straight from the codec parameters.
VRFETCHER_EXPORT QSharedPointer<CAudioStreamInfo> makeAudioStreamInfo(AVStream *stream, int index);

/// The whole file: container figures and every stream. `path` is the file the
/// context was opened from; it is opened again for the cover test of ASF files.
/// Null for a null context.
VRFETCHER_EXPORT QSharedPointer<ContainerInfo> makeContainerInfo(AVFormatContext *context, const QString &path);

/// Aspect-corrected, even size, transposed for 90 and 270 degrees.
VRFETCHER_EXPORT QSize calcDisplaySize(int width, int height, int rotation, AVRational sar);

/// Whether the format carries an alpha channel (an even component count).
VRFETCHER_EXPORT bool isHasAlpha(AVPixelFormat format);

/// For ASF-family files, whose demuxer does not mark cover art: a stream with at
/// most three packets in the whole file is a picture, not a video. Reads the whole
/// file; false for other formats and for files that cannot be opened.
VRFETCHER_EXPORT bool isCoverStream(const QString &path, int streamIndex);

} // namespace Veloran
