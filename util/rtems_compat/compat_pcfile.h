#pragma once

#include "util/export.h"

#include <cstddef>
#include <cstdint>

/// @file
/// The removable-card file store of an earlier real-time system, kept on one directory: flat files that are
/// made, appended to, read, listed and removed by their bare names.
///
/// One file at a time is open for reading and one for writing, through two descriptors of the process, so
/// that callers need not pass any; calls that take a descriptor say so.
///
/// Any thread. Every call but pcfDirectory(), pcfCheckName() and pcfSetRmOld() holds the one lock of the
/// store from beginning to end, so a slow write or a read of a pipe keeps all the others waiting. A listing
/// is one for the whole process: threads that list take turns.
///
/// Failures are told by the result and by one line on standard error; nothing is thrown. Names are never
/// null, except for pcfCheckName() and the calls that open for writing. Only these check a name: any other
/// call takes whatever a path may hold, "../" included. Paths longer than 516 characters are cut.

/// How a call ended. Those without it answer true or false, or a number.
enum PcfResult : int {
    PCF_SUCCESS = 0,
    PCF_REFUSED = 1,        ///< another file is open for reading; a warning
    PCF_BAD_DESCRIPTOR = 2, ///< negative, or no file is open
    PCF_FAILURE = 4         ///< anything else; the line on standard error tells
};

/// What a listing tells of a file.
struct PcfFileInfo {
    std::int32_t size;  ///< bytes, as pcfSize() has it; -1 when it cannot be read
    std::int32_t mtime; ///< of the last change, seconds since 1970; 0 when it cannot be read
};

/// Ten values that callers of the earlier system expect of a card. They are fixed,
/// and tell nothing of the disc.
struct PcfInfo {
    std::int32_t field1;  ///< 1000000
    std::int32_t field2;  ///< 500000
    std::int32_t field3;  ///< 1024
    std::int32_t field4;  ///< 976
    std::int32_t field5;  ///< 0
    std::int32_t field6;  ///< 0
    std::int32_t field7;  ///< 1
    std::int32_t field8;  ///< 100
    std::uint8_t flag;    ///< 0
    std::int32_t field10; ///< 1
};
static_assert(sizeof(PcfFileInfo) == 8 && offsetof(PcfFileInfo, mtime) == 4);
static_assert(sizeof(PcfInfo) == 40 && offsetof(PcfInfo, flag) == 32 && offsetof(PcfInfo, field10) == 36);

// ---- the store

/// Mounts the store, once for the life of the process; from then on it answers true whatever is asked.
///
/// A directory that is missing is made with mode 0755; its parents must be there. A failed call leaves the
/// store unmounted and pcfDirectory() at the directory that was tried.
///
/// @param dir  at most 255 characters; null for "pcf" in the platform's base directory
/// @return false when the text is too long, or there is no such directory and none can be made
QUARVEL_EXPORT bool pcfIsMounted(const char* dir);

/// The directory of the last attempt to mount; empty before the first. It stays valid for good. No lock is
/// held: read it while no other thread mounts the store elsewhere.
QUARVEL_EXPORT const char* pcfDirectory();

/// Mounts the default directory in place of the present one, **and removes no file**: all that goes is a
/// symbolic link by which the store was reached. Open files stay open.
///
/// @return 1 when the default directory is mounted, otherwise 0: the store is unmounted
QUARVEL_EXPORT int pcfFormat();

/// The same, with the answer as a result code. Deliberate: it removes no file either.
QUARVEL_EXPORT PcfResult pcfRemoveAll();

QUARVEL_EXPORT bool pcfInfo(PcfInfo& info); ///< true

/// @return 0: mounting is never in progress. It waits for the call that another thread is in.
QUARVEL_EXPORT int pcfMountInProgress();

// ---- names

/// Whether a file may be made by this name: not null, not empty, and without a blank or any of
/// , { } ( ) @ & " / \. "." and ".." pass, and what is too long for the file system.
QUARVEL_EXPORT bool pcfCheckName(const char* name);

// ---- reading

/// Opens a file as the one that is read.
///
/// @param offset  bytes from the start; beyond the end is allowed, and nothing is read there
/// @param fd      null: a descriptor of one's own is refused
/// @return PCF_REFUSED while a file is open for reading, which stays; PCF_FAILURE when the store is not
///         mounted, or the file cannot be opened or positioned: nothing is open then
QUARVEL_EXPORT PcfResult pcfOpenRead(const char* name, unsigned long offset, int* fd = nullptr);

/// Reads once. Less than asked for is no failure; an interruption (EINTR) is one.
///
/// @param[out] result  PCF_SUCCESS; PCF_BAD_DESCRIPTOR when no file is open for reading or `fd` is negative;
///                     otherwise PCF_FAILURE
/// @param      fd      0 for the file that pcfOpenRead() opened, never standard input; any other descriptor
///                     is read with a warning
/// @return bytes read, 0 at the end; -1 after a failure
QUARVEL_EXPORT int pcfRead(void* buf, int len, PcfResult& result, int fd = 0);

