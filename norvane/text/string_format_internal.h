// The size estimate behind CKD_ByteString::FormatV and CKD_WideString::FormatV, open to the tests.
#ifndef NORVANE_TEXT_STRING_FORMAT_INTERNAL_H_
#define NORVANE_TEXT_STRING_FORMAT_INTERNAL_H_

#include <cstdarg>

namespace kdtext {

enum FormatStatus { kFormatOk = 0, kFormatBadWidth, kFormatBadPrecision };

// Widths and precisions above this stop the estimate.
constexpr int kMaxFormatWidth = 131072;

// EstimateFormatLength walks fmt and returns the number of characters to allow for its output.
// The rules are deliberately generous:
// - each literal character, and each "%%", adds the length of the rest of the format from there;
// - '#' adds 2; a 'c' or 'C' conversion adds 2;
// - strings add max(their length (at least 1, 6 for a null pointer), cut to the precision when
//   one is given, and the width); 's' and 'hs' take byte text, 'S', 'ls' and 'lS' wide text;
// - integer conversions and 'p' add max(width + precision, 32); 'a', 'e', 'g', 'A', 'E', 'G' add
//   max(width + precision, 128); 'f' adds the length of the value printed with "%*.*f" (width,
//   precision + 6) when width + precision is below 101, else width + precision + 128;
// - 'n' and any other conversion add nothing.
// Size prefixes: "I64", 'h', 'l', and the C forms "ll", 'j', 'z', 't', 'q'; 'L' marks a long double;
// 'N' is skipped, and 'F' too unless nothing that can end a conversion follows it, in which case it
// is the C library's upper-case 'f'. Arguments are taken from args only to reach the later ones.
// A '*' width or precision comes from the next int argument; a negative width counts as its
// magnitude and a negative precision as none. A width or precision above kMaxFormatWidth stops the
// walk with status kFormatBadWidth or kFormatBadPrecision.
//
// When own is given, its flag `found` is set if a string argument points into [begin, end): the
// string being formatted may be printing its own text, which must outlive the printing pass.
struct FormatSource {
  const void* begin;
  const void* end;
  bool found;
};
long long EstimateFormatLength(const char* fmt, va_list args, FormatStatus* status, FormatSource* own = nullptr);
long long EstimateFormatLength(const wchar_t* fmt, va_list args, FormatStatus* status, FormatSource* own = nullptr);

}  // namespace kdtext

#endif  // NORVANE_TEXT_STRING_FORMAT_INTERNAL_H_
