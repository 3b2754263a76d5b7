#pragma once

#include "Projects/Fetcher/AVPicker.h"
#include "Projects/Fetcher/VideoThumbRequest.h"

#include <QList>
#include <QImage>
#include <QSharedPointer>
#include <QVector>

class QImage;
class QTransform;

namespace Veloran {

class IVideoFrame;
class VideoSource;

// Serves one batch of thumbnail and freeze-frame requests for one video file. The
// file is opened on the first run and stays open while the picker sits in the
// manager's cache, so a following batch for the same file starts without reopening.
class VideoPicker : public AVPicker
{
public:
    VideoPicker(const QString &filePath, PickerHost *host);
    ~VideoPicker() override;

    void setRequest(QList<VideoThumbRequest> &&requests);
    bool ensureOpened() override;

private:
    BasicObject *source() const override;
    void serve() override;
    void answerFailure() override;
    bool answerFromCache() override;

    // Waits for the process-wide work gate; false when interrupted meanwhile.
    bool admitted();
    void answer(const VideoThumbRequest &request, const QTransform &rotation);
    QImage toImage(const IVideoFrame &frame, const QTransform &rotation) const;

    QSharedPointer<VideoSource> mSource;
    QList<VideoThumbRequest> mRequests;
    QVector<QImage> mCached; // the preview cache's image of each request; null where it has none
};

} // namespace Veloran
