// The extension file of the running machine. Its export, VXRExt_CreateBMExtFile, is declared in vxrcore/vxrcore.h.
//
// Each function that builds fills one record of the file, which must be all zero before. FALSE, after a log line, means
// that the record is not as it should be: a volume is then left out, a disk kept with what is known of it, and without
// any other record no file is written. A null argument gives FALSE too.
#pragma once

#include "platform/platform.h"
#include "vxrcore/bmext.h"

// `cold` everywhere: 0 when the running system was started from a fixed disk. When it was not, it is a rescue system,
// and what one would want described is another, which does not run. That cannot be done here: the file describes the
// rescue system, and the cold magic number in its header is the only sign of it.
//
// `szMap`: a settings file whose section of each drive letter gives the volume's name in the backup (DeviceName); null
// for none. Volumes that it does not name are called "No BM File Name".

// The level of a warning that a file is not given, which many hosts never give.
inline constexpr int32_t kQuietWarning = 2;

// All but the size. FALSE at the first part that cannot be filled.
BOOL VXRExt_CreateBMExtension(const char *szMap, VXR_BMEXTNSON *pVXRBMExt);
BOOL VXRExt_CreateBMExtFileHeader(DWORD cold, VXR_EXTHEADER *pVXRBMExtHeader);
// Lists the extension file in the includes file as its one item. Other entries stay; an includes file that is missing
// is made.
BOOL VXRExt_UpdateBMIncludesFile(const char *szBMEFile, const char *szIncFile);

// --- create_system.cpp -----------------------------------------------------------------------------------------------

// The boot medium, directories, version, processor and memory. FALSE when the system directory lies on no drive that a
// system is started from; version and memory that cannot be had are zero.
BOOL VXRExt_BuildVXRSysInfo(VXR_SYSINFO *pVXRSysInfo);
// The computer's names. One that does not fit its field is left out.
BOOL VXRExt_BuildVXRNetInfo(DWORD cold, VXR_NETINFO *pVXRNetInfo);

// --- create_volumes.cpp ----------------------------------------------------------------------------------------------

// The volumes of the first four fixed drives that can be described, in the order of their letters; a drive that cannot
// be is left out. FALSE only when the drives cannot be listed.
BOOL VXRExt_BuildVXRVolumes(DWORD cold, const char *szMap, VXR_VOLUMES *pVXRVolumes);
// One volume by its root, such as C:\, and its disks. FALSE when it cannot be asked for its identity or its extents,
// as one of more than two extents cannot.
BOOL VXRExt_BuildVXRVolumeHBM(const char *szMntPnt, const char *szMap, VXR_VOLUME *pVXRVolume);
// The disks of an open volume, one entry for each extent. A disk whose drivers cannot be told is counted all the same,
// with what is known of it.
BOOL VXRExt_BuildVXRVolDisksHBM(HANDLE hVolume, VXR_VOLDISKS *pVXRVolDisks);
// One disk by its extent: its driver, its controller's and for an IDE disk the bus extender's. FALSE, with what was
// filled before, at the first that cannot be told.
BOOL VXRExt_BuildVXRVolDisk(const DISK_EXTENT *pDiskExtent, VXR_VOLDISK *pVXRVolDisk);
