#pragma once

#include "platform/MutexImp.h"
#include "util/kernel_thread_private.h"

#include <QMutex>
#include <QThread>

#include <atomic>
#include <sys/types.h>

/// Holds a server's lock, and notes for whoever diagnoses contention which thread does.
class Owned_lock {
public:
    /// @param locked         not recursive
    /// @param thread, tid    the fields for the holder's identities: of Qt, of the kernel; 0 while it is free
    Owned_lock(QMutex& locked, std::atomic<Qt::HANDLE>& thread, std::atomic<pid_t>& tid)
        : mutex(locked), owner_thread(thread), owner_tid(tid)
    {
        if (!mutex.tryLock())
            MutexImp::debug_lock(mutex);
        // The lock orders what it guards. To the thread sanitizer, which sees nothing of the lock inside Qt, it
        // is this: what the last holder released.
        static_cast<void>(owner_tid.load(std::memory_order_acquire));
        owner_thread.store(QThread::currentThreadId(), std::memory_order_relaxed);
        owner_tid.store(Util::kernel_thread_id(), std::memory_order_relaxed);
    }

    ~Owned_lock()
    {
        owner_thread.store(nullptr, std::memory_order_relaxed);
        owner_tid.store(0, std::memory_order_release);
        mutex.unlock();
    }

    Owned_lock(const Owned_lock&) = delete;
    Owned_lock& operator=(const Owned_lock&) = delete;

private:
    QMutex& mutex;
    std::atomic<Qt::HANDLE>& owner_thread;
    std::atomic<pid_t>& owner_tid;
};
