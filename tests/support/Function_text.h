#pragma once

// How the compiler spells functions in the assertions that it fills in by itself.
#ifdef __clang__
constexpr const char* CONST_VERSION_REFERENCE = "const Util::Version &";
constexpr const char* SORTED_LOOKUP_INDEX =
    "const T &Sorted_lookup_base<Sorted_lookup_compare<int>, int>::operator[](unsigned int) const [COMPARE = "
    "Sorted_lookup_compare<int>, T = int]";
#else
constexpr const char* CONST_VERSION_REFERENCE = "const Util::Version&";
constexpr const char* SORTED_LOOKUP_INDEX =
    "const T& Sorted_lookup_base<COMPARE, T>::operator[](unsigned int) const [with COMPARE = "
    "Sorted_lookup_compare<int>; T = int]";
#endif
