#pragma once

#include <string>

/// The number that a word of the command line is.
///
/// @param what   the option that it belongs to, for the message
/// @param value  null where the command line ends before it
/// @throw std::runtime_error  when it is none, or not from `low` to `high`
double number_option(const std::string& what, const char* value, double low, double high);
