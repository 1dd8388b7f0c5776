#pragma once

/// Marks what the shared library offers to programs; everything else is hidden.
#define QUARVEL_PLATFORM_EXPORT __attribute__((visibility("default")))
