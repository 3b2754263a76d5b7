#pragma once

#include "Common/BasicObject.h"
#include "FFmpegJoint.h"
#include "VeloranDec/CAudioStreamInfo.h"
#include "VeloranDec/CVideoStreamInfo.h"
#include "VeloranDec/ContainerInfo.h"
#include "VeloranDec/ReadDeadline.h"
#include "vrfetcher_export.h"

#include <QSharedPointer>
#include <QString>

class QFile;

namespace Veloran {

// Opens one media file (or a file inside the Qt resources, paths starting with
// ":") and hands out its compressed packets; seeks by time, by stream time and by
// byte position. Used from one thread at a time.
class VRFETCHER_EXPORT FFDemuxer : public BasicObject
{
    Q_OBJECT
public:
    explicit FFDemuxer(QObject *parent = nullptr);
    ~FFDemuxer() override;

    virtual bool open(const QString &path);
    virtual void close();
    // Milliseconds of media time from the start of the file.
    virtual void seek(qint64 ms);
    virtual void seekByStream(qint64 ms, int streamIndex);
    // The next packet of any stream; null at end of file, on errors and when closed.
    virtual AVPacketPtr readPacket();
    // Container duration; 0 when unknown or closed.
    virtual qint64 durationMs();

    // The next packet of one stream; packets of other streams are dropped.
    AVPacketPtr readPacket(int streamIndex);
    void seekByFilePos(qint64 bytePos);

    AVFormatContextPtr formatCtx() const;
    QString path() const;

    QSharedPointer<ContainerInfo> containerInfo() const;
    QSharedPointer<CVideoStreamInfo> videoStreamInfo(int index) const;
    QSharedPointer<CAudioStreamInfo> audioStreamInfo(int index) const;

    // A new, unopened demuxer: the chapter-aware one for VOB sets when forced or
    // when enabled by "kVob_DeMux_Enabled", a plain one otherwise.
    static QSharedPointer<FFDemuxer> createDemuxer(const QString &path, bool forceVob = false);

protected:
    // Milliseconds from the file start to the container's time in milliseconds.
    qint64 containerTimeMs(qint64 ms) const;

private:
    int openResource();
    // Drops the format context; a copy held elsewhere stops calling our deadline.
    void releaseFormatCtx();

    AVFormatContextPtr mFormatCtx;
    QFile *mQrcFile = nullptr;
    QString mPath;
    // Limits every blocking call on the format context (see ReadDeadline).
    ReadDeadline mDeadline;
};

} // namespace Veloran
