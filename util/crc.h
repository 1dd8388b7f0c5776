#pragma once

#include "util/export.h"

/// @file
/// Cyclic redundancy checks of the console's serial and correction messages.
///
/// Each takes the running value and returns it, so that a message may come in any number of pieces: the value
/// returned for one piece is the start value of the next. No check turns its value over at the end. `data` is
/// only read, need not be aligned, and may be null when no byte is to be taken. Any thread may call.
///
/// Long pieces go through carry-less multiplication where the processor has it, the rest through tables; the
/// values are the same. Names and check values (of the nine ASCII digits "123456789") are those of G. Cook,
/// Catalogue of parametrised CRC algorithms.

/// CRC of 16 bits, polynomial 0x1021, most significant bit first.
///
/// @param crc  0 for CRC-16/XMODEM (check value 0x31C3), 0xFFFF for CRC-16/IBM-3740, often called
///             CCITT-FALSE (0x29B1), or what the piece before returned
QUARVEL_EXPORT unsigned short crc16(unsigned short crc, const unsigned char* data, unsigned len);

/// The 256 entries behind crc16(): entry i is the register after the byte i, started at 0.
QUARVEL_EXPORT const unsigned short* crc16table();

/// One byte of calculate_crc16().
QUARVEL_EXPORT unsigned short calculate_crc16_byte(unsigned short crc, unsigned char b);

/// CRC of 16 bits, polynomial 0x8005, least significant bit first (0xA001 in that order).
///
/// Mind the order of the arguments: here the start value is the last.
///
/// @param crc  0 for CRC-16/ARC (check value 0xBB3D), 0xFFFF for CRC-16/MODBUS (0x4B37), or what the piece
///             before returned
QUARVEL_EXPORT unsigned short calculate_crc16(const unsigned char* data, unsigned len, unsigned short crc);

/// CRC-24Q of RTCM 3 frames: 24 bits, polynomial 0x864CFB, most significant bit first. From start 0 it is the
/// catalogue's CRC-24/LTE-A (check value 0xCDE703).
///
/// Over a frame with its own three trailing bytes it gives 0.
///
/// @param crc    0, or what the piece before returned; bits above the 24th are left out
/// @param nbits  the length in bits. Of a last byte that is not whole the most significant bits are taken,
///               so only a piece of whole bytes has a next one. Nothing is read for 0 or a negative number,
///               which return the 24 bits of `crc`.
/// @see   RTCM 10403.3, transport layer: the frame, and the generator polynomial of CRC-24Q
QUARVEL_EXPORT unsigned crc24q(unsigned crc, const unsigned char* data, int nbits);

/// The 256 entries behind crc24q(), each below 2^24: entry i is the register after the byte i, started at 0.
QUARVEL_EXPORT const unsigned* crc24q_table();
