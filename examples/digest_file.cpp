// digest_file FILE: prints the SHA-256 digest of FILE as `sha256sum FILE` does.
//
// The library's typical use: open a file as a stream, read it through a cached reader into a
// growable buffer, digest the buffer, and release what was opened. Norvane reports failure by
// return values (null, false, 0), never by exceptions, so each step is checked.
#include <norvane/norvane.h>

#include <cstdio>

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: digest_file FILE\n");
    return 2;
  }

  // A read-only file stream. Streams are reference-counted: this one starts with a count of 1,
  // and the Release() that drops the count to 0 closes the file and frees the object.
  IKD_FileRead* file = KD_CreateFileRead(argv[1]);
  if (!file) {
    std::fprintf(stderr, "digest_file: cannot open %s\n", argv[1]);
    return 1;
  }

  // A cached reader in front of the stream: it keeps 4 chunks of 64 KiB of the file in memory we
  // lend it (it never frees that memory) and is itself a reference-counted stream. Library
  // objects come from the default memory manager; new gives null when memory runs out.
  static uint8_t chunks[4 * 65536];
  CKD_CachedFileRead* reader = new CKD_CachedFileRead;
  if (!reader || !reader->Init(65536, 4, chunks, nullptr) || !reader->AttachFile(file, false)) {
    std::fprintf(stderr, "digest_file: out of memory\n");
    if (reader) reader->Release();
    file->Release();
    return 1;
  }

  // Read the whole file, block by block, into a buffer that grows as needed. (A buffer holds at
  // most 2 GiB; for larger files, digest each block as it comes instead.)
  CKD_BinaryBuf contents;
  uint8_t block[16384];
  bool ok = true;
  while (size_t n = reader->ReadBlock(block, sizeof block)) {
    if (!contents.AppendBlock(block, static_cast<int>(n))) {
      ok = false;
      break;
    }
  }
  ok = ok && contents.GetSize() == reader->GetSize();

  // The reader does not own the file (AttachFile(file, false)), so both are released. With
  // AttachFile(file, true) the reader would release the file itself.
  reader->Release();
  file->Release();
  if (!ok) {
    std::fprintf(stderr, "digest_file: cannot read %s\n", argv[1]);
    return 1;
  }

  // SHA-256 in pieces: start, update (as often as there is data), finish.
  CRYPT_SHA256Context sha;
  uint8_t digest[32];
  CRYPT_SHA256Start(&sha);
  if (contents.GetSize() > 0) {
    CRYPT_SHA256Update(&sha, contents.GetBuffer(), static_cast<uint32_t>(contents.GetSize()));
  }
  CRYPT_SHA256Finish(&sha, digest);

  for (uint8_t byte : digest) std::printf("%02x", byte);
  std::printf("  %s\n", argv[1]);
  return 0;
}
