#pragma once

#include <sys/types.h>

namespace Util {

/// The kernel's number of the calling thread. Asking for it costs a system call, as much as the rest of
/// taking a free lock ten times over, so each thread asks once; in the child of a fork, again.
pid_t kernel_thread_id();

} // namespace Util
