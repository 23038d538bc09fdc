#include "norvane/containers/compact_map.h"

#include <cstring>

#include "norvane/containers/segmented_array_internal.h"
#include "norvane/memory/memory_internal.h"

namespace {

constexpr int kEntryBytes = static_cast<int>(sizeof(CKD_CMapByteStringToPtr::CEntry));
constexpr int kEntriesPerSegment = 16;
constexpr int kIndexSize = 4;
constexpr size_t kInlineOffset = offsetof(_CompactString, m_Head);

using Entry = CKD_CMapByteStringToPtr::CEntry;
using Walk = KDSegmentedArrayWalk;

inline bool IsLive(const Entry* e) { return e->key.m_Mark != _CompactString::kDeleted; }

inline void* Position(int index) { return reinterpret_cast<void*>(static_cast<uintptr_t>(index) + 1); }

// What a lookup is after: the code to find and, once found, the value.
struct KDCMapLookup {
  uint32_t code;
  void* value;
};

}  // namespace

// _CompactStringStore writes the code and the bytes of the length-byte key at data into key. A
// key of 12 bytes or more gets a block of length bytes of its own from allocator (null: the
// default manager); false, with key untouched, when that block cannot be had.
static bool _CompactStringStore(IKD_Allocator* allocator, _CompactString* key, const uint8_t* data, int length) {
  if (!data || length < 0) length = 0;
  const uint32_t code = CKD_CMapByteStringToPtr::KeyCode(CKD_ByteStringC(data, length));
  if (length > _CompactString::kMaxInline) {
    void* block = kdmem::AllocFrom(allocator, static_cast<size_t>(length), 1);
    if (!block) return false;
    memcpy(block, data, static_cast<size_t>(length));
    key->m_dwCode = code;
    key->m_Mark = _CompactString::kLongKey;
    // Only the low 16 bits of a longer length fit; the block keeps every byte, so the stored
    // length never reaches past it.
    key->m_Head[0] = static_cast<uint8_t>(length >> 8);
    key->m_Head[1] = static_cast<uint8_t>(length);
    key->m_Head[2] = 0;
    key->m_pLongKey = static_cast<uint8_t*>(block);
    return true;
  }
  key->m_dwCode = code;
  key->m_Mark = static_cast<uint8_t>(length);
  uint8_t* bytes = reinterpret_cast<uint8_t*>(key) + kInlineOffset;
  memset(bytes, 0, _CompactString::kMaxInline);
  if (length) memcpy(bytes, data, static_cast<size_t>(length));
  return true;
}

// _CompactStringView is the stored key: inline, long (its stored 16-bit length) or, for a removed
// entry or an unknown mark, empty.
static CKD_ByteStringC _CompactStringView(const _CompactString& key) {
  if (key.m_Mark <= _CompactString::kMaxInline) {
    return CKD_ByteStringC(reinterpret_cast<const unsigned char*>(&key) + kInlineOffset, key.m_Mark);
  }
  if (key.m_Mark == _CompactString::kLongKey) {
    return CKD_ByteStringC(key.m_pLongKey, (key.m_Head[0] << 8) | key.m_Head[1]);
  }
  return CKD_ByteStringC();
}

// _CMapLookupCallback is the step of a lookup over the entries: param is a KDCMapLookup, element
// an entry. It returns false (stop) at a live entry with the wanted code, after taking its value.
static bool _CMapLookupCallback(void* param, void* element) {
  auto* lookup = static_cast<KDCMapLookup*>(param);
  const auto* entry = static_cast<const Entry*>(element);
  if (entry->key.m_dwCode != lookup->code || !IsLive(entry)) return true;
  lookup->value = entry->value;
  return false;
}

// _CompareDWord compares the 32-bit keys at a and b as their difference taken as a signed int.
static int _CompareDWord(const void* a, const void* b) {
  uint32_t x, y;
  memcpy(&x, a, sizeof(x));
  memcpy(&y, b, sizeof(y));
  return static_cast<int>(x - y);
}

