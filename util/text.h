#pragma once

#include "util/export.h"

#include <string>
#include <vector>

/// On std::string.
namespace Util::String {

/// The text up to and including its last character that is not one of `chars`; empty where there is none.
QUARVEL_EXPORT std::string trim_trailing(const std::string& text, const std::string& chars);

/// The words that a POSIX shell makes of a command line: expanded, split,
/// globbed and with the quotes removed.
///
/// Undefined variables are empty. Commands within the text are run, so pass only text that is trusted; the
/// processes, the environment and the working directory used are the caller's, and no other thread may change
/// the environment meanwhile.
///
/// @param text  counts up to its first zero character, if it has any
/// @return as many words as the C library reports: none of a text that it cannot read (such as one with an
///         unmatched quote), the first ones where memory ran out
/// @see    POSIX.1-2008, wordexp()
QUARVEL_EXPORT std::vector<std::string> expand_shell(const std::string& text);

} // namespace Util::String
