#pragma once

#include "util/export.h"

/// What is known of single bytes.
namespace Bit_stuff {

/// How many bits are set in a byte of the value of the index. Any thread.
QUARVEL_EXPORT extern const unsigned char counting_array[256];

} // namespace Bit_stuff
