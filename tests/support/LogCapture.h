#pragma once

#include "Record.h"

#include <QString>
#include <QStringList>
#include <QtGlobal>

#include <functional>
#include <mutex>

// Captures, while alive, every Record handed to the base library's logger and every
// qDebug/qInfo/qWarning line, so tests can assert on exact texts. Thread-safe.
class LogCapture
{
public:
    LogCapture();
    ~LogCapture();

    QList<Veloran::Record> records() const;
    QStringList recordTexts() const;
    QStringList messages() const; // qDebug & co., as the message handler got them
    bool hasRecord(const QString &text) const;            // exact text
    bool hasRecordStartingWith(const QString &prefix) const;
    bool hasMessage(const QString &text) const;           // exact text
    void clear();

private:
    static void messageHandler(QtMsgType type, const QMessageLogContext &context, const QString &message);

    mutable std::mutex mMutex; // visible to ThreadSanitizer, unlike QMutex
    QList<Veloran::Record> mRecords;
    QStringList mMessages;
    std::function<void(const Veloran::Record &)> mPreviousSink;
    QtMessageHandler mPreviousHandler = nullptr;
};
