#pragma once

#include "Common/BasicObject.h"
#include "FFmpegJointPtrs.h"
#include "VeloranDec/CAudioStreamInfo.h"
#include "VeloranDec/CVideoStreamInfo.h"
#include "VeloranDec/ContainerInfo.h"
#include "vrfetcher_export.h"

#include <QSharedPointer>
#include <QString>

#include <memory>

extern "C" {
#include <libavutil/avutil.h>
}

class QFile;

namespace Veloran {

class ReadDeadline;

/// Opens one media file (or a file inside the Qt resources, paths starting with
/// ":") and hands out its compressed packets; seeks by time, by stream time and by
/// byte position. Used from one thread at a time (open() checks it is the owning
/// one in Debug builds). Failures give false, null or 0 and, where FFmpeg refused,
/// a log line; nothing throws. A source that stalls or never ends cannot hold the
/// thread: opening gives up after 15 s, each read or seek after 10 s.
class VRFETCHER_EXPORT FFDemuxer : public BasicObject
{
    Q_OBJECT
public:
    /// A closed demuxer.
    explicit FFDemuxer(QObject *parent = nullptr);
    /// Closes the file.
    ~FFDemuxer() override;

    /// Opens the file and reads its stream information. False, with a log line,
    /// for an empty path, a file FFmpeg cannot open or probe in time, or a resource
    /// that does not exist.
    virtual bool open(const QString &path);
    /// Closes the file; reads then give null. Safe to call twice.
    virtual void close();
    /// Moves to the key frame at or before `ms` milliseconds of media time from the
    /// start of the file. Does nothing when closed; a refused seek is logged.
    virtual void seek(qint64 ms);
    /// As seek(), but in the time of the stream with this container index. Does
    /// nothing when closed or for an index out of range; when the stream refuses,
    /// a seek over all streams is tried and logged.
    virtual void seekByStream(qint64 ms, int streamIndex);
    /// The next packet of any stream; null at end of file, on errors and when closed.
    virtual AVPacketPtr readPacket();
    /// Container duration in milliseconds; 0 when unknown or closed.
    virtual qint64 durationMs();
    /// Where the container's index puts the last key frame of this stream at or
    /// before `ts` (both in the stream's time base): where a seek to `ts` lands.
    /// AV_NOPTS_VALUE when closed, for an index out of range, or when the index
    /// has no such entry (or no entries at all, as in streamed formats).
    virtual long long indexedKeyFrameAtOrBefore(int streamIndex, long long ts) const;

    /// The next packet of one stream; packets of other streams are dropped. Null as
    /// readPacket().
    AVPacketPtr readPacket(int streamIndex);
    /// Moves to this byte position of the file. Does nothing when closed; a refused
    /// seek is logged.
    void seekByFilePos(qint64 bytePos);

    /// The open format context, shared; null when closed.
    AVFormatContextPtr formatCtx() const;
    /// The path of the last successful open().
    QString path() const;

    /// A description of the container and its streams, made anew on each call;
    /// null when closed.
    QSharedPointer<ContainerInfo> containerInfo() const;
    /// The video stream with this container index; null when closed or when that
    /// stream is not a video stream.
    QSharedPointer<CVideoStreamInfo> videoStreamInfo(int index) const;
    /// The audio stream with this container index; null when closed or when that
    /// stream is not an audio stream.
    QSharedPointer<CAudioStreamInfo> audioStreamInfo(int index) const;

    /// A new, unopened demuxer: the chapter-aware one for VOB sets when forced or
    /// when enabled by "kVob_DeMux_Enabled" for a ".vob" file, a plain one otherwise.
    static QSharedPointer<FFDemuxer> createDemuxer(const QString &path, bool forceVob = false);

protected:
    /// Milliseconds from the file start to the container's time in milliseconds.
    long long containerTimeMs(long long ms) const;

private:
    int openResource();
    // Drops the format context; a copy held elsewhere stops calling our deadline.
    void releaseFormatCtx();

    AVFormatContextPtr mFormatCtx;
    std::unique_ptr<QFile> mQrcFile;
    QString mPath;
    // Limits every blocking call on the format context (see ReadDeadline).
    const std::unique_ptr<ReadDeadline> mDeadline;
};

} // namespace Veloran
