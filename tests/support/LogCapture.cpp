#include "LogCapture.h"

#include "VeloranBaseEntry.h"

#include <atomic>

namespace {
std::atomic<LogCapture *> gActive{nullptr};
}

LogCapture::LogCapture()
{
    gActive = this;
    mPreviousSink = Veloran::VeloranBaseEntry()->logger()->setSink([this](const Veloran::Record &record) {
        std::lock_guard<std::mutex> lock(mMutex);
        mRecords.append(record);
    });
    mPreviousHandler = qInstallMessageHandler(&LogCapture::messageHandler);
}

LogCapture::~LogCapture()
{
    qInstallMessageHandler(mPreviousHandler);
    Veloran::VeloranBaseEntry()->logger()->setSink(mPreviousSink);
    gActive = nullptr;
}

void LogCapture::messageHandler(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    if (LogCapture *capture = gActive) {
        std::lock_guard<std::mutex> lock(capture->mMutex);
        capture->mMessages.append(message);
    }
    // Fatal messages and test-framework output still go to the default handler.
    if (type == QtFatalMsg || type == QtCriticalMsg)
        qt_message_output(type, context, message);
}

QList<Veloran::Record> LogCapture::records() const
{
    std::lock_guard<std::mutex> lock(mMutex);
    return mRecords;
}

QStringList LogCapture::recordTexts() const
{
    QStringList texts;
    for (const Veloran::Record &record : records())
        texts.append(record.text());
    return texts;
}

QStringList LogCapture::messages() const
{
    std::lock_guard<std::mutex> lock(mMutex);
    return mMessages;
}

bool LogCapture::hasRecord(const QString &text) const
{
    return recordTexts().contains(text);
}

bool LogCapture::hasRecordStartingWith(const QString &prefix) const
{
    for (const QString &text : recordTexts()) {
        if (text.startsWith(prefix))
            return true;
    }
    return false;
}

bool LogCapture::hasMessage(const QString &text) const
{
    return messages().contains(text);
}

void LogCapture::clear()
{
    std::lock_guard<std::mutex> lock(mMutex);
    mRecords.clear();
    mMessages.clear();
}
