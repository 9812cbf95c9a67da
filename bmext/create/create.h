// The extension file of the running machine. Its export, VXRExt_CreateBMExtFile, is declared in vxrcore/vxrcore.h; each
// function here fills one record of the file, which is all zero before. FALSE, always after logging, says that the
// record, or for a volume and a disk that one entry, is not to be used; a null argument counts as a failure too.
#pragma once

#include "platform/platform.h"
#include "vxrcore/bmext.h"

// `cold` everywhere: not 0 when the running system was started from another medium than a fixed disk, and so is not the
// one to be described. There is no method of its own for that: the running system is described all the same, and the
// header tells.
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
