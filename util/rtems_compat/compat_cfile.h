#pragma once

#include "util/export.h"

/// @file
/// Two numbered slots, 0 and 1, for log files in the directory of the file store (pcfDirectory()), and a flag
/// for each, which lives on whatever is open.
///
/// Any other slot number is refused. Nothing is printed, except by what is a line only; errno stays as the
/// system set it. No lock, neither here nor of the store, and mounted or not: callers take turns at a slot.
/// Names are never null and are not checked; paths longer than 516 characters are cut.
///
/// Deliberate: a slot that was never opened or closed counts as open, on descriptor 0.

/// The names of the slots, empty when closed. Not more than 255 characters: what is longer is cut.
/// @{
extern QUARVEL_EXPORT char cf_file_name_0[256];
extern QUARVEL_EXPORT char cf_file_name_1[256];
/// @}
extern QUARVEL_EXPORT char* cf_file_name[2]; ///< the two, by slot

/// Opens a file for appending, made with mode 0600 when it is missing.
/// What the slot had open is **not closed**.
///
/// @return false for a bad slot, and when the file cannot be opened: the slot is closed then,
///         its name as it was
QUARVEL_EXPORT bool cfCreate(int slot, const char* name);

/// As cfCreate(), but the file must exist.
QUARVEL_EXPORT bool cfOpen(int slot, const char* name);

/// Writes once.
///
/// @return bytes written, which may be less than `len`;
///         -1 when the slot is closed or the write fails; 0 for a bad slot
QUARVEL_EXPORT int cfWrite(int slot, const void* data, int len);

/// Closes the slot and empties its name, whatever close reports.
/// A slot whose last open failed keeps its name.
///
/// @return 0
QUARVEL_EXPORT int cfClose(int slot, bool);

/// @return the slot's own buffer, never null; the empty text for a bad slot
QUARVEL_EXPORT const char* cfGetName(int slot);

/// Whether a slot is open whose flag is set.
QUARVEL_EXPORT bool cfExists();

/// @return the first slot of that name, also when it is empty, as that of a closed slot is;
///         -1 when there is none
QUARVEL_EXPORT int cfFindLog(const char* name);

QUARVEL_EXPORT bool cfGetImplicit(int slot);          ///< the flag; false for a bad slot
QUARVEL_EXPORT void cfSetImplicit(int slot, bool on); ///< a bad slot is passed over
QUARVEL_EXPORT unsigned long cfGetImplicitBits();     ///< bit 0 is the flag of slot 0, bit 1 that of slot 1
QUARVEL_EXPORT void cfSetImplicitBits(unsigned long bits); ///< sets both flags; further bits are ignored

/// Never more than a line on standard output, "TODO: " and the name.
/// @{
QUARVEL_EXPORT void cfStartLogging(const char*, bool, bool, bool);
QUARVEL_EXPORT void cfInit0();
QUARVEL_EXPORT void cfInit();
/// @}
