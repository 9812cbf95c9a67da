// Dumps of the system's own records into the log, at level 3. Each writes nothing for a null record; the title line
// carries `caller` when it is not null. Counts in an extension are capped at their table, texts at their field.
#pragma once

#include "vxr/device.h"
#include "vxr/file_map.h"
#include "vxr/parameters.h"
#include "vxrcore/bmext.h"

void VXRDbg_DumpExtHeader(const VXR_EXTHEADER *record, const char *caller);
void VXRDbg_DumpBMExtnson(const VXR_BMEXTNSON *record, const char *caller);
void VXRDbg_DumpArchitect(const VXR_ARCHITECT *record, const char *caller);
void VXRDbg_DumpSysInfo(const VXR_SYSINFO *record, const char *caller);
void VXRDbg_DumpSysOsInfo(const VXR_SYSOSINFO *record, const char *caller);
void VXRDbg_DumpNetInfo(const VXR_NETINFO *record, const char *caller);
void VXRDbg_DumpVolumes(const VXR_VOLUMES *record, const char *caller);
void VXRDbg_DumpVolume(const VXR_VOLUME *record, const char *caller);
void VXRDbg_DumpVolDisks(const VXR_VOLDISKS *record, const char *caller);
void VXRDbg_DumpVolDisk(const VXR_VOLDISK *record, const char *caller);
void VXRDbg_DumpDevDrv(const VXR_DEVDRV *record, const char *caller);
void VXRDbg_DumpService(const VXR_SERVICE *record, const char *caller);
void VXRDbg_DumpFileInfo(const VXR_FILEINFO *record, const char *caller);
void VXRDbg_DumpDriver(const VXR_DRIVER *record, const char *caller);
void VXRDbg_DumpDevices(const VXR_PARABLOCK *record, const char *caller);
void VXRDbg_DumpDevice(const VXR_DEVICE *record, const char *caller);
void VXRDbg_DumpFileMap(const VXR_FILEMAP *record, const char *caller);
