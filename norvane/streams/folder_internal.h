// Internal to the library: the steps of the folder functions that tests reach directly.
#ifndef NORVANE_STREAMS_FOLDER_INTERNAL_H_
#define NORVANE_STREAMS_FOLDER_INTERNAL_H_

#include "norvane/streams/kdcrt_folder_internal.h"

namespace kdstreams {

// IsFolderEntry says whether a listed entry is a folder: from its type when the listing gives
// one, else by stat of parent + "/" + name (name alone for a null parent).
bool IsFolderEntry(KDCRT_EntryType type, const char* parent, const char* name);
// DeleteEntry removes one entry met while deleting a tree: a folder by a recursive delete, but a
// symbolic link (even one that the listing, not knowing types, reported as a folder) and any
// other entry with remove.
void DeleteEntry(const char* path, bool is_folder);

}  // namespace kdstreams

#endif  // NORVANE_STREAMS_FOLDER_INTERNAL_H_
