#include "norvane/streams/folder.h"

#include <cstring>

#include "norvane/memory/memory_mgr.h"
#include "norvane/streams/file_access.h"
#include "norvane/streams/folder_internal.h"
#include "norvane/text/utf8_coder.h"

namespace {

constexpr int kFolderPermissions = 0755;
constexpr size_t kCopyPiece = 32768;

// Paths for the system: terminated, and refused when they hold a 0 byte (the system would see a
// shorter path, perhaps another file's) or when memory runs out on the way.
bool HasZero(const CKD_ByteStringC& path) {
  return path.GetLength() && memchr(path.GetPtr(), 0, static_cast<size_t>(path.GetLength()));
}

bool BytePath(const CKD_ByteStringC& path, CKD_ByteString& out) {
  if (HasZero(path)) return false;
  out = path;
  return out.GetLength() == path.GetLength();
}

// Whole-file operations: wide paths as UTF-8.
bool Utf8Path(const CKD_WideStringC& path, CKD_ByteString& out) {
  out = KD_UTF8Encode(path.GetPtr(), path.GetLength());
  return !(path.GetLength() && out.IsEmpty()) && !HasZero(out);
}

// Folder functions: wide paths in the local encoding.
bool LocalPath(const wchar_t* path, CKD_ByteString& out) {
  if (!path) return false;
  out = CKD_ByteString::FromUnicode(path);
  return !(*path && out.IsEmpty());
}

// Child joins parent, '/' and name; the null string when memory runs out (never a partial path,
// which could name something else).
CKD_ByteString Child(const char* parent, const char* name) {
  CKD_ByteString prefix(CKD_ByteStringC(parent), CKD_ByteStringC("/"));
  if (prefix.IsEmpty()) return CKD_ByteString();
  return CKD_ByteString(prefix, CKD_ByteStringC(name));
}

// ReadEntry reads the next entry of folder: its name (valid until the next read) and whether it
// is a folder.
bool ReadEntry(void* folder, const char* parent, const char** name, bool* is_folder) {
  KDCRT_EntryType type;
  if (!folder || !KDCRT_Dir_Read(folder, name, &type)) return false;
  *is_folder = kdstreams::IsFolderEntry(type, parent, *name);
  return true;
}

bool DeleteTree(const char* path) {
  if (KDCRT_Path_RemoveFolder(path) == 0) return true;
  // A symbolic link given as the folder is not followed either.
  void* folder = KDCRT_Dir_OpenNoFollow(path);
  if (!folder) return false;
  CKD_ByteString name;
  bool is_folder = false;
  while (KD_GetNextFile(folder, name, is_folder, path)) {
    if (name.IsEmpty() || name == "." || name == "..") continue;  // empty: memory ran out
    CKD_ByteString child = Child(path, name.c_str());
    if (!child.IsEmpty()) kdstreams::DeleteEntry(child.c_str(), is_folder);
  }
  KDCRT_Dir_Close(folder);
  return KDCRT_Path_RemoveFolder(path) == 0;
}

}  // namespace

namespace kdstreams {

bool IsFolderEntry(KDCRT_EntryType type, const char* parent, const char* name) {
  if (type != KDCRT_ENTRY_UNKNOWN) return type == KDCRT_ENTRY_FOLDER;
  if (!parent) return KDCRT_Path_IsFolder(name);
  CKD_ByteString path = Child(parent, name);
  return !path.IsEmpty() && KDCRT_Path_IsFolder(path.c_str());
}

void DeleteEntry(const char* path, bool is_folder) {
  if (is_folder && !KDCRT_Path_IsLink(path))
    DeleteTree(path);
  else
    KDCRT_Path_Remove(path);
}

}  // namespace kdstreams

// Folders.

void* KD_OpenFolder(const char* path) { return path ? KDCRT_Dir_Open(path) : nullptr; }

void* KD_OpenFolder(const wchar_t* path) {
  CKD_ByteString local;
  return LocalPath(path, local) ? KDCRT_Dir_Open(local.c_str()) : nullptr;
}

bool KD_GetNextFile(void* folder, CKD_ByteString& name, bool& is_folder, const char* parent_path) {
  const char* entry;
  bool entry_is_folder;
  if (!ReadEntry(folder, parent_path, &entry, &entry_is_folder)) return false;
  name = entry;
  is_folder = entry_is_folder;
  return true;
}

