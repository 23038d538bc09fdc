#include "norvane/runtime/kdcrt_system_internal.h"

#include <fcntl.h>
#include <sys/random.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>

size_t KDCRT_GetPageSize() { return static_cast<size_t>(getpagesize()); }

int KDCRT_GetProcessID() { return static_cast<int>(getpid()); }

bool KDCRT_ReadRandomDevice(const char* path, void* buffer, size_t size) {
  int fd;
  do {
    fd = open(path, O_RDONLY | O_CLOEXEC);
  } while (fd < 0 && errno == EINTR);
  if (fd < 0) return false;
  uint8_t* at = static_cast<uint8_t*>(buffer);
  size_t left = size;
  while (left > 0) {
    const ssize_t got = read(fd, at, left);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    at += got;
    left -= static_cast<size_t>(got);
  }
  close(fd);
  return left == 0;
}

bool KDCRT_GetRandom(void* buffer, size_t size) {
  uint8_t* at = static_cast<uint8_t*>(buffer);
  size_t left = size;
  // Requests above 256 bytes may come back short; ask again for the rest.
  while (left > 0) {
    const ssize_t got = getrandom(at, left, 0);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return false;
    at += got;
    left -= static_cast<size_t>(got);
  }
  return true;
}

void KDCRT_ReadRandom(void* buffer, size_t size) {
  if (KDCRT_ReadRandomDevice("/dev/urandom", buffer, size) || KDCRT_GetRandom(buffer, size)) return;
  abort();
}
