// Format and FormatV of byte and wide strings: a first pass over the format estimates the output
// length (string_format_internal.h states the rules), the string's buffer is sized from it and
// zero-filled, and the C library prints into it within that size.
#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>
#include <cwchar>

#include "norvane/runtime/kdcrt_locale_internal.h"
#include "norvane/text/byte_string.h"
#include "norvane/text/string_core_internal.h"
#include "norvane/text/string_format_internal.h"
#include "norvane/text/wide_string.h"

namespace kdtext {
namespace {

template <class C>
size_t TextLength(const C* s);
template <>
size_t TextLength(const char* s) {
  return strlen(s);
}
template <>
size_t TextLength(const wchar_t* s) {
  return wcslen(s);
}

template <class C>
inline bool IsDigit(C c) {
  return c >= '0' && c <= '9';
}

// ReadNumber reads decimal digits at p, stopping its count just above the width limit so that an
// absurdly long number cannot overflow.
template <class C>
long long ReadNumber(const C*& p) {
  long long v = 0;
  for (; IsDigit(*p); ++p) {
    if (v <= kMaxFormatWidth) v = v * 10 + (*p - '0');
  }
  return v;
}

// CanEndConversion tells whether c may follow an 'F' prefix: a conversion or another prefix.
template <class C>
bool CanEndConversion(C c) {
  switch (c) {
    case 'c': case 'C': case 's': case 'S': case 'd': case 'i': case 'o': case 'u': case 'x': case 'X':
    case 'p': case 'a': case 'e': case 'g': case 'A': case 'E': case 'G': case 'f': case 'F': case 'n':
    case 'h': case 'l': case 'I': case 'L': case 'N': case 'q': case 'j': case 'z': case 't':
      return true;
    default:
      return false;
  }
}

// StringArgLength measures a string argument: at least 1, 6 for null (the "(null)" the C library
// prints), and no further than a given precision, so that unterminated text cut by a precision
// is never overrun.
long long StringArgLength(const void* arg, bool wide, bool hasPrecision, long long precision) {
  if (!arg) return 6;
  long long len;
  if (wide) {
    const auto* w = static_cast<const wchar_t*>(arg);
    len = static_cast<long long>(hasPrecision ? wcsnlen(w, static_cast<size_t>(precision)) : wcslen(w));
  } else {
    const auto* s = static_cast<const char*>(arg);
    len = static_cast<long long>(hasPrecision ? strnlen(s, static_cast<size_t>(precision)) : strlen(s));
  }
  return len < 1 ? 1 : len;
}

inline bool Inside(const void* p, const FormatSource* own) {
  auto a = reinterpret_cast<uintptr_t>(p);
  return a >= reinterpret_cast<uintptr_t>(own->begin) && a < reinterpret_cast<uintptr_t>(own->end);
}

template <class C>
long long Estimate(const C* fmt, va_list args, FormatStatus* status, FormatSource* own) {
  *status = kFormatOk;
  if (!fmt) return 0;
  const long long total = static_cast<long long>(TextLength(fmt));
  long long estimate = 0;
  const C* p = fmt;
  while (*p) {
    if (*p != '%' || p[1] == '%') {
      // The generous literal rule: the rest of the format, counted from here.
      estimate += total - (p - fmt);
      p += *p == '%' ? 2 : 1;
      continue;
    }
    ++p;

    long long width = 0;
    bool starWidth = false;
    for (;; ++p) {
      if (*p == '#') {
        estimate += 2;
      } else if (*p == '*') {
        long long w = va_arg(args, int);
        width = w < 0 ? -w : w;
        starWidth = true;
      } else if (*p != ' ' && *p != '+' && *p != '-' && *p != '0') {
        break;
      }
    }
    if (!starWidth) width = ReadNumber(p);
    if (width > kMaxFormatWidth) {
      *status = kFormatBadWidth;
      return 0;
    }

    long long precision = 0;
    bool hasPrecision = false;
    if (*p == '.') {
      ++p;
      hasPrecision = true;
      if (*p == '*') {
        ++p;
        long long v = va_arg(args, int);
        if (v < 0) {
          hasPrecision = false;
        } else {
          precision = v;
        }
      } else {
        precision = ReadNumber(p);
      }
      if (precision > kMaxFormatWidth) {
        *status = kFormatBadPrecision;
        return 0;
      }
    }

    bool is64 = false, isLong = false, longDouble = false, upperF = false;
    for (;;) {
      if (p[0] == 'I' && p[1] == '6' && p[2] == '4') {
        is64 = true;
        p += 3;
      } else if (*p == 'h' || *p == 'N') {
        ++p;
      } else if (*p == 'l') {
        is64 = is64 || isLong;
        isLong = true;
        ++p;
      } else if (*p == 'q' || *p == 'j' || *p == 'z' || *p == 't') {
        is64 = true;
        ++p;
      } else if (*p == 'L') {
        longDouble = true;
        ++p;
      } else if (*p == 'F' && CanEndConversion(p[1])) {
        ++p;
      } else {
        upperF = *p == 'F';
        break;
      }
    }

    const C conversion = *p;
    const long long sized = width + precision;
    long long item = 0;
    switch (upperF ? 'f' : static_cast<int>(conversion)) {
      case 'c':
      case 'C':
        (void)va_arg(args, int);
        item = 2;
        break;
      case 's':
      case 'S': {
        const void* arg = va_arg(args, const void*);
        if (own && arg && Inside(arg, own)) own->found = true;
        long long len = StringArgLength(arg, conversion == 'S' || isLong, hasPrecision, precision);
        if (hasPrecision && precision < len) len = precision;
        item = len > width ? len : width;
        break;
      }
      case 'd':
      case 'i':
      case 'o':
      case 'u':
      case 'x':
      case 'X':
        if (is64 || isLong) {
          (void)va_arg(args, long long);
        } else {
          (void)va_arg(args, int);
        }
        item = sized > 32 ? sized : 32;
        break;
      case 'p':
        (void)va_arg(args, void*);
        item = sized > 32 ? sized : 32;
        break;
      case 'a':
      case 'e':
      case 'g':
      case 'A':
      case 'E':
      case 'G':
        if (longDouble) {
          (void)va_arg(args, long double);
        } else {
          (void)va_arg(args, double);
        }
        item = sized > 128 ? sized : 128;
        break;
      case 'f': {
        char scratch[256];
        int w = static_cast<int>(width), prec = static_cast<int>(precision) + 6;
        int printed;
        if (longDouble) {
          long double v = va_arg(args, long double);
          printed = sized < 101 ? snprintf(scratch, sizeof(scratch), "%*.*Lf", w, prec, v) : -1;
        } else {
          double v = va_arg(args, double);
          printed = sized < 101 ? snprintf(scratch, sizeof(scratch), "%*.*f", w, prec, v) : -1;
        }
        // snprintf's count is the full length even when the scratch area cut the text short.
        item = sized < 101 ? (printed > 0 ? printed : 0) : sized + 128;
        break;
      }
      case 'n':
        (void)va_arg(args, void*);
        break;
      default:
        break;
    }
    if (*p) ++p;
    estimate += item;
  }
  return estimate;
}

}  // namespace

long long EstimateFormatLength(const char* fmt, va_list args, FormatStatus* status, FormatSource* own) {
  return Estimate(fmt, args, status, own);
}

long long EstimateFormatLength(const wchar_t* fmt, va_list args, FormatStatus* status, FormatSource* own) {
  return Estimate(fmt, args, status, own);
}

// FormatV of both string kinds. The estimate (which also tells whether an argument points into the
// string's own record) gives the size: the estimate plus 32 for bytes, the estimate for wide
// characters; an estimate with no such buffer empties the string. The buffer from GetBuffer(size)
// is zero-filled (and, for wide characters, its terminator), print(buffer, size) runs the
// printing pass, and the length is then measured to the terminator.
//
// An argument may be the string's own text (s.Format("%s!", s.c_str())). Sizing the buffer in
// place would zero that text, and replacing the record would free it, before the printing pass
// reads it. Such a string prints into a new record of the size GetBuffer gives a record it
// replaces, and the old record is released only afterwards.
template <class C, class Print>
void FormatV(typename CharTraits<C>::String& str, const C* fmt, va_list args, const C* bad_width,
             const C* bad_precision, Print print) {
  constexpr bool kWide = sizeof(C) > 1;
  Rec<C>*& data = StringAccess::Data(str);
  if (!fmt) {
    str.Empty();
    return;
  }
  // The estimate consumes arguments; the printing pass needs them all again.
  va_list scan;
  va_copy(scan, args);
  FormatStatus status;
  FormatSource own{nullptr, nullptr, false};
  if (data) {
    own.begin = data;
    own.end = reinterpret_cast<const char*>(data) + RecordBytes<C>(static_cast<size_t>(data->m_nAllocLength));
  }
  long long estimate = EstimateFormatLength(fmt, scan, &status, &own);
  va_end(scan);
  if (status != kFormatOk) {
    str = status == kFormatBadWidth ? bad_width : bad_precision;
    return;
  }
  if (kWide ? estimate >= INT_MAX : estimate > INT_MAX - 32) {  // no such buffer can be had
    str.Empty();
    return;
  }
  const int size = static_cast<int>(estimate) + (kWide ? 0 : 32);
  Rec<C>* old = nullptr;
  if (own.found) {
    old = data;
    const int len = old->m_nDataLength;
    data = NewRecord<C>(size > len ? size : len);
    if (data) SetLength<C>(data, 0);
  }
  // A null buffer is also the null string given an empty format: its result is empty.
  C* buffer = data || !old ? str.GetBuffer(size) : nullptr;
  if (buffer) {
    std::fill(buffer, buffer + size + (kWide ? 1 : 0), C(0));
    print(buffer, size);
    str.ReleaseBuffer(-1);
  }
  Release<C>(old);
}

}  // namespace kdtext

void CKD_ByteString::Format(const char* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  FormatV(fmt, args);
  va_end(args);
}

// The byte form allows 32 characters beyond the estimate and prints with the "C" locale, so the
// decimal separator is always '.'; the wide form prints in the thread's locale.
void CKD_ByteString::FormatV(const char* fmt, va_list args) {
  kdtext::FormatV<char>(*this, fmt, args, "Bad width", "Bad precision", [&](char* buffer, int size) {
    KDCRT_LocaleSwitch locale;
    KDCRT_Locale_EnterC(&locale);
    vsnprintf(buffer, static_cast<size_t>(size - 1), fmt, args);
    KDCRT_Locale_Leave(&locale);
  });
}

void CKD_WideString::Format(const wchar_t* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  FormatV(fmt, args);
  va_end(args);
}

void CKD_WideString::FormatV(const wchar_t* fmt, va_list args) {
  kdtext::FormatV<wchar_t>(*this, fmt, args, L"Bad width", L"Bad precision", [&](wchar_t* buffer, int size) {
    vswprintf(buffer, static_cast<size_t>(size) + 1, fmt, args);
  });
}
