// The platform layer's C standard I/O calls, for code that reads whole files through a stdio
// stream. A KDCRT_StdFile is the platform's FILE, kept opaque so callers include no system header.
#ifndef NORVANE_RUNTIME_KDCRT_STDIO_INTERNAL_H_
#define NORVANE_RUNTIME_KDCRT_STDIO_INTERNAL_H_

#include <cstddef>

struct KDCRT_StdFile;

// KDCRT_StdFile_Open opens path with fopen and mode; null when that fails or path names a
// directory (whose "size" would be meaningless).
KDCRT_StdFile* KDCRT_StdFile_Open(const char* path, const char* mode);
// KDCRT_StdFile_Size seeks to the end, reads the position and seeks back to the start. Returns
// the size in bytes, or -1 when a seek or the position fails.
long long KDCRT_StdFile_Size(KDCRT_StdFile* file);
// KDCRT_StdFile_Read reads up to size bytes in one fread call and returns the count read.
size_t KDCRT_StdFile_Read(KDCRT_StdFile* file, void* buffer, size_t size);
// KDCRT_StdFile_Close closes a non-null file.
void KDCRT_StdFile_Close(KDCRT_StdFile* file);

#endif  // NORVANE_RUNTIME_KDCRT_STDIO_INTERNAL_H_
