// Preloaded into a program: counts the calls by which it changes what lies below one directory, records them, and at
// one of them ends the process, stops it, or has no room.
//
//   KILL_POINT_BELOW   the directory, absolute and without symbolic links
//   KILL_POINT_RECORD  a file to which each call is appended: name, error (0: none), inode, path, new path (of a link
//   or
//                      rename, else empty), bytes; with tabs between
//   KILL_POINT_AT      WHAT:N, the Nth call: before, after (killed there), half (killed in a write, half of it done),
//                      stop (before it), full (ENOSPC), full-on (and from then on)
//   KILL_POINT_NAMED   when set, no file without a name can be made: not every file system can
#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr std::size_t kPathSize = 4096;

struct Place {
  char path[kPathSize] = "";
  unsigned long inode = 0;
};

struct Call {
  const char *name;
  Place place;
  Place other = {};
  std::size_t size = 0;
  bool isWrite = false, needsRoom = true;
};

struct Plan {
  const char *below = std::getenv("KILL_POINT_BELOW");
  char what[16] = "";
  unsigned long at = 0;
  int record = -1;
  Plan() {
    if (const char *text = std::getenv("KILL_POINT_AT")) std::sscanf(text, "%15[^:]:%lu", what, &at);
    if (const char *file = std::getenv("KILL_POINT_RECORD")) {
      record = static_cast<int>(syscall(SYS_openat, AT_FDCWD, file, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644));
    }
  }
  bool Is(const char *name) const { return std::strcmp(what, name) == 0; }
};

const Plan &ThePlan() {
  static const Plan plan;
  return plan;
}

bool Counts(const Place &place) {
  const char *below = ThePlan().below;
  const std::size_t length = below == nullptr ? 0 : std::strlen(below);
  return length != 0 && std::strncmp(place.path, below, length) == 0 &&
         (place.path[length] == '/' || place.path[length] == '\0');
}

Place OfDescriptor(int file) {
  Place place;
  struct stat status;
  char link[32];
  std::snprintf(link, sizeof link, "/proc/self/fd/%d", file);
  const ssize_t length = readlink(link, place.path, kPathSize - 1);
  place.path[std::max<ssize_t>(length, 0)] = '\0';
  if (fstat(file, &status) == 0) place.inode = status.st_ino;
  return place;
}

// What a path leads to.
Place Target(int directory, const char *path) {
  const long file = syscall(SYS_openat, directory, path, O_PATH | O_CLOEXEC);
  if (file < 0) return {};
  const Place place = OfDescriptor(static_cast<int>(file));
  syscall(SYS_close, file);
  return place;
}

// A name itself, whether or not something has it.
Place Name(int directory, const char *path) {
  char parent[kPathSize];
  std::snprintf(parent, sizeof parent, "%s", path);
  char *slash = std::strrchr(parent, '/');
  const char *leaf = slash == nullptr ? path : path + (slash - parent) + 1;
  if (slash != nullptr) slash[slash == parent ? 1 : 0] = '\0';
  Place place = Target(directory, slash == nullptr ? "." : parent);
  const std::size_t length = std::strlen(place.path);
  std::snprintf(place.path + length, kPathSize - length, "/%s", leaf);
  struct stat status;
  place.inode = fstatat(directory, path, &status, AT_SYMLINK_NOFOLLOW) == 0 ? status.st_ino : 0;
  return place;
}

[[noreturn]] void Kill() {
  for (;;) kill(getpid(), SIGKILL);
}

void Record(const Call &call, long result, int error) {
  char line[2 * kPathSize + 200];
  const int length =
      std::snprintf(line, sizeof line, "%s\t%d\t%lu\t%s\t%s\t%ld\n", call.name, result < 0 ? error : 0,
                    call.place.inode, call.place.path, call.other.path, call.isWrite ? result : long(call.size));
  if (ThePlan().record >= 0) syscall(SYS_write, ThePlan().record, line, length);
}

unsigned long g_count = 0;  // calls so far