uint32_t CKD_CMapByteStringToPtr::KeyCode(const CKD_ByteStringC& key) {
  const unsigned char* data = key.GetPtr();
  const int length = key.GetLength();
  if (!data || length <= 0) return 0;
  const uint32_t low = KD_HashCode_String_GetA(key.GetCStr(), length, false) & 0xFFFF;
  // The RS hash over the bytes taken as signed, h = h * a + byte with a multiplied by 378551 after
  // each byte, taken two bytes a step: h * (a * a') + (b0 * a' + b1) with a' = a * 378551. The
  // chain that carries h then holds one multiplication per two bytes.
  constexpr uint32_t kStep = 378551;
  constexpr uint32_t kStep2 = kStep * kStep;
  auto byte = [data](int i) { return static_cast<uint32_t>(static_cast<int32_t>(static_cast<signed char>(data[i]))); };
  uint32_t h = 0, a = 63689;
  int i = 0;
  for (; i + 2 <= length; i += 2) {
    const uint32_t next = a * kStep;
    h = h * (a * next) + (byte(i) * next + byte(i + 1));
    a *= kStep2;
  }
  if (i < length) h = h * a + byte(i);
  return low | (h & 0x7FFF0000);
}

CKD_CMapByteStringToPtr::CKD_CMapByteStringToPtr(IKD_Allocator* allocator)
    : m_Entries(kEntryBytes, kEntriesPerSegment, kIndexSize, allocator) {}

CKD_CMapByteStringToPtr::~CKD_CMapByteStringToPtr() { RemoveAll(); }

void CKD_CMapByteStringToPtr::RemoveAll() {
  IKD_Allocator* allocator = m_Entries.GetAllocator();
  Walk::Elements(m_Entries, kEntryBytes, [&](void* element) {
    auto* entry = static_cast<Entry*>(element);
    if (entry->key.m_Mark == _CompactString::kLongKey) kdmem::FreeTo(allocator, entry->key.m_pLongKey);
    return true;
  });
  m_Entries.RemoveAll();
}

bool CKD_CMapByteStringToPtr::Store(CEntry* entry, const CKD_ByteStringC& key, void* value) {
  if (!_CompactStringStore(m_Entries.GetAllocator(), &entry->key, key.GetPtr(), key.GetLength())) return false;
  entry->value = value;
  return true;
}

void CKD_CMapByteStringToPtr::Append(const CKD_ByteStringC& key, void* value) {
  auto* entry = static_cast<CEntry*>(m_Entries.Add());
  if (entry && !Store(entry, key, value)) m_Entries.Delete(m_Entries.GetSize() - 1, 1);
}

void CKD_CMapByteStringToPtr::SetAt(const CKD_ByteStringC& key, void* value) {
  const uint32_t code = KeyCode(key);
  CEntry* removed = nullptr;  // the first removed entry, reused when the code is new
  void* found = Walk::Elements(m_Entries, kEntryBytes, [&](void* element) {
    auto* entry = static_cast<CEntry*>(element);
    if (IsLive(entry)) return entry->key.m_dwCode != code;
    if (!removed) removed = entry;
    return true;
  });
  if (found) {
    static_cast<CEntry*>(found)->value = value;
  } else if (removed) {
    Store(removed, key, value);
  } else {
    Append(key, value);
  }
}

void CKD_CMapByteStringToPtr::AddValue(const CKD_ByteStringC& key, void* value) { Append(key, value); }

bool CKD_CMapByteStringToPtr::Lookup(const CKD_ByteStringC& key, void*& value) const {
  KDCMapLookup lookup = {KeyCode(key), nullptr};
  if (!Walk::Elements(m_Entries, kEntryBytes, [&](void* element) { return _CMapLookupCallback(&lookup, element); })) {
    return false;
  }
  value = lookup.value;
  return true;
}

void CKD_CMapByteStringToPtr::RemoveKey(const CKD_ByteStringC& key) {
  KDCMapLookup lookup = {KeyCode(key), nullptr};
  auto* entry = static_cast<CEntry*>(
      Walk::Elements(m_Entries, kEntryBytes, [&](void* element) { return _CMapLookupCallback(&lookup, element); }));
  if (!entry) return;
  if (entry->key.m_Mark == _CompactString::kLongKey) kdmem::FreeTo(m_Entries.GetAllocator(), entry->key.m_pLongKey);
  entry->key.m_Mark = _CompactString::kDeleted;
  entry->key.m_dwCode = _CompactString::kDeletedCode;
}

int CKD_CMapByteStringToPtr::GetCount() const {
  int count = 0;
  Walk::Elements(m_Entries, kEntryBytes, [&](void* element) {
    count += IsLive(static_cast<const CEntry*>(element));
    return true;
  });
  return count;
}

