#pragma once

#include "util/export.h"

/// MD5 message digests (RFC 1321) and their forms as text.
///
/// A digest tells what was changed by accident. It is no protection against anybody who means to deceive:
/// messages of one digest are made in seconds.
///
/// Nothing is shared between objects, and nothing is allocated: any thread may use an object of its own.
namespace CP_MD5 {

/// Writes bytes as upper-case hexadecimal digits, two each, and a terminator behind the last pair.
///
/// @param[out] out  room for 2 n + 1 characters; must not overlap `data`
/// @param      n    below 1 nothing is written, not even the terminator
/// @return where the terminator is, to write on from there; `out` when nothing was written
QUARVEL_EXPORT char* ConvertToHex(const char* data, char* out, int n);

/// A digest: 16 bytes, in the order in which they are usually printed.
class QUARVEL_EXPORT TSignature {
public:
    /// 16 zero bytes.
    TSignature();

    bool operator==(const TSignature& other) const; ///< all 16 bytes; not for secrets

    /// Writes 32 upper-case hexadecimal digits.
    ///
    /// @param[out] buf  room for 33 characters, the terminator's included
    /// @return where the terminator is
    char* WriteToBuf(char* buf) const;

    /// Reads 32 hexadecimal digits of either case.
    ///
    /// Anything may follow them, even the end of the memory. A text that ends sooner is refused, also in the
    /// middle of a pair. A pair of other characters is what the C library's `sscanf` with "%2X" makes of the
    /// text from there on: it skips white space and takes a sign, "0x", or one digit alone; the next pair
    /// begins two characters on all the same. So ask for digits first where a text must be strict.
    ///
    /// @param buf  null, or a text whose terminator is looked for only where a pair is not two digits
    /// @return the character behind the 32, to read on from there; or null, and then the bytes of the pairs
    ///         in front of the fault are already changed, the others not
    const char* ReadFromBuf(const char* buf);

    /// Writes the 24 characters of the Base64 form, of which the last two are "==".
    ///
    /// @param[out] buf  room for 25 characters, the terminator's included
    /// @return where the terminator is
    char* WriteBase64ToBuf(char* buf) const;

private:
    friend class TMD5;

    unsigned char bytes[16];
};

/// Computes the digest of a message that comes in any number of pieces.
///
/// A copy goes its own way from where it was taken: so messages that begin alike share that work.
class QUARVEL_EXPORT TMD5 {
public:
    /// Ready for Update().
    TMD5();

    /// The same, with the first piece taken.
    TMD5(const char* data, unsigned len);

    /// Starts a new message; whatever was taken is forgotten.
    void Init();

    /// Takes the next piece.
    ///
    /// @param data  not used after the call; may be null when len is 0
    /// @param len   bytes. All pieces together may be of any length: the count of bits goes on modulo 2^64.
    void Update(const char* data, unsigned len);

    /// Ends the message.
    ///
    /// The object is then all zeros, so that nothing of the message stays in memory. It is not ready for the
    /// next one: without Init() the digests that it gives are not MD5.
    void Final(TSignature& sig);

    /// The compression function by itself: it takes one block of 64 bytes into four words of state, which
    /// need not be those of the object. The object is not touched otherwise.
    ///
    /// @param block  at any address, aligned or not; the bytes are taken as sixteen little-endian words
    void Transform(unsigned* words, const unsigned* block);

private:
    unsigned pending() const; // how many bytes wait in the buffer for the rest of their block

    unsigned state[4];
    unsigned count[2]; // bits taken, the low word first
    unsigned char buffer[64];
};

} // namespace CP_MD5
