#include "norvane/streams/folder.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <clocale>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "norvane/streams/folder_internal.h"
#include "tests/support/temp_dir.h"
#include "tests/support/test_mgr.h"

namespace {

using kdtest::ReadFile;
using kdtest::TempDir;
using kdtest::WriteFile;

bool Exists(const std::string& path) {
  struct stat st;
  return lstat(path.c_str(), &st) == 0;
}

CKD_WideString Wide(const std::string& utf8) { return CKD_WideString::FromUTF8(utf8.c_str()); }

// Sets LC_CTYPE for one scope; the folder functions' wide paths follow it.
class Locale {
 public:
  explicit Locale(const char* name) : saved_(setlocale(LC_CTYPE, nullptr)) { ok_ = setlocale(LC_CTYPE, name) != nullptr; }
  ~Locale() { setlocale(LC_CTYPE, saved_.c_str()); }
  bool ok() const { return ok_; }

 private:
  std::string saved_;
  bool ok_;
};

// root/ a.txt, sub/ (b.txt, deeper/ c.txt, a link back up to root), empty/, a link out of the tree
// to a folder and one that leads nowhere. The folder outside holds a file that must survive.
struct Tree {
  explicit Tree(const TempDir& dir) : root(dir.File("root")), outside(dir.File("outside")) {
    for (const std::string& folder : {root, outside, root + "/sub", root + "/sub/deeper", root + "/empty"}) {
      mkdir(folder.c_str(), 0755);
    }
    for (const std::string& file : {outside + "/keep.txt", root + "/a.txt", root + "/sub/b.txt", root + "/sub/deeper/c.txt"}) {
      WriteFile(file, std::string("keep"));
    }
    EXPECT_EQ(symlink(outside.c_str(), (root + "/to_folder").c_str()) + symlink(root.c_str(), (root + "/sub/up").c_str()) +
                  symlink((root + "/nowhere").c_str(), (root + "/dangling").c_str()),
              0);
  }
  std::string root, outside;
};

TEST(Folders, ListEntriesWithTheirKinds) {
  TempDir dir;
  Tree tree(dir);
  const std::map<std::string, bool> expected = {{".", true},      {"..", true},         {"a.txt", false},
                                                {"sub", true},    {"empty", true},      {"to_folder", false},
                                                {"dangling", false}};
  // Both forms list the same; an exhausted folder gives false and leaves the name.
  std::map<std::string, bool> seen, seen_wide;
  CKD_ByteString name;
  CKD_WideString wide_name;
  bool is_folder = false;
  void* folder = KD_OpenFolder(tree.root.c_str());
  while (KD_GetNextFile(folder, name, is_folder, tree.root.c_str())) seen[name.c_str()] = is_folder;
  const CKD_ByteString last = name;
  EXPECT_FALSE(KD_GetNextFile(folder, name, is_folder, tree.root.c_str()));
  EXPECT_TRUE(name == last && !last.IsEmpty());
  KD_CloseFolder(folder);
  folder = KD_OpenFolder(Wide(tree.root).c_str());
  while (KD_GetNextFile(folder, wide_name, is_folder, Wide(tree.root).c_str())) {
    seen_wide[wide_name.UTF8Encode().c_str()] = is_folder;
  }
  KD_CloseFolder(folder);
  EXPECT_EQ(seen, expected);
  EXPECT_EQ(seen_wide, expected);

  // When the listing does not tell the type, stat decides, and it follows links.
  using kdstreams::IsFolderEntry;
  const char* root = tree.root.c_str();
  EXPECT_TRUE(IsFolderEntry(KDCRT_ENTRY_UNKNOWN, root, "sub") && IsFolderEntry(KDCRT_ENTRY_UNKNOWN, root, "to_folder"));
  EXPECT_FALSE(IsFolderEntry(KDCRT_ENTRY_UNKNOWN, root, "a.txt") || IsFolderEntry(KDCRT_ENTRY_UNKNOWN, root, "dangling"));
  EXPECT_TRUE(IsFolderEntry(KDCRT_ENTRY_UNKNOWN, nullptr, root));
  EXPECT_FALSE(KD_GetNextFile(nullptr, name, is_folder, nullptr));
  EXPECT_EQ(KD_OpenFolder(dir.File("missing").c_str()), nullptr);
}

TEST(Folders, DeleteRemovesTheTreeButNothingALinkLeadsTo) {
  TempDir dir;
  Tree tree(dir);
  // A link given as the folder is not followed.
  const std::string link = dir.File("link_to_root");
  ASSERT_EQ(symlink(tree.root.c_str(), link.c_str()), 0);
  EXPECT_TRUE(!KD_DeleteFolder(link.c_str()) && Exists(tree.root + "/sub/deeper/c.txt"));
  // A link the listing reported as a folder (as stat would) is removed, not descended.
  kdstreams::DeleteEntry((tree.root + "/to_folder").c_str(), true);
  EXPECT_FALSE(Exists(tree.root + "/to_folder"));
  EXPECT_EQ(symlink(tree.outside.c_str(), (tree.root + "/to_folder").c_str()), 0);

  EXPECT_TRUE(KD_DeleteFolder(tree.root.c_str()) && !Exists(tree.root));
  EXPECT_EQ(ReadFile(tree.outside + "/keep.txt"), "keep");
  // Missing, null, or a file: false.
  EXPECT_FALSE(KD_DeleteFolder(tree.root.c_str()) || KD_DeleteFolder(static_cast<const char*>(nullptr)) ||
               KD_DeleteFolder((tree.outside + "/keep.txt").c_str()));
  // Out of memory part way: no crash and nothing outside touched; the wide form then deletes.
  Tree again(dir);
  {
    kdtest::TestDefaultMgr mgr;
    mgr.sys().FailAll(true);
    EXPECT_FALSE(KD_DeleteFolder(again.root.c_str()));
  }
  EXPECT_TRUE(KD_DeleteFolder(Wide(again.root).c_str()));
  EXPECT_TRUE(!Exists(again.root) && Exists(again.outside + "/keep.txt"));
}

TEST(Folders, CreateAndExistWithBothPathConversions) {
  TempDir dir;
  mode_t old_mask = umask(0);
  EXPECT_TRUE(KD_CreateFolder(dir.File("made").c_str()));
  umask(old_mask);
  struct stat st;
  EXPECT_TRUE(stat(dir.File("made").c_str(), &st) == 0 && (st.st_mode & 0777) == 0755u);
  // Exists already; parents are not made.
  EXPECT_FALSE(KD_CreateFolder(dir.File("made").c_str()) || KD_CreateFolder(dir.File("no/parent").c_str()));

  const std::string accented = dir.File("caf\xC3\xA9");  // UTF-8 bytes of "café"
  {
    Locale utf8("C.UTF-8");  // both conversions give the same bytes
    if (utf8.ok()) {
      EXPECT_TRUE(KD_CreateFolder(Wide(accented).c_str()) && KD_IsFilePathExist(Wide(accented).c_str()));
      EXPECT_TRUE(KD_File_Exist(Wide(accented)) && KD_DeleteFolder(Wide(accented).c_str()));
    }
  }
  // Under "C" the folder functions cannot convert "é"; the whole-file operations use UTF-8.
  Locale c("C");
  ASSERT_TRUE(c.ok());
  EXPECT_FALSE(KD_CreateFolder(Wide(accented).c_str()));
  ASSERT_EQ(mkdir(accented.c_str(), 0755), 0);
  EXPECT_FALSE(KD_IsFilePathExist(Wide(accented).c_str()));
  EXPECT_TRUE(KD_File_Exist(Wide(accented)) && KD_IsFilePathExist(Wide(dir.path()).c_str()));
}

CKD_ByteStringC View(const std::string& s) { return CKD_ByteStringC(s.data(), static_cast<int>(s.size())); }

TEST(FileOps, ExistDeleteCopyMove) {
  TempDir dir;
  std::mt19937 rng(17);
  std::string data(100000, '\0');
  for (char& c : data) c = static_cast<char>(rng());
  const std::string src = dir.File("src.bin"), dst = dir.File("dst.bin"), utf8 = dir.File("\xC3\xA9t\xC3\xA9.bin");
  const std::string empty = dir.File("empty"), never = dir.File("never"), moved = dir.File("moved.bin");
  const std::string with_zero = src + std::string("\0x", 2);  // would name its first part: refused
  WriteFile(src, data);
  WriteFile(empty, std::string());
  WriteFile(dst, std::string(200000, 'x'));
  EXPECT_TRUE(KD_File_Exist(View(src)) && !KD_File_Exist(View(never)) && !KD_File_Exist(View(with_zero)));

  // Copy: the bytes, into a created or emptied file of permissions 0644.
  mode_t old_mask = umask(0);
  EXPECT_TRUE(KD_File_Copy(View(src), View(dst)) && KD_File_Copy(Wide(src), Wide(utf8)));
  umask(old_mask);
  EXPECT_TRUE(ReadFile(dst) == data && ReadFile(utf8) == data);
  struct stat st;
  EXPECT_TRUE(stat(utf8.c_str(), &st) == 0 && (st.st_mode & 0777) == 0644u);
  // Empty or missing sources are not copied, and the target is not created.
  EXPECT_FALSE(KD_File_Copy(View(empty), View(never)) || KD_File_Copy(View(dir.File("missing")), View(never)));
  EXPECT_FALSE(Exists(never) || KD_File_Copy(View(src), View(dir.File("no/folder"))));
  // A source that opens but cannot be read (a folder) ends the copy at the failed read.
  if (stat(dir.path().c_str(), &st) == 0 && st.st_size > 0) {
    EXPECT_TRUE(KD_File_Copy(View(dir.path()), View(never)) && ReadFile(never).empty());
  }
  {
    // No 32 KiB buffer: false, with the target opened (and so emptied).
    kdtest::TestDefaultMgr mgr;
    mgr.sys().FailAbove(32767);
    EXPECT_FALSE(KD_File_Copy(View(src), View(dst)));
  }
  EXPECT_EQ(ReadFile(dst), "");

  // Move: the result is inverted, false when the move worked.
  EXPECT_FALSE(KD_File_Move(View(src), View(moved)) || Exists(src) || KD_File_Move(Wide(utf8), Wide(src)));
  EXPECT_TRUE(KD_File_Move(View(moved), View(dir.File("no/folder"))) && KD_File_Move(View(with_zero), View(moved)));
  EXPECT_TRUE(Exists(src) && !Exists(utf8) && ReadFile(moved) == data);
  // Delete, both forms.
  EXPECT_TRUE(KD_File_Delete(View(src)) && !KD_File_Delete(View(src)));
  EXPECT_TRUE(KD_File_Delete(Wide(moved)) && !KD_File_Exist(Wide(moved)));
}

}  // namespace
