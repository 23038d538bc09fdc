// The POSIX folder and path calls: the only code of the library that calls opendir, readdir,
// closedir, mkdir, rmdir, remove, rename, access, stat and lstat. Paths are terminated byte
// texts, passed to the system as they are.
#ifndef NORVANE_STREAMS_KDCRT_FOLDER_INTERNAL_H_
#define NORVANE_STREAMS_KDCRT_FOLDER_INTERNAL_H_

// What a folder entry is, as far as the listing tells.
enum KDCRT_EntryType { KDCRT_ENTRY_UNKNOWN = -1, KDCRT_ENTRY_OTHER = 0, KDCRT_ENTRY_FOLDER = 1 };

// KDCRT_Dir_Open opens a folder listing (opendir); null on failure.
void* KDCRT_Dir_Open(const char* path);
// KDCRT_Dir_OpenNoFollow opens a folder listing unless path names a symbolic link (its last
// component is not followed); null on failure.
void* KDCRT_Dir_OpenNoFollow(const char* path);
// KDCRT_Dir_Read reads the next entry: its name (valid until the next read or the close) and its
// type (a symbolic link is KDCRT_ENTRY_OTHER). False when no entry is left.
bool KDCRT_Dir_Read(void* dir, const char** name, KDCRT_EntryType* type);
// KDCRT_Dir_Close closes a listing (closedir).
void KDCRT_Dir_Close(void* dir);

// KDCRT_Path_IsFolder: stat succeeds on path (following links) and it is a folder.
bool KDCRT_Path_IsFolder(const char* path);
// KDCRT_Path_IsLink: lstat succeeds on path and it is a symbolic link.
bool KDCRT_Path_IsLink(const char* path);
// The rest return the system call's own result: 0 (access: 0 or more) on success.
int KDCRT_Path_MakeFolder(const char* path, int permissions);  // mkdir
int KDCRT_Path_RemoveFolder(const char* path);                 // rmdir
int KDCRT_Path_Remove(const char* path);                       // remove
int KDCRT_Path_Rename(const char* from, const char* to);       // rename
int KDCRT_Path_Exists(const char* path);                       // access(path, F_OK)

#endif  // NORVANE_STREAMS_KDCRT_FOLDER_INTERNAL_H_
