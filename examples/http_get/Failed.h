#pragma once

#include <stdexcept>

/// What cannot be fetched or written; the message is for the user.
struct Failed : std::runtime_error {
    using std::runtime_error::runtime_error;
};
