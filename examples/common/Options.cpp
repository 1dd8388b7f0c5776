#include "examples/common/Options.h"

#include "examples/common/Guidance.h"

#include <cstdlib>
#include <stdexcept>

double number_option(const std::string& what, const char* value, double low, double high)
{
    char* end = nullptr;
    const double number = value != nullptr ? std::strtod(value, &end) : 0.0;
    if (value == nullptr || end == value || *end != 0 || !(number >= low && number <= high))
        throw std::runtime_error(text("%s takes a number from %.0f to %.0f.", what.c_str(), low, high));
    return number;
}
