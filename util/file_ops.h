#pragma once

#include "util/export.h"

#include <QString>

#include <cstddef>
#include <cstdio>

/// @file
/// Making and removing directory trees, writing whole arrays to a stream, copying one file.
///
/// Nothing is kept between calls; any thread. Two threads at work on the same tree or stream must take turns.

/// Makes a directory with all of its missing parents.
///
/// @param path  absolute, or relative to the working directory. ASCII; what lies beyond is taken as UTF-8,
///              and QFile::encodeName decides on the bytes of the name.
/// @return 0 when the directory is there afterwards, also when it was there before; -1 for null, an empty
///         text, a file in the way, or what the system refuses. Parents made by then stay.
QUARVEL_EXPORT int file_ops_mkdir_recursive(const char* path);

/// Removes a directory with all that is in it, hidden entries too, or a single file.
///
/// A path that is a symbolic link stands for what it points to, which goes; the link stays. Links inside the
/// tree are removed themselves, not followed. The first entry that cannot be removed is named on standard
/// error by perror and ends the walk; what was removed by then is gone. A tree with an entry whose absolute
/// path does not fit PATH_MAX is such a case (ENAMETOOLONG).
///
/// @return 0 when everything is gone, otherwise -1 with errno telling why. A path that leads to the root of
///         the file system is refused with errno EACCES; one that cannot be resolved (null: EINVAL, a
///         missing one: ENOENT) keeps the errno of realpath(3). Nothing is touched in either case.
QUARVEL_EXPORT int file_ops_rmdir_recursive(const char* path);

/// Removes a directory with what is visible in it, the Qt way; the two ways differ.
///
/// - Hidden entries, FIFOs, sockets, devices and links that point nowhere are passed over. A directory that
///   holds one is emptied of the rest and stays.
/// - **Links inside are followed**: the file or the whole directory that a link points to goes, wherever it
///   is, and the link stays. Only a link to the root, or back to a directory that is being emptied already,
///   is passed over.
/// - A directory inside that cannot be removed does not end the work; a file does, at once.
///
/// @param path  a directory, absolute or relative to the working directory. Where it is a link, the directory
///              that it points to is emptied, and both stay (-1).
/// @return 0 when the directory is gone; also when there was none, or `path` is empty or no directory.
///         -1 for the root and for whatever stays. errno says nothing.
QUARVEL_EXPORT int file_ops_rmdir_recursive_qt(QString path);

/// Writes an array to a stream as fwrite does, and goes on when a signal (EINTR) or a descriptor that would
/// block (EAGAIN) cut a write short: back to where that attempt began, and once more.
///
/// It waits by trying: for as long as the stream answers EAGAIN, the call does not return.
///
/// @param stream  seekable, never null. Its error and end-of-file flags are cleared first; the error flag is
///                set again when a write fails for good. Flushing is left to the caller.
/// @return `nmemb` once all is handed to the stream. Less when a write failed otherwise or the stream could
///         not be set back: the elements of the attempts before that one, which is less than what reached the
///         stream when the last attempt wrote a part. 0, with nothing written and the flags as they were,
///         where the stream's position cannot be read: a pipe, a socket. 0 for elements of size 0.
QUARVEL_EXPORT size_t file_ops_stream_write(const void* data, size_t size, size_t nmemb, FILE* stream);

/// Copies the content of one file over another, which is truncated, or made with the permission bits of the
/// source less the umask; a file that is there keeps its own.
///
/// **Onto itself empties the file**, by whatever name, and answers true. The copy may still be in the
/// system's cache: it is not synced, and what close reports is not looked at.
///
/// @param src, dst  never null; links are followed
/// @return false after a failure, which perror names on standard error:
///
/// | line begins | state left behind |
/// |---|---|
/// | "copy_file(): open src:" | `dst` as it was |
/// | "copy_file(): fstat src:" | `dst` as it was; deliberate: the descriptor of `src` stays open |
/// | "copy_file(): open dst:" | `dst` as it was |
/// | "copy_file(): read src:" | `dst` holds what was read before |
/// | "copy_file(): write dst:" | `dst` holds a part (a full disk) |
QUARVEL_EXPORT bool copy_file(const char* src, const char* dst);
