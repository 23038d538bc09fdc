// Norvane: the whole public interface.
#ifndef NORVANE_NORVANE_H_
#define NORVANE_NORVANE_H_

#include "norvane/config.h"

// Memory managers and object bases.
#include "norvane/memory/memory_mgr.h"
#include "norvane/memory/object.h"

// Runtime services.
#include "norvane/runtime/sys_helpers.h"

// Strings and text.
#include "norvane/text/byte_string.h"
#include "norvane/text/wide_string.h"

#endif  // NORVANE_NORVANE_H_
