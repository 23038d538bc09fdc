// Build-wide definitions every Norvane header relies on: the version, the export macro and the
// platform assumptions the library's byte formats and layouts are written for.
#ifndef NORVANE_CONFIG_H_
#define NORVANE_CONFIG_H_

#include <cstddef>
#include <cstdint>

// The library's version, also the installed package's; the major number is the shared library's
// SONAME version.
#define NORVANE_VERSION_MAJOR 0
#define NORVANE_VERSION_MINOR 1
#define NORVANE_VERSION_PATCH 0
#define NORVANE_VERSION_STRING "0.1.0"

// NORVANE_API marks what the shared library exports: functions, classes and data of the public
// interface. Everything else is built with hidden visibility and stays internal.
#define NORVANE_API __attribute__((visibility("default")))

// Layouts, hash values and byte formats assume a 64-bit little-endian machine whose wchar_t holds
// one 32-bit code point (x86-64 and ARM64 Linux).
static_assert(sizeof(void*) == 8, "Norvane needs 64-bit pointers");
static_assert(sizeof(size_t) == 8, "Norvane needs a 64-bit size_t");
static_assert(sizeof(wchar_t) == 4, "Norvane needs a 32-bit wchar_t");
static_assert(sizeof(int) == 4 && sizeof(long long) == 8, "Norvane needs 32-bit int and 64-bit long long");
#if !defined(__BYTE_ORDER__) || __BYTE_ORDER__ != __ORDER_LITTLE_ENDIAN__
#error "Norvane needs a little-endian machine"
#endif

#endif  // NORVANE_CONFIG_H_
