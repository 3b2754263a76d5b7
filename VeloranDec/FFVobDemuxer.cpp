#include "FFVobDemuxer.h"

#include "VeloranDec/VobEntryManager.h"

#include <algorithm>

namespace Veloran {

namespace {

// A byte seek lands anywhere in a group of pictures, and the frames before its
// next key frame cannot be decoded properly. Worse, the partial picture that the
// parser sees first takes the timestamps of the container packet it sits in, and
// the times of the frames after it are guessed from that wrong start. Video is
// therefore skipped up to a key frame that starts a container packet of its own
// (it has a byte position): its times are the ones written in the file. Not for
// ever though: a stream without such frames is let through after this many.
constexpr int kMaxSkippedPackets = 300;

bool isCleanEntry(const AVPacket *packet)
{
    return (packet->flags & AV_PKT_FLAG_KEY) && packet->pos >= 0;
}

} // namespace

FFVobDemuxer::FFVobDemuxer(QObject *parent)
    : FFDemuxer(parent)
{
}

FFVobDemuxer::~FFVobDemuxer() = default;

bool FFVobDemuxer::open(const QString &path)
{
    mChapters.clear();
    mChapterStartUs.clear();
    mTracks.clear();
    if (!FFDemuxer::open(path))
        return false;

    mChapters = VobEntryManager::sharedInstance()->scanVobEntry(path);
    qint64 startUs = 0;
    for (const VobChapter &chapter : qAsConst(mChapters)) {
        mChapterStartUs.append(startUs);
        startUs += chapter.durationUs;
    }
    resetTracks(0, false);
    return true;
}

void FFVobDemuxer::close()
{
    FFDemuxer::close();
    mChapters.clear();
    mChapterStartUs.clear();
    mTracks.clear();
}

QVector<VobChapter> FFVobDemuxer::chapters() const
{
    return mChapters;
}

qint64 FFVobDemuxer::durationMs()
{
    if (!isChaptered())
        return FFDemuxer::durationMs();
    return (mChapterStartUs.last() + mChapters.last().durationUs) / 1000;
}

void FFVobDemuxer::resetTracks(int chapter, bool awaitKeys)
{
    const AVFormatContextPtr ctx = formatCtx();
    mTracks = QVector<StreamTrack>(ctx ? int(ctx->nb_streams) : 0);
    for (int i = 0; i < mTracks.size(); ++i) {
        mTracks[i].chapter = chapter;
        mTracks[i].awaitingKey = awaitKeys && ctx->streams[i]->codecpar->codec_type == AVMEDIA_TYPE_VIDEO;
    }
}

int FFVobDemuxer::chapterAtPos(qint64 pos) const
{
    // The last chapter that starts at or before the position.
    const auto after = std::upper_bound(mChapters.cbegin(), mChapters.cend(), pos,
                                        [](qint64 p, const VobChapter &c) { return p < c.startPos; });
    return std::max(0, int(after - mChapters.cbegin()) - 1);
}

int FFVobDemuxer::chapterAtMs(qint64 ms) const
{
    const qint64 us = ms * 1000;
    const auto after = std::upper_bound(mChapterStartUs.cbegin(), mChapterStartUs.cend(), us);
    return std::max(0, int(after - mChapterStartUs.cbegin()) - 1);
}

void FFVobDemuxer::seek(qint64 ms)
{
    if (!isChaptered()) {
        FFDemuxer::seek(ms);
        return;
    }
    ms = std::max<qint64>(ms, 0);
    const int index = chapterAtMs(ms);
    const VobChapter &chapter = mChapters[index];
    // A program stream carries its pictures ahead of their time, and reading
    // resumes only at the next key frame: aiming one key-frame interval early
    // lands before the time asked for rather than after it.
    const qint64 intoMs = std::clamp<qint64>(ms - mChapterStartUs[index] / 1000 - chapter.keyIntervalUs / 1000, 0,
                                             chapter.durationMs());
    const qint64 pos = chapter.startPos + qint64(double(intoMs) * chapter.bytesPerMs);
    seekByFilePos(std::min(pos, chapter.endPos));
    resetTracks(index, true);
}

void FFVobDemuxer::seekByStream(qint64 ms, int streamIndex)
{
    if (!isChaptered()) {
        FFDemuxer::seekByStream(ms, streamIndex);
        return;
    }
    const AVFormatContextPtr ctx = formatCtx();
    if (streamIndex < 0 || !ctx || streamIndex >= int(ctx->nb_streams))
        return;
    seek(ms);
}

AVPacketPtr FFVobDemuxer::readPacket()
{
    for (;;) {
        AVPacketPtr packet = FFDemuxer::readPacket();
        if (!packet || !isChaptered() || placePacket(packet.data()))
            return packet;
    }
}

bool FFVobDemuxer::placePacket(AVPacket *packet)
{
    // Streams that appear while reading have no track and pass unchanged.
    if (packet->stream_index < 0 || packet->stream_index >= mTracks.size())
        return true;
    const AVStream *stream = formatCtx()->streams[packet->stream_index];
    StreamTrack &track = mTracks[packet->stream_index];

    if (track.awaitingKey) {
        if (!isCleanEntry(packet) && track.skipped < kMaxSkippedPackets) {
            ++track.skipped;
            return false;
        }
        track.awaitingKey = false;
    }

    const qint64 decodeUs = decodeTimeUs(stream, packet);
    if (packet->pos >= 0)
        track.chapter = chapterAtPos(packet->pos);
    else if (marksChapters(stream) && isChapterBreak(track.lastUs, decodeUs))
        track.chapter = std::min(track.chapter + 1, int(mChapters.size()) - 1);
    if (decodeUs != AV_NOPTS_VALUE)
        track.lastUs = decodeUs;

    // The first chapter keeps its own times; each later one follows on where the
    // one before it ended.
    const qint64 shiftUs = mChapters.first().firstUs + mChapterStartUs[track.chapter] - mChapters[track.chapter].firstUs;
    const int64_t shift = av_rescale_q(shiftUs, AV_TIME_BASE_Q, stream->time_base);
    if (packet->pts != AV_NOPTS_VALUE)
        packet->pts += shift;
    if (packet->dts != AV_NOPTS_VALUE)
        packet->dts += shift;
    return true;
}

} // namespace Veloran
