// Norvane: the whole public interface.
#ifndef NORVANE_NORVANE_H_
#define NORVANE_NORVANE_H_

#include "norvane/config.h"

// Memory managers, pools and object bases.
#include "norvane/memory/grow_only_pool.h"
#include "norvane/memory/memory_mgr.h"
#include "norvane/memory/object.h"

// Containers.
#include "norvane/containers/array.h"
#include "norvane/containers/basic_array.h"
#include "norvane/containers/map_bytestring_to_ptr.h"
#include "norvane/containers/map_ptr_to_ptr.h"
#include "norvane/containers/plex.h"

// Runtime services.
#include "norvane/runtime/context.h"
#include "norvane/runtime/exception.h"
#include "norvane/runtime/sync.h"
#include "norvane/runtime/thread.h"
#include "norvane/runtime/sys_helpers.h"

// Cryptography.
#include "norvane/crypto/aes.h"
#include "norvane/crypto/sha.h"
// Strings and text.
#include "norvane/text/byte_string.h"
#include "norvane/text/wide_string.h"

#endif  // NORVANE_NORVANE_H_
