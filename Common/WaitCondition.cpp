#include "WaitCondition.h"

#include <QDebug>

namespace Veloran {

WaitCondition::WaitCondition(bool flag)
    : mFlag(flag)
{
}

WaitCondition::~WaitCondition()
{
    qDebug() << "~WaitCondition()....";
}

bool WaitCondition::wait(unsigned long ms)
{
    mFlag.store(true);
    mMutex.lock();
    const bool woken = mCondition.wait(&mMutex, ms);
    mMutex.unlock();
    return woken ? mFlag.load() : false;
}

void WaitCondition::wakeOne()
{
    mCondition.wakeOne();
}

void WaitCondition::wakeOneFalse()
{
    mFlag.store(false);
    mCondition.wakeOne();
}

} // namespace Veloran
