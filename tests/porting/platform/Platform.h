#pragma once

#include <string>

class Platform {
public:
    static Platform& instance();
    const std::string& base_directory() const;
};
