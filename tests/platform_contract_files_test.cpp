// What the calls on files, directories and processes give, on Windows and on the described machine alike.
#include <string>
#include <vector>

#include "tests/support/contract.h"
#include "tests/support/test_machine.h"

namespace {

using namespace contract;
using FilesContract = MachineTest;

// What each call makes of a path: attributes, open, search, stream, version, INF, INF list, copy from.
std::string Answers(const char *path) {
  DWORD ignored = 0;
  std::string answers = Outcome([&] { return platform::GetFileAttributesA(path) != INVALID_FILE_ATTRIBUTES; });
  answers += ' ' + Opened(path, GENERIC_READ, OPEN_EXISTING);
  answers += ' ' + Outcome([&] {
               WIN32_FIND_DATAA data;
               const HANDLE search = platform::FindFirstFileA(path, &data);
               if (search != INVALID_HANDLE_VALUE) platform::FindClose(search);
               return search;
             });
  answers += ' ' + Outcome([&] {
               std::FILE *stream = platform::OpenStream(path, "r");
               if (stream != nullptr) std::fclose(stream);
               return stream;
             });
  answers += ' ' + Outcome([&] { return platform::GetFileVersionInfoSizeA(path, &ignored) != 0; });
  answers += ' ' + Outcome([&] {
               const HINF inf = platform::SetupOpenInfFileA(path, nullptr, INF_STYLE_WIN4, nullptr);
               if (inf != INVALID_HANDLE_VALUE) platform::SetupCloseInfFile(inf);
               return inf;
             });
  answers += ' ' + Outcome([&] {
               Buffer list;
               return platform::SetupGetInfFileListA(path, INF_STYLE_WIN4, list.bytes, list.size, &ignored);
             });
  return answers + ' ' + Outcome([&] { return platform::CopyFileA(path, "X:\\copy", FALSE); });
}

TEST_F(FilesContract, Paths) {
  WriteFile("ram/dir/file.inf", "[Version]\r\nSignature=\"$Windows NT$\"\r\n");
  WriteFile("ram/file.txt", "text");
  Open();
  const struct {
    const char *path, *gives;
  } rows[] = {
      {"X:\\dir\\file.inf", "ok ok ok ok 1812 ok 267 ok"},
      {"x:/DIR/FILE.INF", "ok ok ok ok 1812 ok 267 ok"},
      {"X:\\dir\\.\\..\\dir\\\\file.inf", "ok ok ok ok 1812 ok 267 ok"},
      {"X:\\dir\\file.inf.", "ok ok ok ok 1812 ok 267 ok"},
      {"X:\\dir\\file.inf ", "ok ok ok ok 1812 ok 267 ok"},
      {"\\\\?\\X:\\dir\\file.inf", "ok ok ok ok 1812 ok 267 ok"},
      {"X:\\file.txt", "ok ok ok ok 1812 E0000000 267 ok"},
      {"X:\\dir", "ok 5 ok 5 5 5 ok 5"},
      {"X:\\dir\\", "ok 5 2 5 5 5 ok 5"},
      {"X:\\", "ok 5 2 5 5 5 ok 5"},
      {"X:\\dir\\file.inf\\", "123! 123 2 123 123 123 267 123"},
      {"X:\\none.inf", "2 2 2 2 2 2 3! 2"},
      {"X:\\none\\", "2 2 2 2 2 2 3! 2"},
      {"X:\\none\\file.inf", "3 3 3 3 3 3 3! 3"},
      {"X:\\file.txt\\below", "3 3 267! 3 3 3 3! 3"},
      {"X:\\file.txt\\below\\more", "3 3 3 3 3 3 3! 3"},
      {"Q:\\file.inf", "3! 3! 3 3! 3! 3! 3! 3!"},
      {"X:\\bad|name", "123 123 123! 123 123 123 123! 123"},
      {"X:\\bad?name", "123 123 2 123 123 123 123! 123"},
      {"X:\\bad*\\name", "123 123 123 123 123 123 123! 123"},
      {"X:\\none*", "123 123 2 123 123 123 123! 123"},
      {"X:\\dir\\*.inf", "123 123 ok 123 123 123 123! 123"},
      {"", "3 3 3 3 3! 5 3! 3"},
      {"   ", "3 3 3 3 3 123! 3! 3"},
      {"\\\\.\\PhysicalDrive77", "2! 2 2! 2 2 2 2! 2"},
      {"\\\\.\\Q:", "2! 2 2! 2 2 2 2! 2"},
      {"\\\\?\\Volume{00000000-0000-0000-0000-000000000000}", "2! 2 2! 2 2 2 2! 2"},
  };
  for (const auto &row : rows) EXPECT_EQ(Agreed(Answers(row.path), row.gives), row.gives) << row.path;
  const std::string longest = "X:\\" + std::string(120, 'a') + "\\" + std::string(135, 'b');
  for (const std::string &path : {longest, longest + "b"}) {
    EXPECT_EQ(Agreed(Answers(path.c_str()), "3 3 3 3 3 3 3! 3"), "3 3 3 3 3 3 3! 3") << path.size();
  }
  EXPECT_PRED2(Agrees, Outcome([] {
                 return platform::GetFileAttributesA(("X:\\" + std::string(256, 'a')).c_str()) !=
                        INVALID_FILE_ATTRIBUTES;
               }),
               "123!");
}

TEST_F(FilesContract, Dispositions) {
  Open();
  constexpr DWORD kBoth = GENERIC_READ | GENERIC_WRITE;
  const struct {
    DWORD disposition, access, flags;
    const char *gives;  // for a file that is missing, present, read-only, hidden, a directory; then the present one's
  } rows[] = {
      {CREATE_NEW, kBoth, 0, "ok 80 80 80 80 text"},
      {CREATE_ALWAYS, kBoth, 0, "ok ok:183 5! 5! 5 nothing"},
      {CREATE_ALWAYS, GENERIC_READ, 0, "ok ok:183 5! 5! 5 nothing"},
      {CREATE_ALWAYS, kBoth, FILE_ATTRIBUTE_HIDDEN, "ok ok:183 5! ok:183 5 nothing"},
      {OPEN_EXISTING, GENERIC_READ, 0, "2 ok ok ok 5 text"},
      {OPEN_EXISTING, kBoth, 0, "2 ok 5! ok 5 text"},
      {OPEN_EXISTING, GENERIC_WRITE, 0, "2 ok 5! ok 5 text"},
      {OPEN_EXISTING, 0, 0, "2 ok ok ok 5 text"},
      {OPEN_ALWAYS, kBoth, 0, "ok ok:183 5! ok:183 5 text"},
      {TRUNCATE_EXISTING, kBoth, 0, "2 ok 5! ok 5 nothing"},
      {TRUNCATE_EXISTING, GENERIC_READ, 0, "87! 87! 87! 87! 87! text!"},
      {TRUNCATE_EXISTING, GENERIC_WRITE, 0, "2 ok 5! ok 5 nothing"},
      {0, kBoth, 0, "87 87 87 87 87 text"},
      {6, kBoth, 0, "87 87 87 87 87 text"},
  };
  int number = 0;
  for (const auto &row : rows) {
    const std::string directory = "row" + std::to_string(number++), at = "X:\\" + directory + "\\";
    for (const char *name : {"present", "readonly", "hidden", "directory/file"}) {
      WriteFile("ram/" + directory + "/" + name, "text");
    }
    platform::SetFileAttributesA((at + "readonly").c_str(), FILE_ATTRIBUTE_READONLY);
    platform::SetFileAttributesA((at + "hidden").c_str(), FILE_ATTRIBUTE_HIDDEN);
    std::string gives;
    for (const char *name : {"missing", "present", "readonly", "hidden", "directory"}) {
      gives += Opened((at + name).c_str(), row.access, row.disposition, row.flags) + ' ';
    }
    const std::string left = ReadFile("ram/" + directory + "/present");
    EXPECT_EQ(Agreed(gives + (left.empty() ? "nothing" : left), row.gives), row.gives) << number - 1;
  }
}

// The archive attribute aside, and that a directory may be read-only: a row of the differences tells of them.
TEST_F(FilesContract, Attributes) {
  WriteFile("ram/file", "12345");
  WriteFile("ram/dir/file", "");
  Open();
  constexpr DWORD kHides = FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM, kAll = kHides | FILE_ATTRIBUTE_READONLY;
  for (const DWORD set : {DWORD{FILE_ATTRIBUTE_NORMAL}, DWORD{0}, DWORD{FILE_ATTRIBUTE_READONLY}, kHides,
                          DWORD{FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_READONLY}, FILE_ATTRIBUTE_NORMAL | kHides,
                          DWORD{FILE_ATTRIBUTE_DIRECTORY}, FILE_ATTRIBUTE_DIRECTORY | kAll, DWORD{0}}) {
    for (const char *name : {"X:\\file", "X:\\dir"}) {
      EXPECT_EQ(Outcome([&] { return platform::SetFileAttributesA(name, set); }), "ok") << name << set;
    }
    EXPECT_EQ(platform::GetFileAttributesA("X:\\file") & (kAll | FILE_ATTRIBUTE_DIRECTORY), set & kAll) << set;
    EXPECT_EQ(platform::GetFileAttributesA("X:\\dir") & (kHides | FILE_ATTRIBUTE_DIRECTORY),
              (set & kHides) | FILE_ATTRIBUTE_DIRECTORY)
        << set;
  }
  WIN32_FILE_ATTRIBUTE_DATA data = {};
  EXPECT_TRUE(platform::GetFileAttributesExA("X:\\file", GetFileExInfoStandard, &data));
  EXPECT_EQ(data.nFileSizeLow, 5u);
  EXPECT_EQ(Outcome([&] { return platform::GetFileAttributesExA("X:\\none", GetFileExInfoStandard, &data); }), "2");
  EXPECT_EQ(Outcome([&] {
              return platform::GetFileAttributesExA("X:\\file", static_cast<GET_FILEEX_INFO_LEVELS>(1), &data);
            }),
            "87");
  EXPECT_EQ(Outcome([&] { return platform::SetFileAttributesA("X:\\none", FILE_ATTRIBUTE_NORMAL); }), "2");
}

TEST_F(FilesContract, Searches) {
  for (const char *name : {"one.inf", "other.INFX", "no ending", "two.dots.sys", "sub/in.txt", ".hidden"}) {
    WriteFile(std::string("ram/find/") + name, "");
  }
  WriteFile("ram/none/sub/file", "");
  Open();
  const struct {
    const char *pattern, *gives;
  } rows[] = {
      {"X:\\find\\ONE.INF", "one.inf"},
      {"X:\\find\\one.in?", "one.inf"},

      {"X:\\find\\?ne.*", "one.inf"},
      {"X:\\find\\no ending*", "no ending"},
      {"X:\\find\\no ending.*", "no ending"},
      {"X:\\find\\no*.", "no ending"},
      {"X:\\find\\two.*.sys", "two.dots.sys"},
      {"X:\\find\\two.???????", "2"},
      {"X:\\find\\*.sys", "two.dots.sys"},

      {"X:\\find\\*", "."},
      {"X:\\find\\*.*", "."},

      {"X:\\find\\SUB", "sub"},
      {"X:\\find\\sub\\", "2"},
      {"X:\\find\\sub.", "sub"},
      {"X:\\find\\sub\\*.txt", "in.txt"},
      {"X:\\find\\sub\\*.inf", "2"},

      {"X:\\find\\none\\*", "3"},
      {"X:\\find", "find"},
      {"X:\\f?nd\\one.inf", "123"},

      {"X:\\find\\..", "2"},
      {"X:\\find\\.", "find"},
      {"Q:\\*", "3"},
      {"X:\\find\\one.inf*", "one.inf"},

      {"X:\\find\\.hid*", ".hidden"},
      {"X:\\find\\one*inf", "one.inf"},
      {"X:\\find\\one.inf?", "one.inf!"},
      {"X:\\find\\one.inf\\*", "267!"},
  };
  for (const auto &row : rows) EXPECT_PRED2(Agrees, Found(row.pattern), row.gives) << row.pattern;
}

// Every name that a search gives, sorted, a directory's with a backslash; then the error behind the last.
std::string AllFound(const char *pattern) {
  WIN32_FIND_DATAA data = {};
  const HANDLE search = platform::FindFirstFileA(pattern, &data);
  if (search == INVALID_HANDLE_VALUE) return LastError();
  std::vector<std::string> names;
  std::string end;
  do {
    names.push_back(data.cFileName + std::string((data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ? "\\" : ""));
    end = Outcome([&] { return platform::FindNextFileA(search, &data); });
  } while (end == "ok");
  platform::FindClose(search);
  std::sort(names.begin(), names.end());
  std::string all;
  for (const std::string &name : names) all += name + ' ';
  return all + end;
}

TEST_F(FilesContract, AllMatches) {
  for (const char *name : {"a.inf", "B.INF", "c.sys", "sub/in.inf"}) WriteFile(std::string("ram/find/") + name, "");
  Open();
  const struct {
    const char *pattern, *gives;
  } rows[] = {
      {"X:\\find\\*", "..\\ .\\ B.INF a.inf c.sys sub\\ 18"},
      {"X:\\find\\*.inf", "B.INF a.inf 18"},
      {"X:\\find\\a.inf", "a.inf 18"},
      {"X:\\find\\sub\\*.inf", "in.inf 18"},
  };
  for (const auto &row : rows) EXPECT_EQ(AllFound(row.pattern), row.gives) << row.pattern;
  WIN32_FIND_DATAA data = {};
  EXPECT_EQ(Outcome([&] { return platform::FindNextFileA(INVALID_HANDLE_VALUE, &data); }), "6");
}

TEST_F(FilesContract, Directories) {
  WriteFile("ram/file", "text");
  Open();
  const struct {
    const char *path, *makes, *room;
  } rows[] = {
      {"X:\\new", "ok", "ok"},    {"X:\\NEW", "183", "ok"},      {"X:\\new\\below\\", "ok", "ok"},
      {"X:\\file", "183", "267"}, {"X:\\none\\below", "3", "3"}, {"X:\\file\\below", "3", "3!"},
      {"X:\\", "183!", "ok"},     {"X:\\a|b", "123", "123!"},    {"", "3", "3!"},
      {"Q:\\new", "3!", "3!"},
  };
  for (const auto &row : rows) {
    ULARGE_INTEGER room = {};
    EXPECT_PRED2(Agrees, Outcome([&] { return platform::CreateDirectoryA(row.path, nullptr); }), row.makes) << row.path;
    const std::string told = Outcome([&] { return platform::GetDiskFreeSpaceExA(row.path, &room, nullptr, nullptr); });
    EXPECT_PRED2(Agrees, told, row.room) << row.path;
    EXPECT_EQ(room.QuadPart != 0, told == "ok") << row.path;
  }
  EXPECT_EQ(Outcome([] { return platform::CopyFileA("X:\\file", "X:\\new\\below\\file", TRUE); }), "ok");
}

TEST_F(FilesContract, Copies) {
  WriteFile("ram/source", "new");
  WriteFile("ram/hidden", "new");
  for (const char *name : {"old", "readonly", "concealed", "dir/file"}) WriteFile(std::string("ram/") + name, "old");
  Open();
  platform::SetFileAttributesA("X:\\hidden", FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_READONLY);
  platform::SetFileAttributesA("X:\\readonly", FILE_ATTRIBUTE_READONLY);
  platform::SetFileAttributesA("X:\\concealed", FILE_ATTRIBUTE_HIDDEN);
  const struct {
    const char *source, *target;
    BOOL failIfExists;
    const char *gives;
  } rows[] = {
      {"X:\\source", "X:\\fresh", TRUE, "ok"},     {"X:\\source", "X:\\fresh", TRUE, "80"},
      {"X:\\source", "X:\\OLD", FALSE, "ok"},

      {"X:\\source", "X:\\dir", FALSE, "5"},       {"X:\\source", "X:\\dir\\", FALSE, "5"},
      {"X:\\source", "X:\\dir", TRUE, "80"},       {"X:\\source", "X:\\none\\file", FALSE, "3"},
      {"X:\\source", "X:\\old\\file", FALSE, "3"},

      {"X:\\source", "X:\\a|b", FALSE, "123"},     {"X:\\source", "X:\\SOURCE", FALSE, "32"},
      {"X:\\source", "X:\\source", TRUE, "80"},    {"X:\\none", "X:\\old", FALSE, "2"},
      {"X:\\none\\file", "X:\\old", FALSE, "3"},   {"X:\\dir", "X:\\copied", FALSE, "5"},
      {"X:\\hidden", "X:\\kept", FALSE, "ok"},     {"X:\\source", "", FALSE, "3"},
      {"X:\\source", "X:\\readonly", FALSE, "5!"}, {"X:\\source", "X:\\concealed", FALSE, "5!"},
  };
  for (const auto &row : rows) {
    EXPECT_PRED2(Agrees, Outcome([&] { return platform::CopyFileA(row.source, row.target, row.failIfExists); }),
                 row.gives)
        << row.source << " to " << (row.target == nullptr ? "null" : row.target) << ' ' << row.failIfExists;
  }
  EXPECT_EQ(ReadFile("ram/old") + ReadFile("ram/fresh"), "newnew");
  EXPECT_EQ(platform::GetFileAttributesA("X:\\kept"),
            DWORD{FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_READONLY});
}

// --- Reading, writing, moving ----------------------------------------------------------------------------------------

// A file of ten bytes, opened for both.
HANDLE g_file, g_reader, g_writer;

std::string Moved(LONG low, LONG high, bool both, DWORD method, HANDLE file = g_file) {
  platform::SetLastError(kUnset);
  const DWORD at = platform::SetFilePointer(file, low, both ? &high : nullptr, method);
  const DWORD error = platform::GetLastError();
  if (at == INVALID_SET_FILE_POINTER && error != NO_ERROR) return LastError();
  char text[32];
  std::snprintf(text, sizeof text, both ? "%X:%08X" : "%.0d%X", both ? static_cast<unsigned>(high) : 0,
                static_cast<unsigned>(at));
  return text;
}

std::string Read(DWORD size, HANDLE file = g_file) {
  Buffer buffer(size);
  DWORD read = 99;
  const std::string outcome = Outcome([&] { return platform::ReadFile(file, buffer.bytes, size, &read, nullptr); });
  return outcome + ' ' + std::to_string(read) + ' ' + Shown({buffer.bytes, read < size ? read : size});
}

std::string Written(const char *text, HANDLE file = g_file) {
  DWORD written = 99;
  const auto size = static_cast<DWORD>(std::char_traits<char>::length(text));
  const std::string outcome = Outcome([&] { return platform::WriteFile(file, text, size, &written, nullptr); });
  return outcome + ' ' + std::to_string(written);
}

// The same behind a move from the beginning.
std::string ReadAt(LONG place, DWORD size) {
  const std::string moved = Moved(place, 0, false, FILE_BEGIN);
  return moved + Read(size);
}

std::string WrittenAt(LONG place, const char *text) {
  const std::string moved = Moved(place, 0, false, FILE_BEGIN);
  return moved + Written(text);
}

TEST_F(FilesContract, ReadingAndWriting) {
  WriteFile("ram/file", "0123456789");
  Open();
  g_file = OpenHandle("X:\\file", GENERIC_READ | GENERIC_WRITE);
  g_reader = OpenHandle("X:\\file");
  g_writer = OpenHandle("X:\\file", GENERIC_WRITE);
  constexpr Row rows[] = {
      {"move", [] { return Moved(4, 0, false, FILE_BEGIN); }, "4"},
      {"read", [] { return Read(3); }, "ok 3 456"},
      {"move on", [] { return Moved(-2, 0, false, FILE_CURRENT); }, "5"},
      {"move on, both halves", [] { return Moved(-1, -1, true, FILE_CURRENT); }, "0:00000004"},
      {"before the beginning", [] { return Moved(-11, 0, false, FILE_END); }, "131"},
      {"before the beginning, both", [] { return Moved(-11, -1, true, FILE_END); }, "131"},
      {"negative from the beginning", [] { return Moved(-1, 0, false, FILE_BEGIN); }, "131"},
      {"negative from the beginning, both", [] { return Moved(-1, -1, true, FILE_BEGIN); }, "131"},
      {"as it was", [] { return Moved(0, 0, false, FILE_CURRENT); }, "4"},
      {"no such method", [] { return Moved(0, 0, false, 3); }, "87"},
      {"no such method, both", [] { return Moved(0, 0, true, 3); }, "87"},
      {"no handle", [] { return Moved(0, 0, false, FILE_BEGIN, nullptr); }, "6"},
      {"read across the end", [] { return ReadAt(8, 9); }, "8ok 2 89"},
      {"read at the end", [] { return Read(4); }, "ok 0 "},
      {"read nothing", [] { return Read(0); }, "ok 0 "},
      {"read past the end", [] { return ReadAt(100, 4); }, "64ok 0 "},
      {"far away", [] { return Moved(5, 1, true, FILE_BEGIN); }, "1:00000005"},
      {"far away, the low half alone", [] { return Moved(0, 0, false, FILE_CURRENT); }, "87!"},
      {"as far as can be", [] { return Moved(-1, 0x7FFFFFFF, true, FILE_BEGIN); }, "7FFFFFFF:FFFFFFFF!"},
      {"farther", [] { return Moved(1, 0, true, FILE_CURRENT); }, "87!"},
      {"low half of all bits", [] { return Moved(-1, 1, true, FILE_BEGIN); }, "1:FFFFFFFF"},
      {"write in the middle", [] { return WrittenAt(2, "ab"); }, "2ok 2"},
      {"write nothing", [] { return Written(""); }, "ok 0"},
      {"position behind it", [] { return Moved(0, 0, false, FILE_CURRENT); }, "4"},
      {"write behind the end", [] { return WrittenAt(12, "z"); }, "Cok 1"},
      {"the hole", [] { return ReadAt(9, 9); }, "9ok 4 9<00><00>z"},
      {"read without the right", [] { return Read(1, g_writer); }, "5 0 "},
      {"write without the right", [] { return Written("a", g_reader); }, "5 0"},
      {"read, no handle", [] { return Read(1, nullptr); }, "6 0 "},
      {"write, no handle", [] { return Written("a", INVALID_HANDLE_VALUE); }, "6 0"},
      {"read, no buffer",
       [] {
         DWORD read = 99;
         Moved(0, 0, false, FILE_BEGIN);
         const std::string gives = Outcome([&] { return platform::ReadFile(g_file, nullptr, 4, &read, nullptr); });
         return gives + ' ' + std::to_string(read);
       },
       "998 0"},
      {"write, no buffer",
       [] {
         DWORD written = 99;
         const std::string gives = Outcome([&] { return platform::WriteFile(g_file, nullptr, 4, &written, nullptr); });
         return gives + ' ' + std::to_string(written);
       },
       "1784 0"},
      {"flush", [] { return Outcome([] { return platform::FlushFileBuffers(g_file); }); }, "ok"},
      {"flush without the right", [] { return Outcome([] { return platform::FlushFileBuffers(g_reader); }); }, "5"},
      {"flush, no handle", [] { return Outcome([] { return platform::FlushFileBuffers(nullptr); }); }, "6"},
      {"size", [] { return std::to_string(platform::GetFileSize(g_file, nullptr)); }, "13"},
      {"size, no handle",
       [] { return Outcome([] { return platform::GetFileSize(nullptr, nullptr) != INVALID_FILE_SIZE; }); }, "6"},
      {"close, no handle", [] { return Outcome([] { return platform::CloseHandle(nullptr); }); }, "6"},
      {"end a search that is none", [] { return Outcome([] { return platform::FindClose(INVALID_HANDLE_VALUE); }); },
       "6"},
  };
  Check(rows);
  for (const HANDLE file : {g_file, g_reader, g_writer}) platform::CloseHandle(file);
}

// --- Mappings -------------------------------------------------------------------------------------------------------

struct MappingCase {
  DWORD access;  // of the file
  DWORD protect, sizeHigh, size;
  DWORD view;  // access of the view
  DWORD offset;
  SIZE_T length;
  const char *gives;  // the mapping, the view, and the first eight bytes in it
};

std::string Mapped(const char *name, const MappingCase &row) {
  const HANDLE file = OpenHandle(name, row.access);
  platform::SetLastError(kUnset);
  const HANDLE mapping = platform::CreateFileMappingA(file, nullptr, row.protect, row.sizeHigh, row.size, nullptr);
  std::string gives = LastError();
  platform::CloseHandle(file);
  if (mapping == nullptr) return gives;
  platform::SetLastError(kUnset);
  void *view = platform::MapViewOfFile(mapping, row.view, 0, row.offset, row.length);
  gives = "ok " + gives + ", " + (view == nullptr ? LastError() : "ok " + LastError());
  platform::CloseHandle(mapping);
  if (view == nullptr) return gives;
  gives += ' ' + Shown({static_cast<const char *>(view), 4});
  if (row.view & FILE_MAP_WRITE) static_cast<char *>(view)[0] = 'W';
  return gives + ' ' + Outcome([&] { return platform::UnmapViewOfFile(view); });
}

TEST_F(FilesContract, Mappings) {
  Open();
  constexpr DWORD kBoth = GENERIC_READ | GENERIC_WRITE;
  const MappingCase rows[] = {
      {kBoth, PAGE_READWRITE, 0, 0, FILE_MAP_READ | FILE_MAP_WRITE, 0, 0, "ok 0, ok unset 1234 ok 8"},
      {kBoth, PAGE_READWRITE, 0, 0, FILE_MAP_WRITE, 0, 4, "ok 0, ok unset 1234 ok 8"},
      {kBoth, PAGE_READWRITE, 0, 100, FILE_MAP_READ, 0, 0, "ok 0, ok unset 1234 ok 100"},
      {kBoth, PAGE_READWRITE, 0, 4, FILE_MAP_READ, 0, 0, "ok 0, ok unset 1234 ok 8"},
      {kBoth, PAGE_READWRITE, 0, 4, FILE_MAP_READ, 0, 5000, "ok 0, 5 8"},
      {kBoth, PAGE_READWRITE, 0, 0, FILE_MAP_READ, 0, 9, "ok 0, 5 8"},
      {kBoth, PAGE_READWRITE, 0, 0, FILE_MAP_READ, 0, 70000, "ok 0, 5 8"},
      {kBoth, PAGE_READWRITE, 0, 0, FILE_MAP_READ, 4096, 0, "ok 0, 1132 8"},
      {kBoth, PAGE_READONLY, 0, 0, FILE_MAP_READ, 0, 0, "ok 0, ok unset 1234 ok 8"},
      {kBoth, PAGE_READONLY, 0, 0, FILE_MAP_WRITE, 0, 0, "ok 0, 5 8"},
      {kBoth, PAGE_READONLY, 0, 100, FILE_MAP_READ, 0, 0, "8 8"},
      {GENERIC_READ, PAGE_READONLY, 0, 0, FILE_MAP_READ, 0, 0, "ok 0, ok unset 1234 ok 8"},
      {GENERIC_READ, PAGE_READONLY, 0, 100, FILE_MAP_READ, 0, 0, "8 8"},
      {GENERIC_READ, PAGE_READWRITE, 0, 0, FILE_MAP_READ, 0, 0, "5 8"},
      {GENERIC_WRITE, PAGE_READWRITE, 0, 0, FILE_MAP_READ, 0, 0, "5 8"},
      {GENERIC_WRITE, PAGE_READONLY, 0, 0, FILE_MAP_READ, 0, 0, "5 8"},
      {kBoth, 0, 0, 0, FILE_MAP_READ, 0, 0, "87 8"},
      {kBoth, 0x1234, 0, 0, FILE_MAP_READ, 0, 0, "87 8"},
  };
  int number = 0;
  for (const MappingCase &row : rows) {
    const std::string name = "map" + std::to_string(number);
    WriteFile("ram/" + name, "12345678");
    const std::string gives = Mapped(("X:\\" + name).c_str(), row);
    EXPECT_EQ(gives + ' ' + std::to_string(ReadFile("ram/" + name).size()), row.gives) << number;
    ++number;
  }
  WriteFile("ram/empty", "");
  EXPECT_EQ(Mapped("X:\\empty", rows[0]), "1006");
  EXPECT_EQ(Mapped("X:\\none", rows[0]), "87");
  EXPECT_EQ(ReadFile("ram/map0"), "W2345678");
  char ours = 0;
  EXPECT_EQ(Outcome([&] { return platform::UnmapViewOfFile(&ours); }), "487");
  EXPECT_EQ(Outcome([] { return platform::UnmapViewOfFile(nullptr); }), "487");
  EXPECT_EQ(Outcome([] { return platform::MapViewOfFile(nullptr, FILE_MAP_READ, 0, 0, 0); }), "6");
}

// --- Processes ------------------------------------------------------------------------------------------------------

// The exit code of a command line run to its end, or why it did not start.
std::string Ran(const char *application, const char *commandLine) {
  char line[300] = "";
  if (commandLine != nullptr) std::snprintf(line, sizeof line, "%s", commandLine);
  STARTUPINFOA startup = {};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process = {};
  const std::string outcome = Outcome([&] {
    return platform::CreateProcessA(application, commandLine == nullptr ? nullptr : line, nullptr, nullptr, FALSE,
                                    CREATE_NO_WINDOW, nullptr, nullptr, &startup, &process);
  });
  if (outcome != "ok") return outcome;
  DWORD exitCode = 99;
  std::string gives = std::to_string(platform::WaitForSingleObject(process.hProcess, INFINITE)) + ' ';
  gives += Outcome([&] { return platform::GetExitCodeProcess(process.hProcess, &exitCode); });
  gives += ' ' + std::to_string(exitCode) + ' ' + Outcome([&] { return platform::CloseHandle(process.hProcess); });
  return gives + ' ' + Outcome([&] { return platform::CloseHandle(process.hThread); });
}

TEST_F(FilesContract, Processes) {
  WriteFile("ram/from", "contents");
  WriteFile("ram/with blank", "blank");
  WriteFile("ram/a+b", "sum");
  WriteFile("ram/text.txt", "no program");
  Open();
  const struct {
    const char *application, *commandLine, *gives;
  } rows[] = {
      {nullptr, "cmd.exe /c copy /y X:\\from X:\\to", "0 ok 0 ok ok"},
      {nullptr, "cmd /C COPY /Y \"X:\\with blank\" \"X:\\to blank\"", "0 ok 0 ok ok"},
      {nullptr, "\"cmd.exe\" /c copy /y X:\\from X:\\to", "0 ok 0 ok ok"},
      {nullptr, "cmd.exe /c copy /y \"X:\\a+b\" \"X:\\to+\"", "0 ok 0 ok ok"},
      {nullptr, "cmd.exe /c copy /y X:\\none X:\\to", "0 ok 1 ok ok"},
      {nullptr, "cmd.exe /c copy /y X:\\from X:\\none\\to", "0 ok 1 ok ok"},
      {nullptr, "reg.exe LOAD HKLM\\VXR_CONTRACT X:\\none", "0 ok 1 ok ok"},
      {nullptr, "reg.exe UNLOAD HKLM\\VXR_CONTRACT", "0 ok 1 ok ok"},
      {nullptr, "no-such-program.exe /x", "2"},
      {nullptr, "X:\\none\\program.exe", "2"},
      {nullptr, "X:\\program.exe", "2"},
      {nullptr, "Q:\\program.exe", "2"},
      {nullptr, "", "2"},
      {"X:\\program.exe", nullptr, "2"},
  };
  for (const auto &row : rows) {
    EXPECT_EQ(Ran(row.application, row.commandLine), row.gives) << (row.commandLine ? row.commandLine : "null");
  }
  EXPECT_EQ(ReadFile("ram/to") + ReadFile("ram/to blank") + ReadFile("ram/to+"), "contentsblanksum");
  DWORD exitCode = 99;
  EXPECT_EQ(Outcome([&] { return platform::GetExitCodeProcess(nullptr, &exitCode); }), "6");
  EXPECT_EQ(Outcome([] { return platform::WaitForSingleObject(nullptr, 0) != WAIT_FAILED; }), "6");
}

}  // namespace
