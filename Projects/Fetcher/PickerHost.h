#pragma once

#include "Projects/Fetcher/AudioSampleRequest.h"
#include "Projects/Fetcher/VideoThumbRequest.h"

#include <QImage>
#include <QList>

namespace Veloran {

class AVPicker;

// What a picker may ask of whoever runs it: deliver its answers, and take the picker
// back at the end of a run. Called on the pool thread that runs the picker.
class PickerHost
{
public:
    virtual ~PickerHost() = default;

    virtual void answerThumb(const VideoThumbRequest &request, const QImage &image) = 0;
    virtual void answerFreeze(const VideoThumbRequest &request, bool success) = 0;
    virtual void answerSample(const AudioSampleRequest &request, const QList<uint8_t> &samples, int piece) = 0;
    // The picker's last act: after this call it may already be deleted.
    virtual void recyclePicker(AVPicker *picker, bool reusable) = 0;
};

} // namespace Veloran
