#include "VobChapterScan.h"

#include "VeloranBaseEntry.h"
#include "VeloranDec/FFDemuxer.h"

#include <QFileInfo>

#include <algorithm>

namespace Veloran {

namespace {

// What the scan learns about one chapter while reading.
struct ChapterExtent
{
    qint64 firstPos = -1;     // smallest packet position seen in it
    qint64 detectedAt = 0;    // read position when its first break was seen
    qint64 firstUs = AV_NOPTS_VALUE;
    qint64 endUs = AV_NOPTS_VALUE;
    qint64 keyIntervalUs = 0;

    void add(const AVPacket *packet, qint64 startUs, qint64 durationUs)
    {
        if (packet->pos >= 0 && (firstPos < 0 || packet->pos < firstPos))
            firstPos = packet->pos;
        if (startUs == AV_NOPTS_VALUE)
            return;
        if (firstUs == AV_NOPTS_VALUE || startUs < firstUs)
            firstUs = startUs;
        if (endUs == AV_NOPTS_VALUE || startUs + durationUs > endUs)
            endUs = startUs + durationUs;
    }
};

// Per stream: the chapter it is in, its last decode time and that of its last key frame.
struct StreamTrack
{
    int chapter = 0;
    qint64 lastUs = AV_NOPTS_VALUE;
    qint64 lastKeyUs = AV_NOPTS_VALUE;
};

QVector<VobChapter> toChapters(const QVector<ChapterExtent> &extents, qint64 fileSize)
{
    QVector<VobChapter> chapters;
    for (int i = 0; i < extents.size(); ++i) {
        VobChapter chapter;
        // The first chapter owns the file's header bytes too.
        chapter.startPos = i == 0 ? 0 : (extents[i].firstPos >= 0 ? extents[i].firstPos : extents[i].detectedAt);
        if (i > 0)
            chapter.startPos = std::max(chapter.startPos, chapters.last().startPos);
        if (extents[i].firstUs != AV_NOPTS_VALUE) {
            chapter.firstUs = extents[i].firstUs;
            chapter.durationUs = std::max<qint64>(0, extents[i].endUs - extents[i].firstUs);
            chapter.keyIntervalUs = extents[i].keyIntervalUs;
        }
        chapters.append(chapter);
    }
    for (int i = 0; i < chapters.size(); ++i) {
        VobChapter &chapter = chapters[i];
        chapter.endPos = i + 1 < chapters.size() ? chapters[i + 1].startPos : std::max(fileSize, chapter.startPos);
        if (chapter.durationUs > 0)
            chapter.bytesPerMs = double(chapter.endPos - chapter.startPos) * 1000.0 / double(chapter.durationUs);
    }
    return chapters;
}

} // namespace

QVector<VobChapter> scanVobChapters(const QString &path)
{
    FFDemuxer demuxer;
    if (!demuxer.open(path))
        return {};
    const AVFormatContextPtr ctx = demuxer.formatCtx();

    QVector<StreamTrack> tracks(int(ctx->nb_streams));
    QVector<ChapterExtent> extents(1);
    while (const AVPacketPtr packet = demuxer.readPacket()) {
        // Streams found while reading have no track; they cannot be placed.
        if (packet->stream_index < 0 || packet->stream_index >= tracks.size())
            continue;
        const AVStream *stream = ctx->streams[packet->stream_index];
        StreamTrack &track = tracks[packet->stream_index];
        int chapter = extents.size() - 1;
        if (marksChapters(stream)) {
            const qint64 decodeUs = decodeTimeUs(stream, packet.data());
            if (isChapterBreak(track.lastUs, decodeUs)) {
                ++track.chapter;
                track.lastKeyUs = AV_NOPTS_VALUE;
                if (track.chapter == extents.size()) {
                    ChapterExtent extent;
                    extent.detectedAt = ctx->pb ? avio_tell(ctx->pb) : 0;
                    extents.append(extent);
                }
            }
            if (decodeUs != AV_NOPTS_VALUE)
                track.lastUs = decodeUs;
            chapter = track.chapter;
            if ((packet->flags & AV_PKT_FLAG_KEY) && decodeUs != AV_NOPTS_VALUE
                && stream->codecpar->codec_type == AVMEDIA_TYPE_VIDEO) {
                if (track.lastKeyUs != AV_NOPTS_VALUE)
                    extents[chapter].keyIntervalUs = std::max(extents[chapter].keyIntervalUs, decodeUs - track.lastKeyUs);
                track.lastKeyUs = decodeUs;
            }
        }
        extents[chapter].add(packet.data(), presentationTimeUs(stream, packet.data()),
                             streamTimeUs(stream, packet->duration > 0 ? packet->duration : 0));
    }

    // QFileInfo also knows the size of resource files, which FFmpeg is never told.
    const QVector<VobChapter> chapters = toChapters(extents, QFileInfo(path).size());
    VR_LOG << "---demux--- vob chapters: " << chapters.size() << " in " << path;
    return chapters;
}

} // namespace Veloran
