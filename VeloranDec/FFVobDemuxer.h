#pragma once

#include "VeloranDec/FFDemuxer.h"

namespace Veloran {

// The demuxer chosen for DVD VOB sets. For now it reads a VOB file as one plain
// program stream; chapter handling builds on these overrides.
class VRFETCHER_EXPORT FFVobDemuxer : public FFDemuxer
{
    Q_OBJECT
public:
    explicit FFVobDemuxer(QObject *parent = nullptr);
    ~FFVobDemuxer() override;

    using FFDemuxer::readPacket;

    bool open(const QString &path) override;
    void close() override;
    void seek(qint64 ms) override;
    void seekByStream(qint64 ms, int streamIndex) override;
    AVPacketPtr readPacket() override;
    qint64 durationMs() override;
};

} // namespace Veloran
