#pragma once

#include "tests/support/Interposed_calls.h"

#include <fcntl.h>
#include <string>

/// Keeps how the last file was opened.
class Recorded_open : public Interposed_calls {
public:
    /// @param error  what every opening fails with; 0: they go on to the C library
    explicit Recorded_open(int error = 0) : error_number(error) {}

    int open(const char* path, int flags, mode_t mode) override
    {
        opened = path;
        asked = flags & (O_ACCMODE | O_APPEND | O_CREAT | O_TRUNC | O_EXCL);
        with_mode = mode;
        return error_number != 0 ? fail_with(error_number) : Interposed_calls::open(path, flags, mode);
    }

    std::string opened;
    int asked = 0; ///< those of the flags that say what may be done and made
    mode_t with_mode = 0;

private:
    int error_number;
};
