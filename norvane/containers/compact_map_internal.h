// Internal to the library: the steps of the compact maps, reachable by the tests.
#ifndef NORVANE_CONTAINERS_COMPACT_MAP_INTERNAL_H_
#define NORVANE_CONTAINERS_COMPACT_MAP_INTERNAL_H_

#include <cstdint>

#include "norvane/containers/compact_map.h"

// _CompactStringStore writes the code and the bytes of the length-byte key at data into key. A
// key of 12 bytes or more gets a block of length bytes of its own from allocator (null: the
// default manager); false, with key untouched, when that block cannot be had.
bool _CompactStringStore(IKD_Allocator* allocator, _CompactString* key, const uint8_t* data, int length);

// _CompactStringView is the stored key: inline, long (its stored 16-bit length) or, for a removed
// entry or an unknown mark, empty.
CKD_ByteStringC _CompactStringView(const _CompactString& key);

// What a lookup is after: the code to find and, once found, the value.
struct KDCMapLookup {
  uint32_t code;
  void* value;
};

// _CMapLookupCallback is the step of a lookup over the entries: param is a KDCMapLookup, element
// an entry. It returns false (stop) at a live entry with the wanted code, after taking its value.
bool _CMapLookupCallback(void* param, void* element);

// _CompareDWord compares the 32-bit keys at a and b as their difference taken as a signed int.
int _CompareDWord(const void* a, const void* b);

#endif  // NORVANE_CONTAINERS_COMPACT_MAP_INTERNAL_H_
