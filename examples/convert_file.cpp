// convert_file FROM TO INPUT OUTPUT: converts a text file from one encoding to another, e.g.
//   convert_file windows-1252 utf-8 old.txt new.txt
//   convert_file utf-8 shift_jis notes.txt notes-sjis.txt
// FROM and TO are code-page names or numbers: the Windows code pages 874, 932, 936, 949, 950 and
// 1250-1258, UTF-8 (65001), UTF-16LE (1200) and UTF-16BE (1201).
//
// Text is decoded from FROM into wide characters (one Unicode code point each), then encoded
// into TO. Both conversions use the library's in/out length convention: the lengths go in as
// what is available and come back as what was consumed and produced, and a call without a
// destination only measures.
#include <norvane/norvane.h>

#include <cstdio>
#include <cstdlib>

namespace {

// A code page by name ("shift_jis", "utf-8", any case) or number ("932"); 0xFFFF when unknown.
uint16_t CodePage(const char* text) {
  char* end = nullptr;
  long number = std::strtol(text, &end, 10);
  if (*text && !*end) return number > 0 && number < 0xFFFF ? static_cast<uint16_t>(number) : 0xFFFF;
  return KD_GetCodePageFromStringA(text);
}

// Reads the whole file into contents; false when it cannot be read.
bool ReadFile(const char* path, CKD_BinaryBuf& contents) {
  IKD_FileRead* file = KD_CreateFileRead(path);
  if (!file) return false;
  long long size = file->GetSize();
  // AppendBlock with null data adds size bytes to the buffer without writing them; the read at
  // offset 0 then fills them (ReadBlock(buffer, offset, size) reads exactly size bytes or fails).
  bool ok = size >= 0 && size < 0x40000000 && contents.AppendBlock(nullptr, static_cast<int>(size)) &&
            (size == 0 || file->ReadBlock(contents.GetBuffer(), 0, static_cast<size_t>(size)));
  file->Release();
  return ok;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5) {
    std::fprintf(stderr, "usage: convert_file FROM TO INPUT OUTPUT\n");
    return 2;
  }
  const uint16_t from = CodePage(argv[1]);
  const uint16_t to = CodePage(argv[2]);
  CKD_BinaryBuf input;
  if (!ReadFile(argv[3], input)) {
    std::fprintf(stderr, "convert_file: cannot read %s\n", argv[3]);
    return 1;
  }
  const char* bytes = reinterpret_cast<const char*>(input.GetBuffer());
  const int size = input.GetSize();

  // Decode: first measure (no destination), then convert into a buffer of that many characters.
  // With strict set, the conversion stops before anything FROM does not define, so consuming
  // fewer bytes than there are means invalid input there.
  int used = size, chars = 0;
  if (KD_DecodeString(from, bytes, &used, nullptr, &chars, true) != 1) {
    std::fprintf(stderr, "convert_file: unknown encoding %s\n", argv[1]);
    return 2;
  }
  CKD_WideTextBuf text;
  if (!text.AppendBlock(nullptr, chars * 4)) return 1;
  wchar_t* wide = reinterpret_cast<wchar_t*>(text.GetBuffer());
  KD_DecodeString(from, bytes, &used, wide, &chars, true);
  if (used != size) {
    std::fprintf(stderr, "convert_file: %s is not valid %s at byte %d\n", argv[3], argv[1], used);
    return 1;
  }

  // Encode the same way: measure, then convert. A character TO cannot hold stops it.
  int converted = chars, length = 0;
  if (KD_EncodeString(to, wide, &converted, nullptr, &length, true) != 1) {
    std::fprintf(stderr, "convert_file: unknown encoding %s\n", argv[2]);
    return 2;
  }
  CKD_BinaryBuf output;
  if (!output.AppendBlock(nullptr, length)) return 1;
  KD_EncodeString(to, wide, &converted, reinterpret_cast<char*>(output.GetBuffer()), &length, true);
  if (converted != chars) {
    std::fprintf(stderr, "convert_file: character %d has no code in %s\n", converted, argv[2]);
    return 1;
  }

  // Write the result. KD_CreateFileWrite creates or empties the file; WriteBlock(data, size)
  // appends.
  IKD_FileWrite* file = KD_CreateFileWrite(argv[4]);
  bool ok = file && (length == 0 || file->WriteBlock(output.GetBuffer(), static_cast<size_t>(length))) &&
            file->Flush();
  if (file) file->Release();
  if (!ok) {
    std::fprintf(stderr, "convert_file: cannot write %s\n", argv[4]);
    return 1;
  }
  std::printf("%d bytes of %s, %d characters, %d bytes of %s\n", size, argv[1], chars, length, argv[2]);
  return 0;
}
