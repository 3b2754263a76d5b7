#pragma once

#include <QMetaType>
#include <QString>
#include <QtGlobal>

namespace Veloran {

// One frame wanted from a video file: a thumbnail of `width` pixels, or (width < 1)
// a freeze frame written to `savePath`. Copied by value through the manager's queue,
// into a picker and back out in the result signal.
struct VideoThumbRequest
{
    qint64 id = 0;
    QString filePath;   // the file to read; also the batching and picker-cache key
    QString savePath;   // target image of a freeze frame; empty for thumbnails
    qint64 time = 0;    // position handed to VideoSource::seekAndReadNextAdaptFrame
    int width = 0;      // thumbnail width; 0 marks a freeze frame
    bool seekFlag = false;

    bool isFreezeFrame() const { return width < 1; }
};

} // namespace Veloran

Q_DECLARE_METATYPE(Veloran::VideoThumbRequest)
