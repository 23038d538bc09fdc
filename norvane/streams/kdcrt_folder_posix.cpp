#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

#include "norvane/streams/kdcrt_folder_internal.h"

void* KDCRT_Dir_Open(const char* path) { return opendir(path); }

void* KDCRT_Dir_OpenNoFollow(const char* path) {
  // Opening the descriptor with O_NOFOLLOW refuses a link in the same step that opens the folder,
  // so a link swapped in after a check cannot be followed either.
  int fd = open(path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) return nullptr;
  DIR* dir = fdopendir(fd);
  if (!dir) close(fd);
  return dir;
}

bool KDCRT_Dir_Read(void* dir, const char** name, KDCRT_EntryType* type) {
  struct dirent* entry = readdir(static_cast<DIR*>(dir));
  if (!entry) return false;
  *name = entry->d_name;
  *type = entry->d_type == DT_UNKNOWN ? KDCRT_ENTRY_UNKNOWN
          : entry->d_type == DT_DIR   ? KDCRT_ENTRY_FOLDER
                                      : KDCRT_ENTRY_OTHER;
  return true;
}

void KDCRT_Dir_Close(void* dir) { closedir(static_cast<DIR*>(dir)); }

bool KDCRT_Path_IsFolder(const char* path) {
  struct stat st;
  return stat(path, &st) == 0 && S_ISDIR(st.st_mode);
}

bool KDCRT_Path_IsLink(const char* path) {
  struct stat st;
  return lstat(path, &st) == 0 && S_ISLNK(st.st_mode);
}

int KDCRT_Path_MakeFolder(const char* path, int permissions) { return mkdir(path, static_cast<mode_t>(permissions)); }
int KDCRT_Path_RemoveFolder(const char* path) { return rmdir(path); }
int KDCRT_Path_Remove(const char* path) { return remove(path); }
int KDCRT_Path_Rename(const char* from, const char* to) { return rename(from, to); }
int KDCRT_Path_Exists(const char* path) { return access(path, F_OK); }
