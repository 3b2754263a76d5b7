#include "FFVobDemuxer.h"

#include "VeloranDec/VobEntryManager.h"

#include <algorithm>

namespace Veloran {

namespace {

// A byte seek lands anywhere in a group of pictures; video is skipped up to an
// entry point. Not for ever though: a stream that has none where the chapter
// has them is let through after this many packets.
constexpr int kMaxSkippedPackets = 300;

} // namespace

FFVobDemuxer::FFVobDemuxer(QObject *parent)
    : FFDemuxer(parent)
{
}

FFVobDemuxer::~FFVobDemuxer() = default;

bool FFVobDemuxer::open(const QString &path)
{
    clearChapters();
    if (!FFDemuxer::open(path))
        return false;

    mChapters = VobEntryManager::sharedInstance()->scanVobEntry(path);
    long long startUs = 0;
    for (const VobChapter &chapter : qAsConst(mChapters)) {
        mChapterStartUs.append(startUs);
        startUs += chapter.durationUs;
    }
    resetTracks(0, false);
    if (isChaptered())
        publishDuration();
    return true;
}

void FFVobDemuxer::publishDuration()
{
    // FFmpeg estimated the length from the last chapter's timestamps alone. With
    // the continuous length in the context, the container and stream descriptions
    // and the stream readers tell it too.
    AVFormatContext *ctx = formatCtx().data();
    ctx->duration = mChapterStartUs.last() + mChapters.last().durationUs;
    for (unsigned i = 0; i < ctx->nb_streams; ++i)
        ctx->streams[i]->duration = av_rescale_q(ctx->duration, AV_TIME_BASE_Q, ctx->streams[i]->time_base);
}

void FFVobDemuxer::close()
{
    FFDemuxer::close();
    clearChapters();
}

void FFVobDemuxer::clearChapters()
{
    mChapters.clear();
    mChapterStartUs.clear();
    mTracks.clear();
    mEntryFloorUs = AV_NOPTS_VALUE;
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

long long FFVobDemuxer::indexedKeyFrameAtOrBefore(int streamIndex, long long ts) const
{
    return isChaptered() ? AV_NOPTS_VALUE : FFDemuxer::indexedKeyFrameAtOrBefore(streamIndex, ts);
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

int FFVobDemuxer::chapterAtPos(long long pos) const
{
    // The last chapter that starts at or before the position.
    const auto after = std::upper_bound(mChapters.cbegin(), mChapters.cend(), pos,
                                        [](long long p, const VobChapter &c) { return p < c.startPos; });
    return std::max(0, int(after - mChapters.cbegin()) - 1);
}

int FFVobDemuxer::chapterAtMs(long long ms) const
{
    const long long us = ms * 1000;
    const auto after = std::upper_bound(mChapterStartUs.cbegin(), mChapterStartUs.cend(), us);
    return std::max(0, int(after - mChapterStartUs.cbegin()) - 1);
}

void FFVobDemuxer::seek(qint64 ms)
{
    if (!isChaptered()) {
        FFDemuxer::seek(ms);
        return;
    }
    ms = std::clamp<long long>(ms, 0, durationMs());
    const int index = chapterAtMs(ms);
    const VobChapter &chapter = mChapters[index];
    // Aim early by the chapter's seek lead, so that the byte seek lands before the
    // entry point the time needs; video then resumes at that entry point.
    const long long intoMs = std::clamp<long long>(ms - (mChapterStartUs[index] + chapter.seekLeadUs) / 1000, 0,
                                             chapter.durationMs());
    const long long pos = chapter.startPos + static_cast<long long>(double(intoMs) * chapter.bytesPerMs);
    seekByFilePos(std::min(pos, chapter.endPos));
    // A chapter without entry points gives nothing better to wait for.
    resetTracks(index, chapter.entryGapUs > 0);
    mEntryFloorUs = mChapters.first().firstUs + ms * 1000 - chapter.entryGapUs;
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

    const long long decodeUs = decodeTimeUs(stream, packet);
    if (packet->pos >= 0)
        track.chapter = chapterAtPos(packet->pos);
    else if (marksChapters(stream) && isChapterBreak(track.lastUs, decodeUs))
        track.chapter = std::min(track.chapter + 1, int(mChapters.size()) - 1);
    if (decodeUs != AV_NOPTS_VALUE)
        track.lastUs = decodeUs;

    // The first chapter keeps its own times; each later one follows on where the
    // one before it ended.
    const long long shiftUs = mChapters.first().firstUs + mChapterStartUs[track.chapter] - mChapters[track.chapter].firstUs;

    if (track.awaitingKey) {
        // Entry points at or before the floor are passed over too: the next one is
        // still no later than the time the seek asked for.
        const long long presentationUs = presentationTimeUs(stream, packet);
        const bool resume = isEntryPoint(stream, packet)
            && (presentationUs == AV_NOPTS_VALUE || mEntryFloorUs == AV_NOPTS_VALUE
                || presentationUs + shiftUs > mEntryFloorUs);
        if (!resume && track.skipped < kMaxSkippedPackets) {
            ++track.skipped;
            return false;
        }
        track.awaitingKey = false;
    }

    const int64_t shift = av_rescale_q(shiftUs, AV_TIME_BASE_Q, stream->time_base);
    if (packet->pts != AV_NOPTS_VALUE)
        packet->pts += shift;
    if (packet->dts != AV_NOPTS_VALUE)
        packet->dts += shift;
    return true;
}

} // namespace Veloran
