// The platform layer's process-level calls. Library code asks these instead of calling the
// system directly, so a port replaces only the KDCRT_ files.
#ifndef NORVANE_RUNTIME_KDCRT_SYSTEM_INTERNAL_H_
#define NORVANE_RUNTIME_KDCRT_SYSTEM_INTERNAL_H_

#include <cstddef>

// KDCRT_GetPageSize returns the system page size in bytes.
size_t KDCRT_GetPageSize();
// KDCRT_GetProcessID returns the calling process's id.
int KDCRT_GetProcessID();

// The operating system's random bytes. KDCRT_ReadRandomDevice opens the device at path, reads
// size bytes and closes it; false when it cannot be opened or ends early. KDCRT_GetRandom asks
// getrandom(2) for size bytes; false when the call fails. KDCRT_ReadRandom tries
// "/dev/urandom" first and getrandom(2) when the device fails; when both fail it stops the
// process (abort), since every caller would otherwise go on with predictable numbers.
bool KDCRT_ReadRandomDevice(const char* path, void* buffer, size_t size);
bool KDCRT_GetRandom(void* buffer, size_t size);
void KDCRT_ReadRandom(void* buffer, size_t size);

#endif  // NORVANE_RUNTIME_KDCRT_SYSTEM_INTERNAL_H_
