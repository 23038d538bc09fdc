// Folders and whole-file operations on POSIX paths.
//
// Byte paths go to the system as they are. Wide paths are converted in one of two ways, and which
// one is part of each function's contract: the folder functions (KD_OpenFolder, KD_GetNextFile's
// parent path, KD_CreateFolder, KD_DeleteFolder, KD_IsFilePathExist) convert them to the local
// encoding (CKD_ByteString::FromUnicode, under the current locale); the whole-file operations
// (KD_File_Exist, KD_File_Delete, KD_File_Copy, KD_File_Move) encode them as UTF-8. A path that
// cannot be converted, or whose bytes hold a 0, is a failure. Null paths fail.
#ifndef NORVANE_STREAMS_FOLDER_H_
#define NORVANE_STREAMS_FOLDER_H_

#include "norvane/config.h"
#include "norvane/text/byte_string.h"
#include "norvane/text/wide_string.h"

// KD_OpenFolder opens a folder listing (the system's directory stream); null on failure. Close
// it with KD_CloseFolder.
NORVANE_API void* KD_OpenFolder(const char* path);
NORVANE_API void* KD_OpenFolder(const wchar_t* path);
// KD_GetNextFile reads the next entry's name ("." and ".." come like any other). is_folder says
// whether it is a folder: from the listing when it tells (a symbolic link is then not a folder),
// else from stat of parent_path + "/" + name (following links; a null parent_path gives the
// name alone). False for a null folder or when no entry is left: name and is_folder are then
// left as they were. The wide form converts the name from the local encoding
// (CKD_WideString::FromLocal) and parent_path to it.
NORVANE_API bool KD_GetNextFile(void* folder, CKD_ByteString& name, bool& is_folder, const char* parent_path);
NORVANE_API bool KD_GetNextFile(void* folder, CKD_WideString& name, bool& is_folder, const wchar_t* parent_path);
// KD_CloseFolder closes a listing; null is ignored.
NORVANE_API void KD_CloseFolder(void* folder);
// KD_GetFolderSeparator returns '/'.
NORVANE_API char KD_GetFolderSeparator();
// KD_CreateFolder makes one folder with permissions 0755 (parents are not made); true on success.
NORVANE_API bool KD_CreateFolder(const char* path);
NORVANE_API bool KD_CreateFolder(const wchar_t* path);
// KD_DeleteFolder removes a folder and everything in it: an empty folder at once, otherwise each
// entry (folders by recursion, anything else with remove) and then the folder. Failures inside
// are passed over; the result is whether the folder itself is gone. Symbolic links are removed,
// never followed: neither path itself nor any link inside leads the delete out of the tree.
NORVANE_API bool KD_DeleteFolder(const char* path);
NORVANE_API bool KD_DeleteFolder(const wchar_t* path);
// KD_IsFilePathExist: something exists at path (access with F_OK).
NORVANE_API bool KD_IsFilePathExist(const wchar_t* path);

// KD_File_Exist: something exists at path (access with F_OK).
NORVANE_API bool KD_File_Exist(const CKD_ByteStringC& path);
NORVANE_API bool KD_File_Exist(const CKD_WideStringC& path);
// KD_File_Delete removes the file (or empty folder) at path; true on success.
NORVANE_API bool KD_File_Delete(const CKD_ByteStringC& path);
NORVANE_API bool KD_File_Delete(const CKD_WideStringC& path);
// KD_File_Copy copies src to dst (created or emptied, permissions 0644) in 32 KiB pieces. False
// when src cannot be opened, when src is EMPTY (an empty file is never copied, and dst is then
// neither created nor changed), when dst cannot be opened or the piece buffer cannot be had.
// Otherwise true, also when a read fails or a write falls short part way (the copy then ends
// there).
NORVANE_API bool KD_File_Copy(const CKD_ByteStringC& src, const CKD_ByteStringC& dst);
NORVANE_API bool KD_File_Copy(const CKD_WideStringC& src, const CKD_WideStringC& dst);
// KD_File_Move renames src to dst. Kept as it is for compatibility, the result is INVERTED: true
// when the move FAILED, false when it succeeded.
NORVANE_API bool KD_File_Move(const CKD_ByteStringC& src, const CKD_ByteStringC& dst);
NORVANE_API bool KD_File_Move(const CKD_WideStringC& src, const CKD_WideStringC& dst);

#endif  // NORVANE_STREAMS_FOLDER_H_
