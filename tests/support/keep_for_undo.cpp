// Keeps for an undo what an injection would change:
//   keep_for_undo VOLUME AFTER   AFTER: a directory that holds the files of the volume as the injection leaves them
#include <fcntl.h>

#include <cstdio>

#include "platform/machine/base/descriptor.h"
#include "platform/machine/host/digest.h"
#include "rescue/undo.h"

int main(int argc, char **argv) {
  if (argc != 3) return 2;
  namespace fs = std::filesystem;
  rescue::UndoPlan plan = {argv[1], fs::path(argv[1]) / "Windows", 1795642163, "vxr", {}};
  for (const auto &entry : fs::recursive_directory_iterator(argv[2])) {
    rescue::PlannedChange change;
    change.path = fs::relative(entry.path(), argv[2]);
    change.directory = entry.is_directory();
    if (!change.directory) {
      const machine::Descriptor file(open(entry.path().c_str(), O_RDONLY));
      change.size = entry.file_size();
      if (!machine::FileDigest(file.fd, change.size, &change.digest)) return 1;
    }
    plan.changes.push_back(change);
  }
  fs::path folder;
  const machine::Status kept = KeepForUndo(plan, &folder);
  if (!kept) std::fprintf(stderr, "%s\n", Words(kept).c_str());
  return kept ? 0 : 1;
}
