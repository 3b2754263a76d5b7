#pragma once

#include "VeloranDec/FFDemuxer.h"
#include "VeloranDec/VobChapter.h"

#include <QVector>

namespace Veloran {

/// The demuxer for DVD VOB sets: files that join chapters whose timestamps restart
/// or jump at each chapter. It makes such a file read like one continuous clip:
/// the duration is the chapters' sum, a time seeks into the chapter that holds it,
/// and every packet's times are moved on by the chapters before its own. A file of
/// one chapter reads exactly as with the plain demuxer.
///
/// A packet's chapter comes from its byte position when it has one (chapters are
/// byte ranges of the file). Packets without a position (several frames in one
/// container packet) stay in the chapter their stream was in, unless their own
/// timestamp restarts or jumps, which moves the stream on to the next chapter.
///
/// A seek goes by byte position: the chapter's start plus the time into it times
/// its average bytes per millisecond, aimed early by the chapter's measured seek
/// lead. Video then resumes at the last entry point (a key frame starting a pack)
/// not after the time, so a decoder gets whole pictures with the file's own times.
///
/// Thread rules and failure results as for FFDemuxer: one thread at a time; a file
/// that does not open gives false, reads when closed give null.
class VRFETCHER_EXPORT FFVobDemuxer : public FFDemuxer
{
    Q_OBJECT
public:
    /// A closed demuxer.
    explicit FFVobDemuxer(QObject *parent = nullptr);
    ~FFVobDemuxer() override;

    using FFDemuxer::readPacket;

    /// Opens the file as the plain demuxer does, then takes its chapters from the
    /// process-wide index (scanning the file on first use).
    bool open(const QString &path) override;
    /// Closes the file and forgets its chapters.
    void close() override;
    /// Milliseconds of the continuous clip from its start; the plain seek for a
    /// file of one chapter.
    void seek(qint64 ms) override;
    /// The same media time as seek(); the stream only has to exist.
    void seekByStream(qint64 ms, int streamIndex) override;
    /// The next packet, its times moved on by the chapters before its own.
    AVPacketPtr readPacket() override;
    /// The sum of the chapters' durations; the plain duration for one chapter.
    qint64 durationMs() override;
    /// The plain index for a file of one chapter. A chaptered file's index holds the
    /// chapters' own restarting times, which say nothing about the continuous clip:
    /// AV_NOPTS_VALUE.
    long long indexedKeyFrameAtOrBefore(int streamIndex, long long ts) const override;

    /// The chapters found at open; empty while closed.
    QVector<VobChapter> chapters() const;

private:
    /// Per stream while reading: its chapter, its last decode time and, after a
    /// byte seek, whether its packets are still skipped.
    struct StreamTrack
    {
        int chapter = 0;
        long long lastUs = AV_NOPTS_VALUE;
        bool awaitingKey = false;
        int skipped = 0;
    };

    bool isChaptered() const { return mChapters.size() > 1; }
    void clearChapters();
    void publishDuration();
    void resetTracks(int chapter, bool awaitKeys);
    int chapterAtPos(long long pos) const;
    int chapterAtMs(long long ms) const;
    /// Places the packet in its chapter and moves its times; false to skip it.
    bool placePacket(AVPacket *packet);

    QVector<VobChapter> mChapters;
    QVector<long long> mChapterStartUs; ///< continuous time at which each chapter begins
    /// After a seek: video resumes at the first entry point later than this
    /// (in the file's time as it reads continuously).
    long long mEntryFloorUs = AV_NOPTS_VALUE;
    QVector<StreamTrack> mTracks;
};

} // namespace Veloran
