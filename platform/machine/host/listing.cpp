#include "platform/machine/host/listing.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>

#include <algorithm>
#include <cstdint>
#include <deque>
#include <unordered_map>

#include "platform/machine/base/descriptor.h"
#include "platform/text/ansi_case.h"

namespace machine {
namespace {

constexpr std::size_t kListingsKept = 8;

struct Listing {
  dev_t device = 0;
  ino_t inode = 0;
  timespec modified = {}, changed = {};
  bool settled = false;  // read long enough after the last change that a later one must show in the times
  std::unordered_map<std::string, std::string> names;  // folded name to the one on disk
};

std::deque<Listing> g_listings;  // latest first
unsigned g_listingsRead = 0;

std::int64_t Nanoseconds(const timespec &time) { return time.tv_sec * std::int64_t{1000000000} + time.tv_nsec; }

// Two changes within one tick of a file system's clock leave the same times. FAT ticks every two seconds, others at
// least a hundred times a second and nearly never on the full second.
bool Settled(const struct stat &status) {
  timespec now = {};
  clock_gettime(CLOCK_REALTIME_COARSE, &now);
  const std::int64_t tick = status.st_mtim.tv_nsec == 0 ? 2000000000 : 20000000;
  return Nanoseconds(now) - Nanoseconds(status.st_mtim) > tick;
}

bool IsCurrent(const Listing &listing, const struct stat &status) {
  return listing.settled && listing.device == status.st_dev && listing.inode == status.st_ino &&
         Nanoseconds(listing.modified) == Nanoseconds(status.st_mtim) &&
         Nanoseconds(listing.changed) == Nanoseconds(status.st_ctim);
}

Listing ReadListing(int directory, const struct stat &status) {
  Listing listing;
  listing.device = status.st_dev;
  listing.inode = status.st_ino;
  listing.modified = status.st_mtim;
  listing.changed = status.st_ctim;
  listing.settled = Settled(status);
  ++g_listingsRead;
  DirectoryStream stream;
  if (!OpenDirectoryStream(directory, &stream)) return listing;
  while (const dirent *entry = readdir(stream.get())) {
    const auto [place, added] = listing.names.try_emplace(FoldName(entry->d_name), entry->d_name);
    if (!added) place->second = std::min(place->second, std::string(entry->d_name));
  }
  return listing;
}

}  // namespace

Status OpenDirectoryStream(int directory, DirectoryStream *stream) {
  Descriptor own(openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!own) return Status::System();
  stream->reset(fdopendir(own.fd));
  if (*stream == nullptr) return Status::System();
  own.Release();
  return {};
}

std::string FindNameNoCase(int directory, const std::string &name) {
  struct stat status = {};
  if (fstat(directory, &status) != 0) return {};
  auto listing = std::find_if(g_listings.begin(), g_listings.end(), [&status](const Listing &known) {
    return known.device == status.st_dev && known.inode == status.st_ino;
  });
  if (listing != g_listings.end() && !IsCurrent(*listing, status)) {
    g_listings.erase(listing);
    listing = g_listings.end();
  }
  if (listing == g_listings.end()) {
    g_listings.push_front(ReadListing(directory, status));
    if (g_listings.size() > kListingsKept) g_listings.pop_back();
    listing = g_listings.begin();
  }
  const auto found = listing->names.find(FoldName(name));
  return found == listing->names.end() ? std::string() : found->second;
}

void ForgetListings() { g_listings.clear(); }

unsigned ListingsRead() { return g_listingsRead; }

}  // namespace machine
