#include "platform/MutexImp.h"

#include <QMutex>

#include <atomic>
#include <gtest/gtest.h>
#include <mutex>
#include <thread>

TEST(debug_lock, takes_a_free_mutex)
{
    QMutex mutex;
    MutexImp::debug_lock(mutex);
    EXPECT_FALSE(mutex.tryLock());
    mutex.unlock();
}

TEST(debug_lock, waits_until_the_holder_lets_go)
{
    std::mutex mutex;
    mutex.lock();
    std::atomic<bool> locked{false};
    std::thread waiting([&] {
        MutexImp::debug_lock(mutex);
        locked = true;
        mutex.unlock();
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(locked);
    mutex.unlock();
    waiting.join();
    EXPECT_TRUE(locked);
}