// `real` makes the call, of a write with so many bytes; it returns as a system call does.
template <class Real>
long Point(Call call, Real real) {
  if (!Counts(call.place) && !Counts(call.other)) return real(call.size);
  const unsigned long count = ++g_count;
  const Plan &plan = ThePlan();
  const bool hit = count == plan.at;
  if (hit && plan.Is("before")) Kill();
  if (hit && plan.Is("stop")) raise(SIGSTOP);
  if (hit && plan.Is("half") && call.isWrite) {
    real(call.size / 2);
    Kill();
  }
  const bool full = (hit && plan.Is("full")) || (plan.Is("full-on") && count >= plan.at);
  errno = ENOSPC;
  const long result = full && call.needsRoom ? -1 : real(call.size);
  const int error = errno;
  if (result >= 0 && std::strcmp(call.name, "open") == 0) call.place = OfDescriptor(static_cast<int>(result));
  Record(call, result, error);
  if (hit && plan.Is("after")) Kill();
  errno = error;
  return result;
}

int Result(long result) { return static_cast<int>(result); }

int Open(int directory, const char *path, int flags, mode_t mode) {
  const bool nameless = (flags & O_TMPFILE) == O_TMPFILE;
  const auto real = [&](std::size_t) { return syscall(SYS_openat, directory, path, flags, mode); };
  if (!nameless && (flags & (O_CREAT | O_TRUNC)) == 0) return Result(real(0));
  Place place = Target(directory, path);
  if (place.path[0] == '\0') place = Name(directory, path);
  if (nameless && Counts(place) && std::getenv("KILL_POINT_NAMED") != nullptr) {
    errno = EOPNOTSUPP;
    return -1;
  }
  return Result(Point({.name = "open", .place = place}, real));
}

mode_t ModeOf(int flags, va_list arguments) {
  return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE ? va_arg(arguments, mode_t) : 0;
}

// No more than there is, so that half of it is half of the file.
std::size_t Remaining(int file, const off_t *offset, std::size_t size) {
  struct stat status;
  if (fstat(file, &status) != 0 || !S_ISREG(status.st_mode)) return size;
  const off_t at = offset != nullptr ? *offset : lseek(file, 0, SEEK_CUR);
  return std::min(size, static_cast<std::size_t>(std::max<off_t>(status.st_size - at, 0)));
}

template <class Real>
ssize_t Write(const char *name, int file, std::size_t size, Real real) {
  return Point({.name = name, .place = OfDescriptor(file), .size = size, .isWrite = true}, real);
}

// A change of what a file is, by its descriptor or what its path leads to.
template <class Real>
int Change(const char *name, const Place &place, Real real) {
  return Result(Point({.name = name, .place = place}, [&](std::size_t) { return real(); }));
}

}  // namespace

#define FORWARD_OPEN(directory, path, flags)    \
  va_list arguments;                            \
  va_start(arguments, flags);                   \
  const mode_t mode = ModeOf(flags, arguments); \
  va_end(arguments);                            \
  return Open(directory, path, flags, mode)

