#include "norvane/streams/folder.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <clocale>
#include <fstream>
#include <iterator>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "norvane/streams/folder_internal.h"
#include "tests/support/temp_dir.h"
#include "tests/support/test_mgr.h"

namespace {

using kdtest::TempDir;

void WriteFile(const std::string& path, const std::string& bytes) { std::ofstream(path, std::ios::binary) << bytes; }

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

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

// root/ a.txt, sub/ (b.txt, deeper/ c.txt), empty/, and links out of the tree: to a folder, to a
// file, and one that leads nowhere. The folder outside holds a file that must survive.
struct Tree {
  explicit Tree(const TempDir& dir) : root(dir.File("root")), outside(dir.File("outside")) {
    mkdir(root.c_str(), 0755);
    mkdir(outside.c_str(), 0755);
    WriteFile(outside + "/keep.txt", "keep");
    WriteFile(root + "/a.txt", "a");
    mkdir((root + "/sub").c_str(), 0755);
    WriteFile(root + "/sub/b.txt", "b");
    mkdir((root + "/sub/deeper").c_str(), 0755);
    WriteFile(root + "/sub/deeper/c.txt", "c");
    mkdir((root + "/empty").c_str(), 0755);
    EXPECT_EQ(symlink(outside.c_str(), (root + "/to_folder").c_str()), 0);
    EXPECT_EQ(symlink((outside + "/keep.txt").c_str(), (root + "/sub/to_file").c_str()), 0);
    EXPECT_EQ(symlink((root + "/nowhere").c_str(), (root + "/dangling").c_str()), 0);
  }
  std::string root, outside;
};

TEST(Folders, ListEntriesWithTheirKinds) {
  TempDir dir;
  Tree tree(dir);
  const std::map<std::string, bool> expected = {{".", true},      {"..", true},         {"a.txt", false},
                                                {"sub", true},    {"empty", true},      {"to_folder", false},
                                                {"dangling", false}};
  void* folder = KD_OpenFolder(tree.root.c_str());
  ASSERT_NE(folder, nullptr);
  std::map<std::string, bool> seen;
  CKD_ByteString name;
  bool is_folder = false;
  while (KD_GetNextFile(folder, name, is_folder, tree.root.c_str())) seen[name.c_str()] = is_folder;
  EXPECT_EQ(seen, expected);
  // Exhausted: false, and the name stays.
  name = "last";
  EXPECT_FALSE(KD_GetNextFile(folder, name, is_folder, tree.root.c_str()));
  EXPECT_EQ(name, "last");
  KD_CloseFolder(folder);

  // The wide forms list the same.
  folder = KD_OpenFolder(Wide(tree.root).c_str());
  ASSERT_NE(folder, nullptr);
  std::map<std::string, bool> seen_wide;
  CKD_WideString wide_name;
  while (KD_GetNextFile(folder, wide_name, is_folder, Wide(tree.root).c_str())) {
    seen_wide[wide_name.UTF8Encode().c_str()] = is_folder;
  }
  EXPECT_EQ(seen_wide, expected);
  KD_CloseFolder(folder);

  // When the listing does not tell the type, stat decides, and it follows links.
  using kdstreams::IsFolderEntry;
  EXPECT_TRUE(IsFolderEntry(KDCRT_ENTRY_UNKNOWN, tree.root.c_str(), "sub"));
  EXPECT_FALSE(IsFolderEntry(KDCRT_ENTRY_UNKNOWN, tree.root.c_str(), "a.txt"));
  EXPECT_TRUE(IsFolderEntry(KDCRT_ENTRY_UNKNOWN, tree.root.c_str(), "to_folder"));
  EXPECT_FALSE(IsFolderEntry(KDCRT_ENTRY_UNKNOWN, tree.root.c_str(), "dangling"));
  EXPECT_TRUE(IsFolderEntry(KDCRT_ENTRY_UNKNOWN, nullptr, tree.root.c_str()));
  EXPECT_FALSE(IsFolderEntry(KDCRT_ENTRY_OTHER, tree.root.c_str(), "sub"));

  // Nulls and missing folders.
  EXPECT_FALSE(KD_GetNextFile(nullptr, name, is_folder, nullptr));
  EXPECT_EQ(KD_OpenFolder(static_cast<const char*>(nullptr)), nullptr);
  EXPECT_EQ(KD_OpenFolder(dir.File("missing").c_str()), nullptr);
  KD_CloseFolder(nullptr);
  EXPECT_EQ(KD_GetFolderSeparator(), '/');
}

TEST(Folders, DeleteRemovesTheTreeButNothingALinkLeadsTo) {
  TempDir dir;
  Tree tree(dir);
  // A link given as the folder is not followed.
  const std::string link = dir.File("link_to_root");
  ASSERT_EQ(symlink(tree.root.c_str(), link.c_str()), 0);
  EXPECT_FALSE(KD_DeleteFolder(link.c_str()));
  EXPECT_TRUE(Exists(tree.root + "/sub/deeper/c.txt"));
  // A link the listing reported as a folder is removed, not descended.
  kdstreams::DeleteEntry((tree.root + "/to_folder").c_str(), true);
  EXPECT_FALSE(Exists(tree.root + "/to_folder"));
  EXPECT_EQ(symlink(tree.outside.c_str(), (tree.root + "/to_folder").c_str()), 0);

  EXPECT_TRUE(KD_DeleteFolder(tree.root.c_str()));
  EXPECT_FALSE(Exists(tree.root));
  EXPECT_EQ(ReadFile(tree.outside + "/keep.txt"), "keep");
  EXPECT_FALSE(KD_DeleteFolder(tree.root.c_str()));  // missing
  EXPECT_FALSE(KD_DeleteFolder(static_cast<const char*>(nullptr)));
  // A file is no folder; an empty folder goes at once; the wide form.
  EXPECT_FALSE(KD_DeleteFolder((tree.outside + "/keep.txt").c_str()));
  Tree again(dir);
  EXPECT_TRUE(KD_DeleteFolder(Wide(again.root + "/empty").c_str()));
  EXPECT_TRUE(KD_DeleteFolder(Wide(again.root).c_str()));
  EXPECT_FALSE(Exists(again.root));
  EXPECT_TRUE(Exists(again.outside + "/keep.txt"));
  // Out of memory part way: no crash, nothing outside touched, and the tree can still go later.
  Tree third(dir);
  {
    kdtest::TestDefaultMgr mgr;
    mgr.sys().FailAll(true);
    EXPECT_FALSE(KD_DeleteFolder(third.root.c_str()));
  }
  EXPECT_TRUE(Exists(third.outside + "/keep.txt"));
  EXPECT_TRUE(KD_DeleteFolder(third.root.c_str()));
}

TEST(Folders, CreateAndExistWithBothPathConversions) {
  TempDir dir;
  mode_t old_mask = umask(0);
  EXPECT_TRUE(KD_CreateFolder(dir.File("made").c_str()));
  umask(old_mask);
  struct stat st;
  ASSERT_EQ(stat(dir.File("made").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0755u);
  EXPECT_FALSE(KD_CreateFolder(dir.File("made").c_str()));             // exists
  EXPECT_FALSE(KD_CreateFolder(dir.File("no/parent/here").c_str()));   // parents are not made
  EXPECT_FALSE(KD_CreateFolder(static_cast<const wchar_t*>(nullptr)));

  const std::string accented = dir.File("caf\xC3\xA9");  // UTF-8 bytes of "café"
  {
    // Under a UTF-8 locale both conversions give the same bytes.
    Locale utf8("C.UTF-8");
    if (utf8.ok()) {
      EXPECT_TRUE(KD_CreateFolder(Wide(accented).c_str()));
      EXPECT_TRUE(KD_IsFilePathExist(Wide(accented).c_str()));
      EXPECT_TRUE(KD_File_Exist(Wide(accented)));
      EXPECT_TRUE(KD_DeleteFolder(Wide(accented).c_str()));
    }
  }
  {
    // Under "C" the folder functions cannot convert "é"; the whole-file operations use UTF-8.
    Locale c("C");
    ASSERT_TRUE(c.ok());
    EXPECT_FALSE(KD_CreateFolder(Wide(accented).c_str()));
    ASSERT_EQ(mkdir(accented.c_str(), 0755), 0);
    EXPECT_FALSE(KD_IsFilePathExist(Wide(accented).c_str()));
    EXPECT_TRUE(KD_File_Exist(Wide(accented)));
    EXPECT_TRUE(KD_IsFilePathExist(Wide(dir.path()).c_str()));
  }
}

TEST(FileOps, ExistDeleteCopyMove) {
  TempDir dir;
  std::mt19937 rng(17);
  std::string data(100000, '\0');
  for (char& c : data) c = static_cast<char>(rng());
  const std::string src = dir.File("src.bin"), dst = dir.File("dst.bin"), utf8 = dir.File("\xC3\xA9t\xC3\xA9.bin");
  WriteFile(src, data);

  EXPECT_TRUE(KD_File_Exist(CKD_ByteStringC(src.c_str())));
  EXPECT_FALSE(KD_File_Exist(CKD_ByteStringC(dir.File("missing").c_str())));
  // A path with a 0 byte inside would name its first part: refused.
  const std::string with_zero = src + std::string("\0x", 2);
  EXPECT_FALSE(KD_File_Exist(CKD_ByteStringC(with_zero.data(), static_cast<int>(with_zero.size()))));

  // Copy: the bytes, into a created or emptied file of permissions 0644.
  WriteFile(dst, std::string(200000, 'x'));
  EXPECT_TRUE(KD_File_Copy(CKD_ByteStringC(src.c_str()), CKD_ByteStringC(dst.c_str())));
  EXPECT_EQ(ReadFile(dst), data);
  mode_t old_mask = umask(0);
  EXPECT_TRUE(KD_File_Copy(Wide(src), Wide(utf8)));
  umask(old_mask);
  EXPECT_EQ(ReadFile(utf8), data);
  struct stat st;
  ASSERT_EQ(stat(utf8.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0644u);
  // Empty or missing sources are not copied, and the target is not created.
  const std::string empty = dir.File("empty"), never = dir.File("never");
  WriteFile(empty, "");
  EXPECT_FALSE(KD_File_Copy(CKD_ByteStringC(empty.c_str()), CKD_ByteStringC(never.c_str())));
  EXPECT_FALSE(KD_File_Copy(CKD_ByteStringC(dir.File("missing").c_str()), CKD_ByteStringC(never.c_str())));
  EXPECT_FALSE(Exists(never));
  EXPECT_FALSE(KD_File_Copy(CKD_ByteStringC(src.c_str()), CKD_ByteStringC(dir.File("no/folder").c_str())));
  // A source that opens but cannot be read (a folder) ends the copy at the failed read.
  if (stat(dir.path().c_str(), &st) == 0 && st.st_size > 0) {
    EXPECT_TRUE(KD_File_Copy(CKD_ByteStringC(dir.path().c_str()), CKD_ByteStringC(never.c_str())));
    EXPECT_EQ(ReadFile(never), "");
  }
  {
    // No 32 KiB buffer: false, with the target opened (and so emptied).
    kdtest::TestDefaultMgr mgr;
    mgr.sys().FailAbove(32767);
    EXPECT_FALSE(KD_File_Copy(CKD_ByteStringC(src.c_str()), CKD_ByteStringC(dst.c_str())));
  }
  EXPECT_EQ(ReadFile(dst), "");

  // Move: the result is inverted, false when the move worked.
  const std::string moved = dir.File("moved.bin");
  EXPECT_FALSE(KD_File_Move(CKD_ByteStringC(src.c_str()), CKD_ByteStringC(moved.c_str())));
  EXPECT_FALSE(Exists(src));
  EXPECT_EQ(ReadFile(moved), data);
  EXPECT_TRUE(KD_File_Move(CKD_ByteStringC(src.c_str()), CKD_ByteStringC(moved.c_str())));  // missing
  EXPECT_FALSE(KD_File_Move(Wide(utf8), Wide(src)));
  EXPECT_TRUE(Exists(src) && !Exists(utf8));
  EXPECT_TRUE(KD_File_Move(CKD_ByteStringC(with_zero.data(), static_cast<int>(with_zero.size())),
                           CKD_ByteStringC(moved.c_str())));

  // Delete, both forms.
  EXPECT_TRUE(KD_File_Delete(CKD_ByteStringC(src.c_str())));
  EXPECT_FALSE(KD_File_Delete(CKD_ByteStringC(src.c_str())));
  EXPECT_TRUE(KD_File_Delete(Wide(moved)));
  EXPECT_FALSE(KD_File_Exist(Wide(moved)));
}

}  // namespace
