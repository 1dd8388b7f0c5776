#include "util/assertion.h"

#include <cassert>

void Util::assertion_failed(const char* condition, const char* file, unsigned int line, const char* function)
{
    __assert_fail(condition, file, line, function);
}