extern "C" {

int open(const char *path, int flags, ...) { FORWARD_OPEN(AT_FDCWD, path, flags); }
int open64(const char *path, int flags, ...) { FORWARD_OPEN(AT_FDCWD, path, flags); }
int openat(int directory, const char *path, int flags, ...) { FORWARD_OPEN(directory, path, flags); }
int openat64(int directory, const char *path, int flags, ...) { FORWARD_OPEN(directory, path, flags); }
int creat(const char *path, mode_t mode) { return Open(AT_FDCWD, path, O_CREAT | O_WRONLY | O_TRUNC, mode); }
int creat64(const char *path, mode_t mode) { return Open(AT_FDCWD, path, O_CREAT | O_WRONLY | O_TRUNC, mode); }

ssize_t write(int file, const void *bytes, size_t size) {
  return Write("write", file, size, [=](size_t part) { return syscall(SYS_write, file, bytes, part); });
}
ssize_t pwrite(int file, const void *bytes, size_t size, off_t offset) {
  return Write("pwrite", file, size, [=](size_t part) { return syscall(SYS_pwrite64, file, bytes, part, offset); });
}
ssize_t pwrite64(int file, const void *bytes, size_t size, off64_t offset) { return pwrite(file, bytes, size, offset); }
ssize_t writev(int file, const iovec *parts, int count) {
  return Write("writev", file, static_cast<size_t>(count),
               [=](size_t part) { return syscall(SYS_writev, file, parts, part); });
}
ssize_t copy_file_range(int from, off64_t *fromAt, int to, off64_t *toAt, size_t size, unsigned flags) {
  return Write("copy_file_range", to, Remaining(from, fromAt, size),
               [=](size_t part) { return syscall(SYS_copy_file_range, from, fromAt, to, toAt, part, flags); });
}
ssize_t sendfile(int to, int from, off_t *offset, size_t size) noexcept {
  return Write("sendfile", to, Remaining(from, offset, size),
               [=](size_t part) { return syscall(SYS_sendfile, to, from, offset, part); });
}
ssize_t sendfile64(int to, int from, off64_t *offset, size_t size) noexcept { return sendfile(to, from, offset, size); }

int fsync(int file) {
  return Change("fsync", OfDescriptor(file), [=] { return syscall(SYS_fsync, file); });
}
int fdatasync(int file) {
  return Change("fdatasync", OfDescriptor(file), [=] { return syscall(SYS_fdatasync, file); });
}
int ftruncate(int file, off_t size) noexcept {
  return Change("ftruncate", OfDescriptor(file), [=] { return syscall(SYS_ftruncate, file, size); });
}
int ftruncate64(int file, off64_t size) noexcept { return ftruncate(file, size); }
int fchmod(int file, mode_t mode) noexcept {
  return Change("fchmod", OfDescriptor(file), [=] { return syscall(SYS_fchmod, file, mode); });
}
int chmod(const char *path, mode_t mode) noexcept {
  return Change("chmod", Target(AT_FDCWD, path), [=] { return syscall(SYS_fchmodat, AT_FDCWD, path, mode); });
}
int fchown(int file, uid_t owner, gid_t group) noexcept {
  return Change("fchown", OfDescriptor(file), [=] { return syscall(SYS_fchown, file, owner, group); });
}
int futimens(int file, const timespec times[2]) noexcept {
  return Change("futimens", OfDescriptor(file), [=] { return syscall(SYS_utimensat, file, nullptr, times, 0); });
}
int utimensat(int directory, const char *path, const timespec times[2], int flags) noexcept {
  return Change("utimensat", Target(directory, path),
                [=] { return syscall(SYS_utimensat, directory, path, times, flags); });
}
int setxattr(const char *path, const char *name, const void *value, size_t size, int flags) noexcept {
  return Change("setxattr", Target(AT_FDCWD, path),
                [=] { return syscall(SYS_setxattr, path, name, value, size, flags); });
}
int fsetxattr(int file, const char *name, const void *value, size_t size, int flags) noexcept {
  return Change("fsetxattr", OfDescriptor(file),
                [=] { return syscall(SYS_fsetxattr, file, name, value, size, flags); });
}
int removexattr(const char *path, const char *name) noexcept {
  return Change("removexattr", Target(AT_FDCWD, path), [=] { return syscall(SYS_removexattr, path, name); });
}
int fremovexattr(int file, const char *name) noexcept {
  return Change("fremovexattr", OfDescriptor(file), [=] { return syscall(SYS_fremovexattr, file, name); });
}

int renameat2(int from, const char *oldName, int to, const char *newName, unsigned flags) noexcept {
  return Result(Point({.name = "rename", .place = Name(from, oldName), .other = Name(to, newName)},
                      [=](size_t) { return syscall(SYS_renameat2, from, oldName, to, newName, flags); }));
}
int renameat(int from, const char *oldName, int to, const char *newName) noexcept {
  return renameat2(from, oldName, to, newName, 0);
}
int rename(const char *oldName, const char *newName) noexcept {
  return renameat2(AT_FDCWD, oldName, AT_FDCWD, newName, 0);
}
int linkat(int from, const char *oldName, int to, const char *newName, int flags) noexcept {
  const Place old = (flags & AT_SYMLINK_FOLLOW) != 0 ? Target(from, oldName) : Name(from, oldName);
  return Result(Point({.name = "link", .place = old, .other = Name(to, newName)},
                      [=](size_t) { return syscall(SYS_linkat, from, oldName, to, newName, flags); }));
}
int link(const char *oldName, const char *newName) noexcept { return linkat(AT_FDCWD, oldName, AT_FDCWD, newName, 0); }
int unlinkat(int directory, const char *path, int flags) noexcept {
  return Result(Point({.name = "unlink", .place = Name(directory, path), .needsRoom = false},
                      [=](size_t) { return syscall(SYS_unlinkat, directory, path, flags); }));
}
int unlink(const char *path) noexcept { return unlinkat(AT_FDCWD, path, 0); }
int mkdirat(int directory, const char *path, mode_t mode) noexcept {
  return Change("mkdir", Name(directory, path), [=] { return syscall(SYS_mkdirat, directory, path, mode); });
}
int mkdir(const char *path, mode_t mode) noexcept { return mkdirat(AT_FDCWD, path, mode); }

}  // extern "C"
