#include "norvane/text/char_map.h"

#include "norvane/runtime/sys_helpers.h"
#include "norvane/text/code_page_convert.h"

namespace {

int MapCodePage(CKD_CharMap* map) { return map->m_GetCodePage ? map->m_GetCodePage(map) : 0; }

CKD_WideString DefaultGetWideString(CKD_CharMap* map, const CKD_ByteString& str) {
  CKD_WideString result;
  if (str.IsEmpty()) return result;
  unsigned int cp = static_cast<unsigned int>(MapCodePage(map));
  int n = KDSYS_MultiByteToWideChar(cp, 0, str.c_str(), str.GetLength(), nullptr, 0);
  if (n <= 0) return result;
  if (wchar_t* p = result.GetBuffer(n)) {
    int got = KDSYS_MultiByteToWideChar(cp, 0, str.c_str(), str.GetLength(), p, n);
    result.ReleaseBuffer(got < n ? got : n);
  }
  return result;
}

CKD_ByteString DefaultGetByteString(CKD_CharMap* map, const CKD_WideString& str) {
  CKD_ByteString result;
  if (str.IsEmpty()) return result;
  unsigned int cp = static_cast<unsigned int>(MapCodePage(map));
  int n = KDSYS_WideCharToMultiByte(cp, 0, str.c_str(), str.GetLength(), nullptr, 0);
  if (n <= 0) return result;
  if (char* p = result.GetBuffer(n)) {
    int got = KDSYS_WideCharToMultiByte(cp, 0, str.c_str(), str.GetLength(), p, n);
    result.ReleaseBuffer(got < n ? got : n);
  }
  return result;
}

CKD_WideString _CRTMap_GetWideString(CKD_CharMap* map, const CKD_ByteString& str) {
  CKD_WideString result;
  uint16_t cp = static_cast<uint16_t>(MapCodePage(map));
  int srcLen = str.GetLength(), n = 0;
  if (KD_DecodeString(cp, str.c_str(), &srcLen, nullptr, &n, false) != 1 || n <= 0) return result;
  if (wchar_t* p = result.GetBuffer(n)) {
    srcLen = str.GetLength();
    int got = n;
    KD_DecodeString(cp, str.c_str(), &srcLen, p, &got, false);
    result.ReleaseBuffer(got);
  }
  return result;
}

CKD_ByteString _CRTMap_GetByteString(CKD_CharMap* map, const CKD_WideString& str) {
  CKD_ByteString result;
  uint16_t cp = static_cast<uint16_t>(MapCodePage(map));
  int srcLen = str.GetLength(), n = 0;
  if (KD_EncodeString(cp, str.c_str(), &srcLen, nullptr, &n, false) != 1 || n <= 0) return result;
  if (char* p = result.GetBuffer(n)) {
    srcLen = str.GetLength();
    int got = n;
    KD_EncodeString(cp, str.c_str(), &srcLen, p, &got, false);
    result.ReleaseBuffer(got);
  }
  return result;
}

template <int N>
int CodePageOf(CKD_CharMap*) {
  return N;
}

#define KD_PAGE_MAP(n) {_CRTMap_GetWideString, _CRTMap_GetByteString, CodePageOf<n>}
CKD_CharMap g_DefaultMap = {DefaultGetWideString, DefaultGetByteString, nullptr};
CKD_CharMap g_PageMaps[] = {
    KD_PAGE_MAP(874),  KD_PAGE_MAP(932),  KD_PAGE_MAP(936),  KD_PAGE_MAP(949),  KD_PAGE_MAP(950),
    KD_PAGE_MAP(1250), KD_PAGE_MAP(1251), KD_PAGE_MAP(1252), KD_PAGE_MAP(1253), KD_PAGE_MAP(1254),
    KD_PAGE_MAP(1255), KD_PAGE_MAP(1256), KD_PAGE_MAP(1257), KD_PAGE_MAP(1258),
};
#undef KD_PAGE_MAP

}  // namespace

CKD_CharMap* CKD_CharMap::GetDefaultMapper(int codePage) {
  if (codePage == 0) return &g_DefaultMap;
  for (CKD_CharMap& map : g_PageMaps)
    if (map.m_GetCodePage(&map) == codePage) return &map;
  return nullptr;
}

// String members converting through a character map.

void CKD_ByteString::ConvertFrom(const CKD_WideString& str, CKD_CharMap* map) {
  if (!map) map = CKD_CharMap::GetDefaultMapper(0);
  *this = map->m_GetByteString(map, str);
}

void CKD_WideString::ConvertFrom(const CKD_ByteString& str, CKD_CharMap* map) {
  if (!map) map = CKD_CharMap::GetDefaultMapper(0);
  *this = map->m_GetWideString(map, str);
}

CKD_ByteString CKD_ByteString::FromUnicode(const wchar_t* text, int len) {
  CKD_ByteString result;
  result.ConvertFrom(CKD_WideString(text, len));
  return result;
}

CKD_ByteString CKD_ByteString::FromUnicode(const CKD_WideString& str) {
  CKD_ByteString result;
  result.ConvertFrom(str);
  return result;
}

CKD_WideString CKD_WideString::FromLocal(const char* text, int len) {
  CKD_WideString result;
  result.ConvertFrom(CKD_ByteString(text, len));
  return result;
}
