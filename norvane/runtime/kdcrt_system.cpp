#include "norvane/runtime/kdcrt_system_internal.h"

#include <unistd.h>

size_t KDCRT_GetPageSize() { return static_cast<size_t>(getpagesize()); }

int KDCRT_GetProcessID() { return static_cast<int>(getpid()); }
