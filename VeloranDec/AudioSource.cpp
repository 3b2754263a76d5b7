#include "VeloranDec/AudioSource.h"

#include <QThread>

namespace Veloran {

AudioSource::AudioSource(QObject *parent)
    : BasicObject(parent)
{
}

AudioSource::~AudioSource() = default;

bool AudioSource::open(const QString &path, AVSampleFormat outFormat, int outChannels, int nth, int outSampleRate)
{ return false; }

long long AudioSource::durationMs()
{ return 0; }

AVFramePtr AudioSource::adaptFrame(AVFramePtr frame)
{ return {}; }

QSharedPointer<IAudioFrame> AudioSource::readNextAdaptFrame()
{ return {}; }

QSharedPointer<IAudioFrame> AudioSource::seekAndReadNextAdaptFrame(long long ms, bool accurate)
{ return {}; }

QVector<QSharedPointer<IAudioFrame>> AudioSource::revertSeekAndReadNextAdaptFrame(long long ms, long long n)
{ return {}; }

QSharedPointer<IAudioFrame> AudioSource::currentAdaptFrame()
{ return {}; }

long long AudioSource::curPts()
{ return 0; }

long long AudioSource::frameInterval()
{ return 0; }

int AudioSource::currentStreamIndex()
{ return 0; }

void AudioSource::moveSelfToThread(QThread *thread)
{ }

} // namespace Veloran
