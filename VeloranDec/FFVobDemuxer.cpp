#include "FFVobDemuxer.h"

namespace Veloran {

FFVobDemuxer::FFVobDemuxer(QObject *parent)
    : FFDemuxer(parent)
{
}

FFVobDemuxer::~FFVobDemuxer() = default;

bool FFVobDemuxer::open(const QString &path)
{
    return FFDemuxer::open(path);
}

void FFVobDemuxer::close()
{
    FFDemuxer::close();
}

void FFVobDemuxer::seek(qint64 ms)
{
    FFDemuxer::seek(ms);
}

void FFVobDemuxer::seekByStream(qint64 ms, int streamIndex)
{
    FFDemuxer::seekByStream(ms, streamIndex);
}

AVPacketPtr FFVobDemuxer::readPacket()
{
    return FFDemuxer::readPacket();
}

qint64 FFVobDemuxer::durationMs()
{
    return FFDemuxer::durationMs();
}

} // namespace Veloran
