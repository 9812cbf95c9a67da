// The restore job's settings as the host left them in the registry.
#pragma once

struct VXR_BMRESTORE {
  char *szBootDisk;  // owned, upper case: device name of the new boot disk
  char *szBootPart;  // owned, upper case: \\.\PHYSICALDRIVEn\PARTITIONn of the restored system
  char *szRootPath;  // owned: the restored system's root as reachable now
  char *szInfDir;    // owned: driver INF directory, or one INF file in a job that names a hardware id
  void *pVXRBMExt;   // the host's extension header, or null; not owned
};
