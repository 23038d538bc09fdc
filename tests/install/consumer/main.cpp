// A program outside the project: uses the installed headers and shared library.
#include <norvane/norvane.h>

#include <cstdio>
#include <cstring>

int main() {
  char* p = static_cast<char*>(KDMEM_DefaultAlloc2(16, 1, 0));
  if (!p) return 1;
  KDSYS_itoa(-42, p, 16);
  bool ok = strcmp(p, "-42") == 0 && KD_ALLOC_GRANULARITY == 0x10000 && g_pDefNorvaneMgr == KDMEM_GetDefaultMgr();
  KDMEM_DefaultFree(p, 0);
  CKD_ByteString s("key");
  CKD_ByteString shared(s);
  shared += "=value";
  CKD_WideString w(L"wide");
  ok = ok && shared == "key=value" && s.Find("y") == 2 && KD_HashCode_String_GetA(s) == 106079u &&
       w.UTF16LE_Encode(false).GetLength() == 8;
  // Exported tables, classes and conversions.
  IKD_CodePage* page = IKD_CodePage::Create(1252);
  ok = ok && page && page->GetUnicode(0x80) == 0x20AC && KD_GetCodePage(1252)->m_pHeader == &g_CP1252_MapHeader &&
       CKD_WideString::FromUTF8("\xC3\xA9").GetLength() == 1 && KD_GetCodePageFromStringA("gbk") == 936;
  if (page) page->Release();
  CKD_ByteTextBuf text;
  text << CKD_ByteStringC("n=") << 42;
  ok = ok && text.GetByteString() == CKD_ByteStringC("n=42");
  // Time, GUIDs and the seeded generator.
  KD_SystemTimeRec now;
  KD_Time_GetSystemTime(&now);
  uint8_t guid[16];
  KD_GUID_CreateV4(guid);
  KDPKI_RandomGenerator generator(reinterpret_cast<const uint8_t*>("abc"), 3);
  ok = ok && now.wYear >= 2024 && (guid[6] >> 4) == 4 && generator.GetByte() == 0x51;
  // Segmented arrays and compact maps.
  CKD_CMapByteStringToPtr compact;
  compact.SetAt("k", &text);
  void* found = nullptr;
  CKD_SegmentedArray<int, 4, 2> segmented;
  for (int i = 0; i < 9; ++i) segmented.Add(i);
  ok = ok && compact.Lookup("k", found) && found == &text && segmented.GetIndexLevels() == 2 && segmented[8] == 8;
  // Streams: Base64, archives, folders.
  char b64[8] = {};
  CKD_ArchiveSaver saver;
  saver << 1 << "ab";
  ok = ok && CKD_Base64Encoder('=').Encode(reinterpret_cast<const uint8_t*>("foo"), 3, b64) == 4 &&
       strcmp(b64, "Zm9v") == 0 && saver.GetLength() == 10 && KD_GetFolderSeparator() == '/' &&
       KD_File_Exist(CKD_ByteStringC("/"));
  // Number and URL text.
  text << CKD_ByteStringC(" x=") << 0.1;
  ok = ok && text.GetByteString() == CKD_ByteStringC("n=42 x=0.1") && KD_atof("--2.5") == -2.5f &&
       KD_EncodeURI(L"a \u00E9") == "a%20%C3%A9";
  // Big integers: 3^5 mod 7 through the exported exponentiation and shared constants.
  ok = ok && KDPKI_ModularExponentiation(KDPKI_HugeInt(3u), KDPKI_HugeInt(5u), KDPKI_HugeInt(7u)) ==
                 KDPKI_HugeInt::Three() + KDPKI_HugeInt::Two();
  KDPKI_Finalize();
  std::printf(ok ? "consumer ok\n" : "consumer FAILED\n");
  return ok ? 0 : 1;
}
