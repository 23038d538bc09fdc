// Character maps: the conversions between byte strings and wide strings that
// CKD_ByteString::ConvertFrom and CKD_WideString::ConvertFrom call.
//
// A CKD_CharMap is a record of three function slots. The built-in maps come from
// GetDefaultMapper: the default map (code page 0) converts with the C library's current-locale
// conversion (mbstowcs / wcstombs through KDSYS_MultiByteToWideChar / KDSYS_WideCharToMultiByte),
// whatever code page is asked for, so its result depends on the process locale, and, like those
// functions, stops at the first 0 character. The maps of the fourteen table pages (874, 932, 936,
// 949, 950, 1250-1258) convert with KD_DecodeString / KD_EncodeString for their page, replacing
// what cannot be mapped with the page's default character. Each conversion measures first and
// converts second; an empty result, or one that cannot be allocated, is the empty string.
#ifndef NORVANE_TEXT_CHAR_MAP_H_
#define NORVANE_TEXT_CHAR_MAP_H_

#include "norvane/config.h"
#include "norvane/text/byte_string.h"
#include "norvane/text/wide_string.h"

// CKD_CharMap is a conversion record of three function slots; the built-in ones come from
// GetDefaultMapper and live as long as the process.
struct NORVANE_API CKD_CharMap {
  // Byte text to wide text.
  CKD_WideString (*m_GetWideString)(CKD_CharMap* map, const CKD_ByteString& str);
  // Wide text to byte text.
  CKD_ByteString (*m_GetByteString)(CKD_CharMap* map, const CKD_WideString& str);
  // The map's code page; null for the default map (which then passes 0).
  int (*m_GetCodePage)(CKD_CharMap* map);

  // GetDefaultMapper returns the built-in map of codePage: 0 gives the default map, the fourteen
  // table pages their own map, anything else null. The maps are static and never freed.
  static CKD_CharMap* GetDefaultMapper(int codePage);
};

static_assert(sizeof(CKD_CharMap) == 24, "a character map is three function slots");

#endif  // NORVANE_TEXT_CHAR_MAP_H_
