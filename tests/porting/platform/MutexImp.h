#pragma once

namespace MutexImp {

template <typename MUTEX>
void debug_lock(MUTEX& mutex)
{
    while (!mutex.try_lock()) {
    }
}

} // namespace MutexImp
