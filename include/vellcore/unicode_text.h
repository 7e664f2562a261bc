#pragma once
// Text in UTF-8, UTF-16 and UTF-32: walking, measuring, editing, converting, cleaning.
//
// Strings end at their first zero byte or unit; a null string is an empty one. Nothing here allocates, logs or locks:
// any thread may call anything, as long as nobody changes the text meanwhile. What is written goes into the caller's
// buffer, whose capacity counts its elements, the terminator's included; with a capacity of 0 no memory is touched.
// Input and output must not overlap, unless it says so.
//
// A code point is a signed 32-bit number, and decoding never fails: a byte that begins no valid sequence is a character
// of its own, with the byte's value as its code point (its reading in Latin-1). Surrogates in three bytes are valid.
//
// UTF-16 is in the machine's order of bytes. Its pairs are this library's own: formed without the usual offset of
// 0x10000 (see vl_utf16_encode). A code point from 0x10000 to 0xFFFFF comes back as it went in; from 0x100000 on the
// first unit is not seen as a pair's. The functions exist for arrays of units and for arrays of bytes that hold units;
// the latter may lie at an odd address.

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "export.h"

// --- The two rules of UTF-8 (RFC 3629, 3, with surrogates let through) ---------------------------------------------

/// Decodes one character.
///
/// | lead byte | characters from         | bytes | otherwise |
/// | --------- | ----------------------- | ----- | --------- |
/// | 00-7F     | U+0000                  | 1     |           |
/// | C0-DF     | U+0080; no overlong     | 2     | lead byte |
/// | E0-EF     | U+0800; no overlong     | 3     | lead byte |
/// | F0-F7     | U+10000 to U+10FFFF     | 4     | lead byte |
/// | 80-BF, F8-FF |                      |       | lead byte |
///
/// Bytes are read in order up to the first that cannot continue the sequence, so never behind a terminator.
///
/// @param s   not null.
/// @param cp  not null; receives the code point: 0 at the terminator.
/// @return  bytes taken, 1 to 4.
VELL_API int utf8_decode(const unsigned char* s, int* cp) noexcept;

/// Length of the valid sequence at `s` (not null) in bytes, 1 to 4; 0 when there is none. A terminator is valid.
[[nodiscard]] VELL_API int utf8_code_len(const unsigned char* s) noexcept;

// --- UTF-8: walking and measuring ---------------------------------------------------------------------------------

/// The string's length in code points.
[[nodiscard]] VELL_API size_t vl_utf8_strlen(const char* s) noexcept;

/// The code point at a position, which moves behind it.
///
/// @param pos  byte index, at most the string's length; not null. It stays where it is at the terminator.
/// @return  0 at the terminator.
VELL_API int vl_utf8_get_code_point(const char* s, size_t* pos) noexcept;

/// The code point before a position, which moves to its beginning.
///
/// Kept: it trusts a lead byte up to four bytes back without looking at what lies between. When no valid sequence
/// begins there, the position still moves to the lead byte, and its value is the result.
///
/// @param pos  byte index, at most the string's length; not null.
/// @return  0 at the beginning.
VELL_API int vl_utf8_get_code_point_rev(const char* s, size_t* pos) noexcept;

/// Bytes that `count` code points take from byte `offset` on, at most those before the terminator.
///
/// @param offset  byte index, at most the string's length.
/// @return  0 when `count` is below 1.
[[nodiscard]] VELL_API size_t vl_utf8_get_num_bytes(const char* s, size_t offset, int count) noexcept;

/// Bytes that a code point takes: 1 below 0x80 (negative ones too), 2 below 0x800, 3 below 0x10000, 4 below 0x200000,
/// otherwise 0.
[[nodiscard]] VELL_API int vl_utf8_get_num_bytes_for_code_point(int cp) noexcept;

/// Writes a code point, without a terminator. Of a negative one the low 8 bits are written.
///
/// @return  bytes written; 0, and nothing written, above 0x1FFFFF or when it does not fit.
VELL_API int vl_utf8_encode(int cp, char* buffer, size_t capacity) noexcept;

// --- UTF-8: editing in place ---------------------------------------------------------------------------------------
// The buffer holds a terminated string. An index counts code points from its start: 0 or less is the start, one that is
// too large the end.

