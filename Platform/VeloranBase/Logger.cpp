#include "Logger.h"

#include <cstdio>

namespace Veloran {

void Logger::write(const Record &record)
{
    std::lock_guard<std::mutex> lock(mMutex);
    if (mSink)
        mSink(record);
    else
        writeToStderr(record);
}

Logger::Sink Logger::setSink(Sink sink)
{
    std::lock_guard<std::mutex> lock(mMutex);
    std::swap(mSink, sink);
    return sink;
}

void Logger::writeToStderr(const Record &record)
{
    const QByteArray line = QStringLiteral("[%1:%2] %3\n")
                                .arg(record.sourcePath())
                                .arg(record.line())
                                .arg(record.text())
                                .toUtf8();
    std::fwrite(line.constData(), 1, size_t(line.size()), stderr);
}

} // namespace Veloran
