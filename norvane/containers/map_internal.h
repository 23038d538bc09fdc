// Internal to the library: map insertion for callers that must survive running out of memory.
#ifndef NORVANE_CONTAINERS_MAP_INTERNAL_H_
#define NORVANE_CONTAINERS_MAP_INTERNAL_H_

#include "norvane/containers/map_ptr_to_ptr.h"

// KDMAP_TrySetAt stores value under key; false, with the map unchanged, when memory for the
// insertion cannot be had (where operator[] would stop the process).
bool KDMAP_TrySetAt(CKD_MapPtrToPtr& map, void* key, void* value);

#endif  // NORVANE_CONTAINERS_MAP_INTERNAL_H_
