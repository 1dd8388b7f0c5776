#pragma once

#include "util/export.h"

/// @file
/// Base64 of RFC 4648, section 4: "A" to "Z", "a" to "z", "0" to "9", "+" and "/", padded with "=".
///
/// The caller owns both buffers; nothing is allocated. `*dlen` is the room in `dst` on entry, in bytes, and
/// afterwards how much was written, or how much room is needed. All checks come before the first byte is
/// written. Any thread may call, and so may a C program.

#ifdef __cplusplus
extern "C" {
#endif

/// Writes `slen` bytes as one line of text, four characters for every three bytes begun, and a NUL behind it.
///
/// @param[out]    dst   must not overlap `src`
/// @param[in,out] dlen  becomes the length of the text, without the NUL, for which there must be room
/// @param[in]     slen  for 0 or a negative number nothing is done: no NUL is written, and `*dlen` stays
/// @return 0; or -16 when `dst` is too small, with the room needed, the NUL's included, in `*dlen`, and `dst`
///         untouched. From 1610612734 bytes on no int holds that number: always -16, with INT_MAX.
QUARVEL_EXPORT int base64_encode(unsigned char* dst, int* dlen, const unsigned char* src, int slen);

/// Reads text back into bytes. Line ends, LF or CR LF, are skipped wherever they stand. No NUL is appended.
///
/// A last group of fewer than four characters gives no bytes, silently. Room is asked for by the number of
/// characters that are not skipped, "=" among them: three bytes for four of them, and one for each that is
/// left. So "QUI=" wants room for 3 and gives 2, and "QUJDR" wants room for 4 and gives 3. Bits that are left
/// over in front of the padding are not looked at.
///
/// @param[out]    dst   may be `src`, to decode in place; must not overlap it in any other way
/// @param[in,out] dlen  becomes the number of bytes written; stays when the text is empty or all line ends
/// @param[in]     slen  a negative number counts as 0
/// @return 0; -16 when `dst` is too small, with the room asked for in `*dlen`; or -18, with `*dlen` as it
///         was: for a character outside the alphabet, a CR without its LF, a third "=", or a character of
///         the alphabet behind a "=". `dst` is untouched unless 0 is returned.
QUARVEL_EXPORT int base64_decode(unsigned char* dst, int* dlen, const unsigned char* src, int slen);

/// Encodes 64 fixed bytes and decodes their text, each compared with what it must give.
///
/// @param verbose  unless 0, the course is told on standard output
/// @return 0 when both are right; 1 at the first that is not
QUARVEL_EXPORT int base64_self_test(int verbose);

#ifdef __cplusplus
}
#endif
