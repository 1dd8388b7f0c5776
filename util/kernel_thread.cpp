#include "util/kernel_thread_private.h"

#include <pthread.h>
#include <unistd.h>

namespace {

thread_local pid_t known = 0;

// The one thread that a fork leaves in the child has another number there.
const int forgotten_in_children = ::pthread_atfork(nullptr, nullptr, [] { known = 0; });

} // namespace

pid_t Util::kernel_thread_id()
{
    static_cast<void>(forgotten_in_children);
    if (known == 0)
        known = ::gettid();
    return known;
}
