// CKD_ByteStringL and CKD_WideStringL: plain (unshared) terminated strings whose memory comes from
// a caller-chosen IKD_Allocator. They do not remember it: every operation that allocates or frees
// takes the allocator (null: the default memory manager), and the caller must pass the same one
// each time, including to Empty before the object goes away (there is no destructor that frees).
#ifndef NORVANE_TEXT_STRING_L_H_
#define NORVANE_TEXT_STRING_L_H_

#include <cstddef>

#include "norvane/config.h"
#include "norvane/memory/memory_mgr.h"
#include "norvane/text/byte_string.h"
#include "norvane/text/wide_string.h"

// CKD_ByteStringL is an unshared byte string whose memory comes from the allocator passed to each
// call; empty it with that allocator before it goes away.
class NORVANE_API CKD_ByteStringL {
 public:
  CKD_ByteStringL() : m_Ptr(nullptr), m_Length(0) {}

  // Empty frees the characters and leaves the string empty.
  void Empty(IKD_Allocator* allocator);
  // AllocBuffer frees the characters, then allocates len + 1 bytes and sets the length to len
  // (the caller fills them; the byte at len is set to 0). Returns the characters, or null (the
  // string then empty) when they cannot be had or len is negative.
  char* AllocBuffer(int len, IKD_Allocator* allocator);
  // Set replaces the contents with a copy of str, terminated; an empty view or a failed
  // allocation leaves the string empty.
  void Set(const CKD_ByteStringC& str, IKD_Allocator* allocator);

  const char* GetPtr() const { return m_Ptr; }
  const char* c_str() const { return m_Ptr ? m_Ptr : ""; }
  int GetLength() const { return m_Length; }
  bool IsEmpty() const { return m_Length == 0; }
  operator CKD_ByteStringC() const { return CKD_ByteStringC(m_Ptr, m_Length); }  // NOLINT

 private:
  friend struct KDStringLLayout;
  char* m_Ptr;
  int m_Length;
};

// CKD_WideStringL is CKD_ByteStringL for wide characters.
class NORVANE_API CKD_WideStringL {
 public:
  CKD_WideStringL() : m_Ptr(nullptr), m_Length(0) {}

  void Empty(IKD_Allocator* allocator);
  // Set: as the byte form, 4 * length + 4 bytes from an allocator, or length + 1 units of 4 bytes
  // from the default manager.
  void Set(const CKD_WideStringC& str, IKD_Allocator* allocator);
  // TrimRight removes trailing characters found in targets (a null or empty set, or an empty
  // string, does nothing); trimming everything leaves length 0 with the memory kept.
  void TrimRight(const wchar_t* targets);
  // GetInteger is KDSYS_wtoi of the text (0 when empty).
  int GetInteger() const;
  // GetFloat is KD_wtof of the characters (number_text.h; 0 when empty).
  float GetFloat() const;

  const wchar_t* GetPtr() const { return m_Ptr; }
  const wchar_t* c_str() const { return m_Ptr ? m_Ptr : L""; }
  int GetLength() const { return m_Length; }
  bool IsEmpty() const { return m_Length == 0; }
  operator CKD_WideStringC() const { return CKD_WideStringC(m_Ptr, m_Length); }  // NOLINT

 private:
  friend struct KDStringLLayout;
  wchar_t* m_Ptr;
  int m_Length;
};

static_assert(sizeof(CKD_ByteStringL) == 16 && sizeof(CKD_WideStringL) == 16,
              "allocator-bound strings: pointer, then length");

#endif  // NORVANE_TEXT_STRING_L_H_
