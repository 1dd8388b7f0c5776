#pragma once

#include "util/export.h"

/// What helps a developer to see: dumps of objects and, from platform/, the debug output and channel.
namespace Debug {

/// Takes the description that an object gives of itself: named items, and children that hold more of them.
///
/// The object calls, the dumper decides the text. Every child_start() is followed by its child_end(). Names
/// and values are the caller's, and good for the call alone.
class QUARVEL_EXPORT Dumper {
public:
    virtual ~Dumper();
    // Applications bring dumpers of their own: the order of the slots stays.

    /// @return whether the dumper wants the child's items
    virtual bool child_start(const char* name) = 0;
    virtual void child_end(const char* name) = 0; ///< with the name of its child_start()

    /// @param value  a number comes as text too: the object formats it
    virtual void print_item(const char* name, const char* value) = 0;
};

/// Prints the description on the debug output as it comes, such as "pos={x=1,y=2},ok=1", without a line end.
///
/// Every piece is one call of the debug print. Names are null only without names; one thread at a time.
class QUARVEL_EXPORT Debug_dumper : public Dumper {
public:
    /// @param with_names  false leaves the names and their "=" out
    /// @param trailer     printed at destruction, as a format without arguments: "%%" for a "%". Null for
    ///        none; stays the caller's and has to outlive the dumper.
    Debug_dumper(bool with_names, const char* trailer);
    ~Debug_dumper() override;

    /// @return true
    bool child_start(const char* name) override;

    /// Deliberate: it does not end the opening of a list, so nothing separates an empty child from the item
    /// that follows: "e={}k=2".
    void child_end(const char* name) override;

    /// @param value  deliberately the format text itself, so never with a conversion in it; not null
    void print_item(const char* name, const char* value) override;

private:
    bool with_names;
    bool at_first; // nothing to separate the next item from
    const char* trailer;

    void separate();
};

} // namespace Debug
