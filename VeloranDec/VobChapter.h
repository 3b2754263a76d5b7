#pragma once

#include "FFmpegJoint.h"

#include <QtGlobal>

/// \file
/// The chapter record of a VOB set and the timestamp rules that both the chapter
/// scan and the VOB demuxer apply to packets.
namespace Veloran {

/// One chapter of a VOB set: a stretch of the file whose timestamps run on without
/// restarting or jumping. Chapters follow each other in the file without gaps.
struct VobChapter
{
    long long startPos = 0;   ///< first byte of the chapter
    long long endPos = 0;     ///< one past its last byte
    long long firstUs = 0;    ///< earliest timestamp of the chapter, in the file's own time (µs)
    long long durationUs = 0; ///< from firstUs to the end of its last packet
    double bytesPerMs = 0;    ///< average, over the chapter's byte range
    /// Entry points (see isEntryPoint) are at most this far apart, counting the
    /// chapter's start and end too; 0 without entry points.
    long long entryGapUs = 0;
    /// How much earlier than the time asked for a seek aims, so that it lands before
    /// the entry point that time needs: the entry gap plus how far the pictures run
    /// ahead of an even spread of the bytes over time.
    long long seekLeadUs = 0;

    /// The duration in whole milliseconds.
    long long durationMs() const { return durationUs / 1000; }
};

/// A timestamp in the stream's time base as microseconds, or AV_NOPTS_VALUE.
inline long long streamTimeUs(const AVStream *stream, int64_t ts)
{
    if (ts == AV_NOPTS_VALUE)
        return AV_NOPTS_VALUE;
    return av_rescale_q(ts, stream->time_base, AV_TIME_BASE_Q);
}

/// The packet's decode time (its presentation time when it has none) in µs. It
/// runs monotonically within a chapter, so chapter breaks are found on it.
inline long long decodeTimeUs(const AVStream *stream, const AVPacket *packet)
{
    return streamTimeUs(stream, packet->dts != AV_NOPTS_VALUE ? packet->dts : packet->pts);
}

/// The packet's presentation time (its decode time when it has none) in µs; it
/// gives a chapter's extent.
inline long long presentationTimeUs(const AVStream *stream, const AVPacket *packet)
{
    return streamTimeUs(stream, packet->pts != AV_NOPTS_VALUE ? packet->pts : packet->dts);
}

/// Only audio and video mark chapter breaks: subtitle and navigation streams are
/// sparse and may go silent for longer than any jump we look for.
inline bool marksChapters(const AVStream *stream)
{
    const AVMediaType type = stream->codecpar->codec_type;
    return type == AVMEDIA_TYPE_VIDEO || type == AVMEDIA_TYPE_AUDIO;
}

/// A video key frame that starts a container packet of its own (it has a byte
/// position): reading can begin there, and its times are the ones written in the
/// file. After a seek into the middle of a container packet, the parser gives the
/// partial picture it sees first that packet's times, and guesses the next ones
/// from that wrong start, so only such entry points are trusted.
inline bool isEntryPoint(const AVStream *stream, const AVPacket *packet)
{
    return stream->codecpar->codec_type == AVMEDIA_TYPE_VIDEO && (packet->flags & AV_PKT_FLAG_KEY) && packet->pos >= 0;
}

/// Whether a stream's decode time going from `previousUs` to `currentUs` starts a
/// new chapter: it went back (a restart) or leapt far ahead (a jump). Small steps
/// back are tolerated for streams that carry only presentation times.
inline bool isChapterBreak(long long previousUs, long long currentUs)
{
    constexpr long long kBackToleranceUs = 200 * 1000;
    constexpr long long kJumpUs = 1500 * 1000;
    if (previousUs == AV_NOPTS_VALUE || currentUs == AV_NOPTS_VALUE)
        return false;
    return currentUs < previousUs - kBackToleranceUs || currentUs > previousUs + kJumpUs;
}

} // namespace Veloran
