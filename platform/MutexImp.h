#pragma once

/// Locking with a word to say about who waits.
namespace MutexImp {

/// Locks a mutex that a first try found taken, waiting as long as it takes.
///
/// Here it only waits; a console may report who waits for whom. A template, so that platform/ needs no Qt.
///
/// Any thread that does not hold it yet.
template <typename MUTEX>
void debug_lock(MUTEX& mutex)
{
    mutex.lock();
}

} // namespace MutexImp
