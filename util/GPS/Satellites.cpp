#include "util/GPS/Satellites.h"

#include "util/assertion.h"

#include <cstdio>

void Satellites::assertion_failed(const char* condition, unsigned int line, const char* function,
                                  int capacity)
{
    char text[200];
    // Every function text fits; a longer one would be cut, not lost.
    static_cast<void>(std::snprintf(text, sizeof text, "%s [with int NUM = %d]", function, capacity));
    Util::assertion_failed(condition, "util/GPS/Satellites.h", line, text);
}

namespace Satellites {

Satellites_list<MAX_GPS_SATS> GPS_SATS(Satellites_list<MAX_GPS_SATS>::RANGE, 1, 37);
Satellites_list<MAX_GLONASS_SATS> GLONASS_SATS(Satellites_list<MAX_GLONASS_SATS>::RANGE, 38, 70);
Satellites_list<MAX_WAAS_SATS> WAAS_SATS(Satellites_list<MAX_WAAS_SATS>::LIST, 133, 135, 138, 0);
Satellites_list<MAX_EGNOS_SATS> EGNOS_SATS(Satellites_list<MAX_EGNOS_SATS>::LIST, 120, 123, 124, 126, 136, 0);
Satellites_list<MAX_MSAS_SATS> MSAS_SATS(Satellites_list<MAX_MSAS_SATS>::LIST, 129, 137, 0);
Satellites_list<MAX_AUSBAS_SATS> AUSBAS_SATS(Satellites_list<MAX_AUSBAS_SATS>::LIST, 122, 0);
Satellites_list<MAX_OMNISTAR_SATS> OMNISTAR_SATS(Satellites_list<MAX_OMNISTAR_SATS>::LIST, 200, 0);

} // namespace Satellites
