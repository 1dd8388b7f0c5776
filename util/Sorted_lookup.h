#pragma once

#include "util/assertion.h"
#include "util/export.h"

/// Three-way comparison by the operators of T.
template <typename T>
class QUARVEL_EXPORT Sorted_lookup_compare { // exported, so that programs share the one object too
public:
    /// The one object that every table of T shares.
    static const Sorted_lookup_compare* get()
    {
        static const Sorted_lookup_compare shared{};
        return &shared;
    }

    /// @return negative, 0 or positive as `a` sorts before, with or after `b`
    int compare(const T& a, const T& b) const { return a < b ? -1 : (b < a ? 1 : 0); }
};

/// An always sorted table of fixed capacity over storage that its owner provides.
///
/// Equal elements are kept, later ones behind earlier ones. Filling is for one thread; afterwards any number
/// of threads may read.
///
/// @tparam COMPARE  gives compare() as Sorted_lookup_compare does, and its one object by get()
template <typename COMPARE, typename T>
class Sorted_lookup_base {
public:
    Sorted_lookup_base(const Sorted_lookup_base&) = delete; ///< a copy would look into the original's storage
    Sorted_lookup_base& operator=(const Sorted_lookup_base&) = delete; ///< for the same reason

    unsigned int get_size() const { return size; } ///< of the elements that are there, up to the capacity

    /// The element at a position in ascending order; asserts "i < size".
    const T& operator[](unsigned int i) const
    {
        if (i >= size)
            Util::assertion_failed("i < size", "util/Sorted_lookup.h", 96, __PRETTY_FUNCTION__);
        return data[i];
    }

    /// Whether an element equal to `value` is there: binary search.
    bool contains(const T& value) const
    {
        int low = 0;
        int high = static_cast<int>(size) - 1;
        while (low <= high) {
            const int middle = (low + high) / 2;
            const int order = compare->compare(data[middle], value);
            if (order == 0)
                return true;
            if (order > 0)
                high = middle - 1;
            else
                low = middle + 1;
        }
        return false;
    }

protected:
    /// @param storage  room for `slots` elements, which outlives the table
    Sorted_lookup_base(T* storage, unsigned int slots)
        : compare(COMPARE::get()), capacity(slots), data(storage)
    {
    }
    ~Sorted_lookup_base() = default;

    /// Adds an element behind all that do not sort after it; a full table drops it.
    void insert(const T& value)
    {
        if (size == capacity)
            return;
        unsigned int position = size;
        for (; position > 0 && compare->compare(data[position - 1], value) > 0; --position)
            data[position] = data[position - 1];
        data[position] = value;
        ++size;
    }

private:
    const COMPARE* compare;
    unsigned int capacity;
    T* data;
    unsigned int size = 0;
};
