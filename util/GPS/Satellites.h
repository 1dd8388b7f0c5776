#pragma once

#include "util/Sorted_lookup.h"
#include "util/export.h"

#include <cstdarg>

/// Which satellite identifiers belong to which service.
namespace Satellites {

/// Stops the program as a failed assertion of Satellites_list does.
///
/// @param condition  the text of the condition
/// @param line       the line that field reports are matched against; it does not follow edits
/// @param function   the function's text, without the list's capacity, which is added to it
[[noreturn]] QUARVEL_EXPORT void assertion_failed(const char* condition, unsigned int line,
                                                  const char* function, int capacity);

/// The identifiers of one constellation or augmentation service, ascending: built once, then only queried.
///
/// Any number of threads may query. What a list is asked wrongly stops the program with an assertion.
///
/// @tparam NUM  how many identifiers fit; what comes when the list is full is dropped
template <int NUM>
class Satellites_list : public Sorted_lookup_base<Sorted_lookup_compare<int>, int> {
public:
    /// How the constructor reads the arguments after the type.
    enum type_t : int {
        RANGE = 0, ///< two ints, min and max, min < max: every identifier from min to max inclusive
        LIST = 1   ///< ints, ended by a 0 that is not added
    };

    /// @param type  any other value adds nothing; asserts "min < max", and "sats.get_size()" when the list
    ///              stays empty. A repeated identifier is kept twice.
    Satellites_list(type_t type, ...);

    int min_sat() const { return (*this)[0]; }              ///< the smallest identifier
    int max_sat() const { return (*this)[get_size() - 1]; } ///< the largest identifier

    int num_sats() const { return static_cast<int>(get_size()); } ///< 1 to NUM; repeated ones count each time

    bool is_sat(int id) const { return contains(id); } ///< any number may be asked about

    /// The identifier at a position in ascending order; asserts "(int)index < num_sats()".
    int get_sat(unsigned int index) const
    {
        if (static_cast<int>(index) >= num_sats())
            assertion_failed("(int)index < num_sats()", 64,
                             "int Satellites::Satellites_list<NUM>::get_sat(unsigned int) const", NUM);
        return (*this)[index];
    }

private:
    void require(bool holds, const char* condition, unsigned int line) const
    {
        if (!holds)
            assertion_failed(condition, line,
                             "Satellites::Satellites_list<NUM>::Satellites_list("
                             "Satellites::Satellites_list<NUM>::type_t, ...)",
                             NUM);
    }

    int storage[static_cast<unsigned int>(NUM)] = {};
};

// An enumeration named before the dots is passed as the int that it is, on every machine this runs on.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wvarargs"

template <int NUM>
Satellites_list<NUM>::Satellites_list(type_t type, ...) : Sorted_lookup_base(storage, NUM)
{
    std::va_list arguments;
    va_start(arguments, type);
    if (type == RANGE) {
        const int min = va_arg(arguments, int);
        const int max = va_arg(arguments, int);
        require(min < max, "min < max", 79);
        for (int id = min; id < max; ++id)
            insert(id);
        insert(max); // outside the loop, which could not count past the largest int
    } else if (type == LIST) {
        for (int id = va_arg(arguments, int); id != 0; id = va_arg(arguments, int))
            insert(id);
    }
    va_end(arguments);
    require(get_size() != 0, "sats.get_size()", 94);
}

#pragma GCC diagnostic pop

/// How many identifiers the list of that service has room for.
/// @{
constexpr int MAX_GPS_SATS = 37;
constexpr int MAX_GLONASS_SATS = 33;
constexpr int MAX_WAAS_SATS = 3;
constexpr int MAX_EGNOS_SATS = 5;
constexpr int MAX_MSAS_SATS = 2;
constexpr int MAX_AUSBAS_SATS = 1;
constexpr int MAX_OMNISTAR_SATS = 1;
/// @}

/// @name The lists
/// Identifiers as the receiver numbers them: GLONASS slots follow the GPS PRNs, the augmentation satellites
/// keep their PRN, the OmniSTAR correction satellite is 200. Built while the library loads, in this order, so
/// the static initialisers of a program that links the library may use them.
/// @{
extern QUARVEL_EXPORT Satellites_list<MAX_GPS_SATS> GPS_SATS;           ///< 1 to 37
extern QUARVEL_EXPORT Satellites_list<MAX_GLONASS_SATS> GLONASS_SATS;   ///< 38 to 70
extern QUARVEL_EXPORT Satellites_list<MAX_WAAS_SATS> WAAS_SATS;         ///< 133, 135, 138
extern QUARVEL_EXPORT Satellites_list<MAX_EGNOS_SATS> EGNOS_SATS;       ///< 120, 123, 124, 126, 136
extern QUARVEL_EXPORT Satellites_list<MAX_MSAS_SATS> MSAS_SATS;         ///< 129, 137
extern QUARVEL_EXPORT Satellites_list<MAX_AUSBAS_SATS> AUSBAS_SATS;     ///< 122
extern QUARVEL_EXPORT Satellites_list<MAX_OMNISTAR_SATS> OMNISTAR_SATS; ///< 200
/// @}

} // namespace Satellites
