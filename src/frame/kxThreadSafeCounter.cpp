#include "kxMiniThreadPool.h"

kxThreadSafeCounter::kxThreadSafeCounter() : mValue(0) {}

kxThreadSafeCounter::kxThreadSafeCounter(unsigned value) : mValue(value) {}

kxThreadSafeCounter::~kxThreadSafeCounter() = default;

void kxThreadSafeCounter::getValue(unsigned& value)
{
    mMutex.lock();
    value = mValue;
    mMutex.unlock();
}

void kxThreadSafeCounter::getAndIncrementValue(unsigned& value)
{
    mMutex.lock();
    value = mValue;
    ++mValue;
    mMutex.unlock();
}

void kxThreadSafeCounter::setValue(unsigned value) { mValue = value; }
