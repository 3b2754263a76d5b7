#include "VobChapterScan.h"

#include "VeloranBaseEntry.h"
#include "VeloranDec/FFDemuxer.h"

#include <QFileInfo>

#include <algorithm>

namespace Veloran {

namespace {

struct EntryPoint
{
    long long pos = 0;
    long long us = 0; // presentation time
};

// What the scan learns about one chapter while reading.
struct ChapterExtent
{
    long long firstPos = -1;  // smallest packet position seen in it
    long long detectedAt = 0; // read position when its first break was seen
    long long firstUs = AV_NOPTS_VALUE;
    long long endUs = AV_NOPTS_VALUE;
    QVector<EntryPoint> entries; // only for measuring the seek lead, then dropped

    void add(const AVStream *stream, const AVPacket *packet)
    {
        if (packet->pos >= 0 && (firstPos < 0 || packet->pos < firstPos))
            firstPos = packet->pos;
        const long long startUs = presentationTimeUs(stream, packet);
        if (startUs == AV_NOPTS_VALUE)
            return;
        const long long durationUs = packet->duration > 0 ? streamTimeUs(stream, packet->duration) : 0;
        if (firstUs == AV_NOPTS_VALUE || startUs < firstUs)
            firstUs = startUs;
        if (endUs == AV_NOPTS_VALUE || startUs + durationUs > endUs)
            endUs = startUs + durationUs;
        if (isEntryPoint(stream, packet))
            entries.append({packet->pos, startUs});
    }
};

// Per stream: the chapter it is in and its last decode time.
struct StreamTrack
{
    int chapter = 0;
    long long lastUs = AV_NOPTS_VALUE;
};

// A seek aims at the byte where an even spread of the chapter's bytes over its
// time puts (target - lead). Every entry point lies at most `ahead` later in time
// than that spread puts its byte, and entry points are at most `gap` apart, so
// with lead = gap + ahead the seek lands at or before the entry point the target
// needs.
void measureEntries(VobChapter &chapter, const QVector<EntryPoint> &entries)
{
    if (entries.isEmpty() || chapter.bytesPerMs <= 0)
        return;
    long long gap = 0;
    long long ahead = 0;
    long long previousUs = chapter.firstUs;
    for (const EntryPoint &entry : entries) {
        gap = std::max(gap, entry.us - previousUs);
        previousUs = entry.us;
        const long long spreadUs = static_cast<long long>(double(entry.pos - chapter.startPos) * 1000.0 / chapter.bytesPerMs);
        ahead = std::max(ahead, entry.us - chapter.firstUs - spreadUs);
    }
    chapter.entryGapUs = std::max(gap, chapter.firstUs + chapter.durationUs - previousUs);
    chapter.seekLeadUs = chapter.entryGapUs + ahead;
}

QVector<VobChapter> toChapters(const QVector<ChapterExtent> &extents, long long fileSize)
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
            chapter.durationUs = std::max<long long>(0, extents[i].endUs - extents[i].firstUs);
        }
        chapters.append(chapter);
    }
    for (int i = 0; i < chapters.size(); ++i) {
        VobChapter &chapter = chapters[i];
        chapter.endPos = i + 1 < chapters.size() ? chapters[i + 1].startPos : std::max(fileSize, chapter.startPos);
        if (chapter.durationUs > 0)
            chapter.bytesPerMs = double(chapter.endPos - chapter.startPos) * 1000.0 / double(chapter.durationUs);
        measureEntries(chapter, extents[i].entries);
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
        int chapter = extents.size() - 1;
        if (marksChapters(stream)) {
            StreamTrack &track = tracks[packet->stream_index];
            const long long decodeUs = decodeTimeUs(stream, packet.data());
            if (isChapterBreak(track.lastUs, decodeUs)) {
                ++track.chapter;
                if (track.chapter == extents.size()) {
                    ChapterExtent extent;
                    extent.detectedAt = ctx->pb ? avio_tell(ctx->pb) : 0;
                    extents.append(extent);
                }
            }
            if (decodeUs != AV_NOPTS_VALUE)
                track.lastUs = decodeUs;
            chapter = track.chapter;
        }
        extents[chapter].add(stream, packet.data());
    }

    // QFileInfo also knows the size of resource files, which FFmpeg is never told.
    const QVector<VobChapter> chapters = toChapters(extents, QFileInfo(path).size());
    VR_LOG << "---demux--- vob chapters: " << chapters.size() << " in " << path;
    return chapters;
}

} // namespace Veloran
