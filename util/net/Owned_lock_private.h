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
        owner_thread = QThread::currentThreadId();
        // Exchanged, not stored: who takes the last holder's 0 comes after it for the thread sanitizer too,
        // which sees nothing of the lock inside Qt.
        owner_tid.exchange(Util::kernel_thread_id());
    }

    ~Owned_lock()
    {
        owner_thread = nullptr;
        owner_tid = 0;
        mutex.unlock();
    }

    Owned_lock(const Owned_lock&) = delete;
    Owned_lock& operator=(const Owned_lock&) = delete;

private:
    QMutex& mutex;
    std::atomic<Qt::HANDLE>& owner_thread;
    std::atomic<pid_t>& owner_tid;
};
