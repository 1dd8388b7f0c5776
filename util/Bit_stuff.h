#pragma once

#include "util/export.h"

namespace Bit_stuff {

/// How many bits are set in a byte of the value of the index.
QUARVEL_EXPORT extern const unsigned char counting_array[256];

} // namespace Bit_stuff