void* CKD_CMapByteStringToPtr::NextLive(int index) const {
  for (int i = index; i < m_Entries.GetSize(); ++i) {
    if (IsLive(static_cast<const CEntry*>(m_Entries.GetAt(i)))) return Position(i);
  }
  return nullptr;
}

const CKD_CMapByteStringToPtr::CEntry* CKD_CMapByteStringToPtr::EntryAt(void* position) const {
  const uintptr_t n = reinterpret_cast<uintptr_t>(position);
  if (n < 1 || n > static_cast<uintptr_t>(m_Entries.GetSize())) return nullptr;
  return static_cast<const CEntry*>(m_Entries.GetAt(static_cast<int>(n - 1)));
}

void* CKD_CMapByteStringToPtr::GetStartPosition() const { return NextLive(0); }

void CKD_CMapByteStringToPtr::GetNextAssoc(void*& position, CKD_ByteString& key, void*& value) const {
  const CEntry* entry = EntryAt(position);
  if (!entry) {
    key.Empty();
    value = nullptr;
    position = nullptr;
    return;
  }
  key = _CompactStringView(entry->key);
  value = entry->value;
  position = NextLive(static_cast<int>(reinterpret_cast<uintptr_t>(position)));
}

void* CKD_CMapByteStringToPtr::GetNextValue(void*& position) const {
  const CEntry* entry = EntryAt(position);
  if (!entry) {
    position = nullptr;
    return nullptr;
  }
  position = NextLive(static_cast<int>(reinterpret_cast<uintptr_t>(position)));
  return entry->value;
}

CKD_CMapDWordToDWord::CKD_CMapDWordToDWord(IKD_Allocator* allocator) : m_Buffer(allocator) {}

bool CKD_CMapDWordToDWord::Lookup(uint32_t key, uint32_t& value) const {
  const int count = GetCount();
  if (count == 0) return false;
  const auto* records = reinterpret_cast<const CRecord*>(m_Buffer.GetBuffer());
  // The probes of the C library's bsearch.
  size_t low = 0, high = static_cast<size_t>(count);
  while (low < high) {
    const size_t mid = (low + high) / 2;
    const int order = _CompareDWord(&key, &records[mid].key);
    if (order < 0) {
      high = mid;
    } else if (order > 0) {
      low = mid + 1;
    } else {
      value = records[mid].value;
      return true;
    }
  }
  return false;
}

bool CKD_CMapDWordToDWord::SetAt(uint32_t key, uint32_t value) {
  const CRecord record = {key, value};
  const int count = GetCount();
  auto* records = reinterpret_cast<CRecord*>(m_Buffer.GetBuffer());
  if (count == 0 || key > records[count - 1].key) return m_Buffer.AppendBlock(&record, sizeof(record));
  int low = 0, high = count - 1;
  while (low <= high) {
    const int mid = (low + high) / 2;
    if (records[mid].key == key) {
      records[mid].value = value;
      return true;
    }
    if (key < records[mid].key) {
      high = mid - 1;
    } else {
      low = mid + 1;
    }
  }
  return m_Buffer.InsertBlock(low * static_cast<int>(sizeof(CRecord)), &record, sizeof(record));
}

bool CKD_CMapDWordToDWord::EstimateSize(uint32_t size, uint32_t grow_by) {
  // Counted in records, passed on in bytes (in 32-bit arithmetic, as the buffer takes them).
  const uint32_t bytes = sizeof(CRecord);
  return m_Buffer.EstimateSize(static_cast<int>(size * bytes), static_cast<int>(grow_by * bytes));
}

void CKD_CMapDWordToDWord::GetNextAssoc(void*& position, uint32_t& key, uint32_t& value) const {
  const uintptr_t n = reinterpret_cast<uintptr_t>(position);
  const int count = GetCount();
  if (n < 1 || n > static_cast<uintptr_t>(count)) {
    key = value = 0;
    position = nullptr;
    return;
  }
  const CRecord& record = reinterpret_cast<const CRecord*>(m_Buffer.GetBuffer())[n - 1];
  key = record.key;
  value = record.value;
  position = n < static_cast<uintptr_t>(count) ? reinterpret_cast<void*>(n + 1) : nullptr;
}