/// Inserts a code point before another.
///
/// @param capacity  of the buffer, bytes.
/// @return  bytes inserted; 0, and nothing changed, above 0x1FFFFF or when the result does not fit.
VELL_API size_t vl_utf8_insert_char(char* buffer, size_t capacity, int index, int cp) noexcept;

/// Removes up to `count` code points. @return  bytes removed; 0 when `count` is below 1 or `index` is not before the
/// end.
VELL_API size_t vl_utf8_erase(char* s, int index, int count) noexcept;

/// Inserts a text, or as many of its first code points as fit.
///
/// @param capacity  of the buffer, bytes.
/// @param text      must not lie in the buffer.
/// @return  bytes inserted.
VELL_API size_t vl_utf8_insert(char* buffer, size_t capacity, int index, const char* text) noexcept;

// --- UTF-16 --------------------------------------------------------------------------------------------------------
// A pair is a high unit, 0xD800 to 0xDBFF, with a low unit, 0xDC00 to 0xDFFF, behind it. Any other unit is a code
// point.

/// The string's length in code points.
[[nodiscard]] VELL_API size_t vl_utf16_strlen(const unsigned short* units) noexcept;
[[nodiscard]] VELL_API size_t vl_utf16_strlen(const unsigned char* bytes) noexcept;

/// The code point at a position, which moves behind it.
///
/// Kept: the pair D800 DC00 is the code point 0. This walker takes it for the end, vl_utf16_strlen for a character;
/// vl_utf16_encode never makes it, but other software's UTF-16 may hold it.
///
/// @param pos  index of a unit, or (with bytes) of a byte, which is rounded down to a unit's; not null. It stays at the
///             unit when the code point is 0.
/// @return  0 at the terminator.
VELL_API int vl_utf16_get_code_point(const unsigned short* units, size_t* pos) noexcept;
VELL_API int vl_utf16_get_code_point(const unsigned char* bytes, size_t* pos) noexcept;

/// Units that a code point takes: 1 below 0x10000 (negative ones too), otherwise 2.
[[nodiscard]] VELL_API int vl_utf16_get_num_for_code_point(int cp) noexcept;

/// The same in bytes.
[[nodiscard]] VELL_API int vl_utf16_get_num_bytes_for_code_point(int cp) noexcept;

/// Writes a code point, without a terminator: its low 16 bits, or above 0xFFFF the pair (cp >> 10) + 0xD800 (its low 16
/// bits) and 0xDC00 | (cp & 0x3FF).
///
/// @param capacity  of the array, in units or (with bytes) in bytes, halved.
/// @return  units or (with bytes) bytes written; 0, and nothing written, when it does not fit.
VELL_API int vl_utf16_encode(int cp, unsigned short* units, size_t capacity) noexcept;
VELL_API int vl_utf16_encode(int cp, unsigned char* bytes, size_t capacity) noexcept;

// --- Conversions ---------------------------------------------------------------------------------------------------
// What does not fit is left off: the output ends at the last code point that fits, and the last element of the buffer
// is always set to zero. Kept: that happens after the text is written, so a text that fills the buffer loses its last
// byte or unit, and a UTF-8 sequence may be cut in half there. All return the output.

/// UTF-16 to UTF-8. @param capacity  of the output, bytes.
VELL_API char* vl_utf16_to_utf8(const unsigned short* units, char* out, size_t capacity) noexcept;
VELL_API char* vl_utf16_to_utf8(const unsigned char* bytes, char* out, size_t capacity) noexcept;

/// UTF-8 to UTF-16. @param capacity  of the output, in units or (with bytes) in bytes, halved.
VELL_API unsigned short* vl_utf8_to_utf16(const char* s, unsigned short* out, size_t capacity) noexcept;
VELL_API unsigned char* vl_utf8_to_utf16(const char* s, unsigned char* out, size_t capacity) noexcept;

/// UTF-32 to UTF-8. It also ends at a unit from 0x200000 to 0x7FFFFFFF, which has no form in UTF-8; of higher ones the
/// low 8 bits are written. @param capacity  of the output, bytes.
VELL_API char* vl_utf32_to_utf8(const unsigned int* units, char* out, size_t capacity) noexcept;

