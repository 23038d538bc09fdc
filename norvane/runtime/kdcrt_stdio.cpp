#include "norvane/runtime/kdcrt_stdio_internal.h"

#include <sys/stat.h>

#include <cstdio>

namespace {

FILE* Stream(KDCRT_StdFile* file) { return reinterpret_cast<FILE*>(file); }

}  // namespace

KDCRT_StdFile* KDCRT_StdFile_Open(const char* path, const char* mode) {
  if (!path || !mode) return nullptr;
  FILE* f = fopen(path, mode);
  if (!f) return nullptr;
  struct stat st;
  if (fstat(fileno(f), &st) == 0 && S_ISDIR(st.st_mode)) {
    fclose(f);
    return nullptr;
  }
  return reinterpret_cast<KDCRT_StdFile*>(f);
}

long long KDCRT_StdFile_Size(KDCRT_StdFile* file) {
  FILE* f = Stream(file);
  if (fseeko(f, 0, SEEK_END) != 0) return -1;
  off_t size = ftello(f);
  if (size < 0 || fseeko(f, 0, SEEK_SET) != 0) return -1;
  return static_cast<long long>(size);
}

size_t KDCRT_StdFile_Read(KDCRT_StdFile* file, void* buffer, size_t size) {
  return fread(buffer, 1, size, Stream(file));
}

void KDCRT_StdFile_Close(KDCRT_StdFile* file) {
  if (file) fclose(Stream(file));
}
