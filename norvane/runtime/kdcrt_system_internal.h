// The platform layer's process-level calls. Library code asks these instead of calling the
// system directly, so a port replaces only the KDCRT_ files.
#ifndef NORVANE_RUNTIME_KDCRT_SYSTEM_INTERNAL_H_
#define NORVANE_RUNTIME_KDCRT_SYSTEM_INTERNAL_H_

#include <cstddef>

// KDCRT_GetPageSize returns the system page size in bytes.
size_t KDCRT_GetPageSize();
// KDCRT_GetProcessID returns the calling process's id.
int KDCRT_GetProcessID();

#endif  // NORVANE_RUNTIME_KDCRT_SYSTEM_INTERNAL_H_