/// The same for wide characters, which have 32 bits.
VELL_API char* vl_wchar_to_utf8(const wchar_t* wide, char* out, size_t capacity) noexcept;

/// UTF-8 to UTF-32. @param capacity  of the output, units.
VELL_API unsigned int* vl_utf8_to_utf32(const char* s, unsigned int* out, size_t capacity) noexcept;

/// The same into wide characters. @param capacity_characters  of the output, characters.
VELL_API wchar_t* vl_utf8_to_wchar_n(const char* s, wchar_t* out, size_t capacity_characters) noexcept;

/// The same. @param capacity_bytes  of the output, bytes.
VELL_API wchar_t* vl_utf8_to_wchar_s(const char* s, wchar_t* out, size_t capacity_bytes) noexcept;

// --- Latin-1 and cleaning ------------------------------------------------------------------------------------------

/// UTF-8 to Latin-1. C2 and C3 with a byte from 80 to FF behind them become one byte; every other byte is copied.
///
/// Kept: at most capacity - 2 bytes are stored, one fewer than there is room for, and a capacity below 3 gives the
/// empty string.
///
/// @param capacity  of the output, bytes.
/// @param in        may be the output.
/// @return  the output.
VELL_API char* vl_utf8_to_byte(char* out, size_t capacity, const char* in) noexcept;

/// Latin-1 to UTF-8, up to the first character that does not fit. @param capacity  of the output, bytes.
/// @return  the output.
VELL_API char* vl_byte_to_utf8(char* out, size_t capacity, const char* in) noexcept;

/// Copies a text for use in XML: every byte below 0x21 but carriage return and line feed becomes a space.
///
/// Kept: room as in vl_utf8_to_byte.
///
/// @param capacity  of the output, bytes.
/// @param in        may be the output.
/// @return  the output.
VELL_API char* validate_ascii_xml_text(char* out, size_t capacity, const char* in) noexcept;

/// What vl_utf8_printable does to backslashes.
enum vl_backslashes : int32_t {
    VL_BACKSLASHES_KEPT = 0,     ///< stay as they are
    VL_BACKSLASHES_DOUBLED = 1,  ///< become two, so that the result tells exactly what the text was
};

/// Makes a text of unknown origin (a file's name, a server's words) fit to be shown on a terminal or in a line of the
/// log: control characters (C0, DEL and C1), characters that change the direction of text or have no width, line and
/// paragraph separators, and bytes that are not UTF-8 (RFC 3629; surrogates are not) become \n, \t, \r, or \x and
/// two hexadecimal digits for each byte. All other text is copied.
///
/// @param out          gets as much of the result as fits, never part of an escape or a character, and a zero; may be
///                     null when `capacity` is 0.
/// @param capacity     of `out`, bytes, its zero included.
/// @param text         may hold zeros; may be null when `length` is 0.
/// @param length       bytes.
/// @param backslashes  a vl_backslashes.
/// @return  the length of the complete result, bytes, without its zero: at most four times `length`. It is `length`
///          exactly when the text is copied as it is.
VELL_API size_t vl_utf8_printable(char* out, size_t capacity, const char* text, size_t length,
                                  int32_t backslashes) noexcept;

/// 1 when the whole string is valid (see utf8_code_len), else 0.
[[nodiscard]] VELL_API int vl_utf8_is_valid(const char* s) noexcept;

/// Cuts the string at its first invalid sequence. @return  the string.
VELL_API char* vl_utf8_validate(char* s) noexcept;

// --- Files ---------------------------------------------------------------------------------------------------------

/// fopen for a path in UTF-8. @return  null with errno set on failure; EINVAL for a null path or mode.
[[nodiscard]] VELL_API FILE* vl_utf8_fopen(const char* path, const char* mode) noexcept;

/// freopen for a path in UTF-8; a null path changes the stream's mode only.
/// @return  the stream; null with errno set on failure: the stream is closed then. EINVAL, with nothing done, for a
/// null
///          mode or stream.
[[nodiscard]] VELL_API FILE* vl_utf8_freopen(const char* path, const char* mode, FILE* stream) noexcept;