bool KD_GetNextFile(void* folder, CKD_WideString& name, bool& is_folder, const wchar_t* parent_path) {
  CKD_ByteString parent;
  if (parent_path) parent = CKD_ByteString::FromUnicode(parent_path);
  const char* entry;
  bool entry_is_folder;
  if (!ReadEntry(folder, parent_path ? parent.c_str() : nullptr, &entry, &entry_is_folder)) return false;
  name = CKD_WideString::FromLocal(entry);
  is_folder = entry_is_folder;
  return true;
}

void KD_CloseFolder(void* folder) {
  if (folder) KDCRT_Dir_Close(folder);
}

char KD_GetFolderSeparator() { return '/'; }

bool KD_CreateFolder(const char* path) { return path && KDCRT_Path_MakeFolder(path, kFolderPermissions) == 0; }

bool KD_CreateFolder(const wchar_t* path) {
  CKD_ByteString local;
  return LocalPath(path, local) && KD_CreateFolder(local.c_str());
}

bool KD_DeleteFolder(const char* path) { return path && DeleteTree(path); }

bool KD_DeleteFolder(const wchar_t* path) {
  CKD_ByteString local;
  return LocalPath(path, local) && DeleteTree(local.c_str());
}

bool KD_IsFilePathExist(const wchar_t* path) {
  CKD_ByteString local;
  return LocalPath(path, local) && KDCRT_Path_Exists(local.c_str()) == 0;
}

// Whole-file operations.

bool KD_File_Exist(const CKD_ByteStringC& path) {
  CKD_ByteString p;
  return BytePath(path, p) && KDCRT_Path_Exists(p.c_str()) >= 0;
}

bool KD_File_Exist(const CKD_WideStringC& path) {
  CKD_ByteString p;
  return Utf8Path(path, p) && KD_File_Exist(CKD_ByteStringC(p));
}

bool KD_File_Delete(const CKD_ByteStringC& path) {
  CKD_ByteString p;
  return BytePath(path, p) && KDCRT_Path_Remove(p.c_str()) >= 0;
}

bool KD_File_Delete(const CKD_WideStringC& path) {
  CKD_ByteString p;
  return Utf8Path(path, p) && KD_File_Delete(CKD_ByteStringC(p));
}

bool KD_File_Copy(const CKD_ByteStringC& src, const CKD_ByteStringC& dst) {
  if (HasZero(src) || HasZero(dst)) return false;
  _KD_HFILE* in = KD_File_Open(src, KD_FILEMODE_ReadOnly);
  if (!in) return false;
  if (KD_File_GetSize(in) == 0) {  // empty files are not copied
    KD_File_Close(in);
    return false;
  }
  _KD_HFILE* out = KD_File_Open(dst, KD_FILEMODE_Truncate);
  if (!out) {
    KD_File_Close(in);
    return false;
  }
  void* buffer = KDMEM_DefaultAlloc2(kCopyPiece, 1, 0);
  const bool copied = buffer != nullptr;
  if (buffer) {
    for (;;) {
      const size_t got = KD_File_Read(in, buffer, kCopyPiece);
      // A failed read ((size_t)-1) ends the copy as the end of the file does.
      if (got == 0 || got == static_cast<size_t>(-1)) break;
      const size_t put = KD_File_Write(out, buffer, got);
      if (put == static_cast<size_t>(-1) || put < got) break;
    }
    KDMEM_DefaultFree(buffer, 0);
  }
  KD_File_Close(out);
  KD_File_Close(in);
  return copied;
}

bool KD_File_Copy(const CKD_WideStringC& src, const CKD_WideStringC& dst) {
  CKD_ByteString from, to;
  return Utf8Path(src, from) && Utf8Path(dst, to) && KD_File_Copy(CKD_ByteStringC(from), CKD_ByteStringC(to));
}

bool KD_File_Move(const CKD_ByteStringC& src, const CKD_ByteStringC& dst) {
  CKD_ByteString from, to;
  // Inverted: true when the move failed, here too.
  if (!BytePath(src, from) || !BytePath(dst, to)) return true;
  return KDCRT_Path_Rename(from.c_str(), to.c_str()) != 0;
}

bool KD_File_Move(const CKD_WideStringC& src, const CKD_WideStringC& dst) {
  CKD_ByteString from, to;
  if (!Utf8Path(src, from) || !Utf8Path(dst, to)) return true;
  return KD_File_Move(CKD_ByteStringC(from), CKD_ByteStringC(to));
}
