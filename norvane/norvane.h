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
#include "norvane/containers/compact_map.h"
#include "norvane/containers/map_bytestring_to_ptr.h"
#include "norvane/containers/map_ptr_to_ptr.h"
#include "norvane/containers/plex.h"
#include "norvane/containers/segmented_array.h"

// Runtime services.
#include "norvane/runtime/context.h"
#include "norvane/runtime/exception.h"
#include "norvane/runtime/random.h"
#include "norvane/runtime/sync.h"
#include "norvane/runtime/thread.h"
#include "norvane/runtime/sys_helpers.h"
#include "norvane/runtime/system_time.h"

// Streams.
#include "norvane/streams/archive.h"
#include "norvane/streams/base64.h"
#include "norvane/streams/bit_stream.h"
#include "norvane/streams/cache_streams.h"
#include "norvane/streams/file_access.h"
#include "norvane/streams/file_cache.h"
#include "norvane/streams/file_stream.h"
#include "norvane/streams/folder.h"
#include "norvane/streams/memory_stream.h"
#include "norvane/streams/mmap_file.h"
#include "norvane/streams/stream.h"

// Cryptography.
#include "norvane/crypto/aes.h"
#include "norvane/crypto/dsa.h"
#include "norvane/crypto/huge_int.h"
#include "norvane/crypto/montgomery.h"
#include "norvane/crypto/mpint.h"
#include "norvane/crypto/pki_words.h"
#include "norvane/crypto/primes.h"
#include "norvane/crypto/random_generator.h"
#include "norvane/crypto/rsa.h"
#include "norvane/crypto/sha.h"
#include "norvane/crypto/smart_pointer.h"
// Strings and text.
#include "norvane/text/binary_buf.h"
#include "norvane/text/byte_string.h"
#include "norvane/text/char_map.h"
#include "norvane/text/charset.h"
#include "norvane/text/code_page.h"
#include "norvane/text/code_page_convert.h"
#include "norvane/text/number_text.h"
#include "norvane/text/string_buf.h"
#include "norvane/text/string_l.h"
#include "norvane/text/text_buf.h"
#include "norvane/text/url_text.h"
#include "norvane/text/utf16.h"
#include "norvane/text/utf8.h"
#include "norvane/text/utf8_coder.h"
#include "norvane/text/wide_string.h"

#endif  // NORVANE_NORVANE_H_
