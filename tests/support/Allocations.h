#pragma once

#include <cstdint>

/// Whether allocations are counted; not under the sanitizers, which bring their own malloc().
constexpr bool ALLOCATIONS_ARE_COUNTED =
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    false;
#else
    true;
#endif

/// Allocations of the process by now, operator new's and the libraries' too; a program gets the count by
/// compiling Allocations.cpp in.
std::int64_t allocations();
