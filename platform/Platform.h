#pragma once

#include "platform/export.h"

#include <string>

/// What an application has to know of the machine it runs on.
class QUARVEL_PLATFORM_EXPORT Platform {
public:
    /// The one object of the process, made by the first call. Any thread.
    static Platform& instance();

    /// Where data that stay are kept; always ends in "/". The folder need not exist.
    ///
    /// The environment variable QUARVEL_BASE_DIR when it is set and not empty, else "quarvelutil/" in the
    /// data home of the freedesktop XDG base directories: $XDG_DATA_HOME, else $HOME/.local/share. Read once,
    /// when the object is made; without any of them it is the working folder, "./". Any thread.
    const std::string& base_directory() const;

    Platform(const Platform&) = delete;            ///< there is one
    Platform& operator=(const Platform&) = delete; ///< there is one

private:
    Platform();

    std::string base;
};