/// Closes the file that is read.
///
/// @param fd  0 for the file that pcfOpenRead() opened, which counts as closed from then on whatever close
///            reports. Another descriptor is closed and nothing else: if it is that of pcfOpenRead(), the
///            store takes it for open still.
/// @return PCF_FAILURE when nothing is open or close fails
QUARVEL_EXPORT PcfResult pcfCloseRead(int fd = 0);

// ---- writing

/// Opens a file for appending, made with mode 0600 when it is missing. **What it holds is kept**, although a
/// file is "created".
///
/// @return false, with what was open before as it was, when the name is refused by pcfCheckName(), the store
///         is not mounted, the file cannot be opened, or one is open for writing
QUARVEL_EXPORT bool pcfCreateWrite(const char* name);

/// The same through a descriptor of the caller's own, beside the one of the process, with a warning.
///
/// @param[out] fd  for pcfWrite() and pcfCloseWrite(), and the caller's to close; untouched after a failure.
///                 The store's own variable is a broken precondition.
QUARVEL_EXPORT bool pcfCreateWrite(const char* name, int* fd);

/// As pcfCreateWrite(), but the file must exist. Deliberate: its messages call it "pcfWriteWrite".
/// @{
QUARVEL_EXPORT bool pcfOpenWrite(const char* name);
QUARVEL_EXPORT bool pcfOpenWrite(const char* name, int* fd);
/// @}

/// Appends to the file that is open for writing, mounted or not. An interruption (EINTR) and a descriptor
/// that would block (EAGAIN) are tried again at once, with the lock held.
///
/// @return `len`; 0 for a `len` of 0 or less; less than `len` when the system takes no more; -1 when no file
///         is open or a write fails, after which a part may be written
QUARVEL_EXPORT int pcfWrite(const void* data, int len);

/// @param fd  any descriptor, 0 included; a negative one is that of the process
QUARVEL_EXPORT int pcfWrite(const void* data, int len, int fd);

/// Brings the file that is open for writing to the disc and closes it. What fails is only a line on standard
/// error; the file counts as closed.
///
/// @return true, also when nothing was open
QUARVEL_EXPORT bool pcfCloseWrite();

/// @param fd  any descriptor; a negative one is that of the process
QUARVEL_EXPORT bool pcfCloseWrite(int fd);

// ---- files

/// @param[out] mtime  of the last change, seconds since 1970; null when it is not wanted,
///                    untouched after a failure
/// @return bytes; -1 when the store is not mounted or there is no such file. What does not fit an int, size
///         or time, is the largest int.
QUARVEL_EXPORT int pcfSize(const char* name, int* mtime);

/// Whether pcfSize() would tell a size, directories included; nothing is printed.
QUARVEL_EXPORT bool pcfExists(const char* name);

/// Removes a file. **Mounted or not**: before the first mount the name is looked for in the root directory.
///
/// @return 0, also when nothing was removed
QUARVEL_EXPORT int pcfRemove(const char* name);

// ---- listing

/// How many entries of the directory are not directories; links to directories count, and so does every
/// entry, "." and ".." too, where the file system does not tell types. 0 when not mounted or not readable.
QUARVEL_EXPORT int pcfGetNumFiles();

/// The name of one of these entries, in the order of the directory as it is now.
///
/// @param      index  from 0
/// @param[out] out    room for 256 characters; untouched when there is no such entry
/// @return false when there is no such entry, the store is not mounted or the directory not readable
QUARVEL_EXPORT bool pcfGetFileName(int index, char* out);

/// Begins a listing and tells its first file; see pcfNext().
QUARVEL_EXPORT const char* pcfFirst(PcfFileInfo* info);

/// The file at the next position of the directory **as it is now**: when files go meanwhile, others move up
/// and may be passed over. Each call counts, also one that finds no file.
///
/// @param[out] info  null when it is not wanted; untouched when there is no file
/// @return the name, in a buffer of the store's that the next call overwrites; null behind the last
QUARVEL_EXPORT const char* pcfNext(PcfFileInfo* info);

// ---- what was never more than a line on standard output, "TODO: " and the name

QUARVEL_EXPORT PcfResult pcfRemoveOldest();  ///< PCF_FAILURE
QUARVEL_EXPORT PcfResult pcfRemount(bool);   ///< PCF_SUCCESS
QUARVEL_EXPORT void pcfSetRmOld(int number); ///< no lock

// ---- what the calls above come to

/// The calls for writing with and without a descriptor; a null pointer and a negative number are none.
/// @{
QUARVEL_EXPORT bool pcfOpenWriteImpl(const char* name, int* fh, bool create);
QUARVEL_EXPORT int pcfWriteImpl(const void* data, int len, int fd);
QUARVEL_EXPORT bool pcfCloseWriteImpl(int fd);
/// @}

QUARVEL_EXPORT int pcfSizeImpl(const char* name, int* mtime, bool verbose); ///< failures print if `verbose`
