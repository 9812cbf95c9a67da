// The memory that a hibernated Windows, or one shut down with fast startup, keeps on its volume and takes back at its
// next start, together with all that it knew of the volume and its registry.
#pragma once

#include "platform/machine/base/status.h"
#include "rescue/restored_system.h"

namespace rescue {

// Whether memory is kept in the root of the system's volume. Fails, with one line, when the file that says so is there
// and cannot be read.
machine::Status FindHibernation(const RestoredSystem &system, bool *kept);

// Makes the system start afresh: the first page of the hibernation file, which says that memory is kept, is
// overwritten with zeros, on the disk when this returns. Nothing else is touched. Never taken back: a system that
// resumed after its volume was changed would write what it remembers over it. Does nothing where no memory is kept.
machine::Status ForgetHibernation(const RestoredSystem &system);

}  // namespace rescue
