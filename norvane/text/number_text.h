// Number text: quick parsers of decimal text and float formatting without exponents.
//
// The parsers are deliberately permissive: they do not validate their input, skip no white
// space, know no exponent, infinity or NaN spelling, and never fail. Callers that need validation
// check the text first. They read only the bytes or characters they are given (a view need not be
// terminated) and do not depend on the process locale.
//
// The formatters write plain decimal text: digits, at most one '.', a leading '-' for negative
// values, never an exponent; the text is terminated with 0 and its length (without the 0) is
// returned. A buffer of KD_FTOA_BUFFER_SIZE bytes holds any result. Every formatter writes a value
// of 0 (either sign) as "0", infinities as "inf" and "-inf" and a NaN as "nan"; a null buffer
// writes nothing and returns 0. Digits are correctly rounded from the float's exact value, ties
// to even.
#ifndef NORVANE_TEXT_NUMBER_TEXT_H_
#define NORVANE_TEXT_NUMBER_TEXT_H_

#include "norvane/config.h"
#include "norvane/text/byte_string.h"

// The buffer size that holds the text of any float written by the formatters below.
constexpr int KD_FTOA_BUFFER_SIZE = 64;

// KD_atof parses text as [sign-run] integer-part ['.' fraction] in single precision:
// - an empty text gives 0; a first character '-' makes the result negative, and after a first
//   '+' or '-' a further run of '+' and '-' is skipped ("--5" is -5); a text of signs only gives 0;
// - every byte up to the first '.' is a digit worth its code minus '0', with no check
//   ("1a" is 1 * 10 + 49 = 59): num = num * 10 + digit;
// - when fewer than 12 bytes remain from the '.' (or the end) on, the bytes after the '.' add
//   digit * 0.1, digit * 0.01, ... (at most eleven, unchecked as above);
// - otherwise the accumulated value is dropped and the text after the signs is converted with the
//   C library's strtof under the "C" locale (which does accept exponents and white space).
NORVANE_API float KD_atof(const CKD_ByteStringC& text);

// KD_wtof parses len characters of text (negative: to the terminator; null or 0: 0) as the wide
// form of KD_atof with its own rules: only the first character may be a sign; the integer part,
// up to the first '.', accumulates in a wrapping 32-bit int (unchecked digits) converted to float
// at the end; every character after the '.' is a fraction digit, the k-th adding
// digit * 0.1^k (scale kept in single precision, no limit, no strtof). The result is integer +
// fraction, negated for a leading '-'.
NORVANE_API float KD_wtof(const wchar_t* text, int len);

// KD_atonum parses text as an integer when it holds no '.', else as a float:
// - integer: isInteger becomes true; an optional '+' or '-', then decimal digits up to the first
//   non-digit, accumulated in 64 bits; if the running value turns negative the result is 0. The
//   value is stored in 8 bytes at result when size is 8, else in 4 bytes (truncated);
// - float: isInteger becomes false and KD_atof(text) is stored in the first 4 bytes of result.
// A null result stores nothing (isInteger is still set). result need not be aligned.
NORVANE_API void KD_atonum(const CKD_ByteStringC& text, bool& isInteger, void* result, int size);

// KD_atofix32 parses text as a signed 32.32 fixed-point value: integer + fraction / 2^32.
// - Both outputs start at 0; an empty text or one of a sign only leaves them so.
// - An optional '+' or '-', then decimal digits up to the first non-digit accumulate in a 32-bit
//   int. If a step leaves the value negative, integer becomes 16777215 (0xFFFFFF), negated for a
//   '-', and parsing stops. (A step that wraps past the sign into positive values goes unnoticed:
//   "9999999999" gives 1410065407.)
// - After a '.', up to nine digits add digit * w[k] to fraction, with the weights
//   w = 429496730, 42949673, 4294967, 429497, 42950, 4295, 429, 43, 4 (2^32 / 10^k rounded).
// - A negative text with a non-zero fraction lowers integer by 1 and replaces fraction with
//   2^32 - fraction ("-1.5" gives -2 and 0x7FFFFFFE: the weights make .5 0x80000002).
NORVANE_API void KD_atofix32(const CKD_ByteStringC& text, int& integer, unsigned int& fraction);

// KD_ftoa_s writes value with at most precision digits after the '.': the shortest text that
// reads back (strtof, round to nearest) as the same float when it needs no more; otherwise value
// correctly rounded to precision fraction digits. A precision of 0 or less sets no limit, so the
// text is the shortest that reads back. Trailing zeros after the '.' are never written
// (1.5 with precision 3 is "1.5", 0.001 with precision 2 is "0", -0.001 is "-0").
NORVANE_API int KD_ftoa_s(float value, char* buffer, int precision);

// KD_ftoa writes value with at most precision significant digits, by the rules of KD_ftoa_s
// otherwise: the shortest text that reads back when it has no more digits, else value correctly
// rounded to precision significant digits with zeros up to the '.' (1234567 with precision 3 is
// "1230000", 0.00123456 is "0.00123"). A precision of 0 or less sets no limit.
NORVANE_API int KD_ftoa(float value, char* buffer, int precision);

// KD_ftoa_ex writes value in fixed notation with the library-wide number of fraction digits
// (KD_SetFloatPrecision): the integer part (by KDSYS_i64toa), then, unless the count is 0, a '.'
// and exactly that many digits, the whole correctly rounded (2.5 with 2 digits is "2.50").
// Values of 2^63 and above, which a 64-bit integer cannot hold, are written in full all the same.
NORVANE_API int KD_ftoa_ex(float value, char* buffer);

// KD_SetFloatPrecision sets the fraction digits KD_ftoa_ex writes, clamped to 0..8, for the whole
// process (6 until set); KD_GetFloatPrecision returns the current count.
NORVANE_API void KD_SetFloatPrecision(int digits);
NORVANE_API int KD_GetFloatPrecision();

// KDSYS_strtof parses len bytes of str (negative: strlen) by KDSYS_wcstof's rules after
// converting them to wide text in the current locale (CKD_WideString::FromLocal); used, when not
// null, receives the count of wide characters consumed. Text the locale cannot convert, a null
// str or a len of 0 gives 0 and leaves used unwritten.
NORVANE_API float KDSYS_strtof(const char* str, int len, int* used);

#endif  // NORVANE_TEXT_NUMBER_TEXT_H_
