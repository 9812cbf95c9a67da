/* The bare-metal extension file: what a protected machine was at backup time. The byte image of VXR_EXTIMAGE, 80,332
 * bytes, little-endian, no padding but the fields named `reserved` (zero) and `Padding`. C and C++ callers.
 *
 * Numbers are byte arrays, so that every record has alignment 1 and may lie at any address; read them with VxrGet16,
 * VxrGet32 and VxrGet64. Texts are in the ANSI code page of the recorded machine, NUL-terminated inside their field in
 * a file that this library wrote; a file from elsewhere may hold anything, so cap texts and counts at their field.
 * Entries of a table at or beyond its count have no meaning. */
#ifndef VXRCORE_BMEXT_H
#define VXRCORE_BMEXT_H

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

typedef struct VXR_LE16 {
  uint8_t b[2];
} VXR_LE16;
typedef struct VXR_LE32 {
  uint8_t b[4];
} VXR_LE32;
typedef struct VXR_LE64 {
  uint8_t b[8];
} VXR_LE64;

static inline uint16_t VxrGet16(VXR_LE16 v) { return (uint16_t)(v.b[0] | v.b[1] << 8); }

static inline uint32_t VxrGet32(VXR_LE32 v) {
  return (uint32_t)v.b[0] | (uint32_t)v.b[1] << 8 | (uint32_t)v.b[2] << 16 | (uint32_t)v.b[3] << 24;
}

static inline uint64_t VxrGet64(VXR_LE64 v) {
  uint64_t value = 0;
  for (int i = 7; i >= 0; --i) value = value << 8 | v.b[i];
  return value;
}

static inline VXR_LE16 VxrPut16(uint16_t value) {
  VXR_LE16 v = {{(uint8_t)value, (uint8_t)(value >> 8)}};
  return v;
}

static inline VXR_LE32 VxrPut32(uint32_t value) {
  VXR_LE32 v = {{(uint8_t)value, (uint8_t)(value >> 8), (uint8_t)(value >> 16), (uint8_t)(value >> 24)}};
  return v;
}

static inline VXR_LE64 VxrPut64(uint64_t value) {
  VXR_LE64 v;
  for (int i = 0; i < 8; ++i) v.b[i] = (uint8_t)(value >> 8 * i);
  return v;
}

#define VXR_EXT_MAGIC_HOT 0x654D6248u  /* "HbMe": the system directory lay on a fixed disk */
#define VXR_EXT_MAGIC_COLD 0x654D6243u /* "CbMe": the system was started from another medium */
#define VXR_EXT_VERSION 1u
#define VXR_EXT_FILE_SIZE 80332u
#define VXR_MAX_VOLUMES 4
#define VXR_MAX_VOLUME_DISKS 2

/* C99 has no assertions of its own: there an array is declared whose size would be negative. */
#if defined(__cplusplus) || (defined(__STDC_VERSION__) && __STDC_VERSION__ >= 201112L)
#define VXR_CHECK(condition, what) static_assert(condition, what)
#else
#define VXR_CHECK(condition, what) extern char VxrCheck[(condition) ? 1 : -1]
#endif
#define VXR_CHECK_SIZE(record, size) VXR_CHECK(sizeof(record) == (size), #record)
#define VXR_CHECK_OFFSET(record, field, offset) VXR_CHECK(offsetof(record, field) == (offset), #record "." #field)

typedef struct VXR_EXTHEADER {
  VXR_LE32 Magic;   /* 0 */
  VXR_LE32 Version; /* 4: queries refuse any but VXR_EXT_VERSION, a restore run takes any */
} VXR_EXTHEADER;
VXR_CHECK_SIZE(VXR_EXTHEADER, 8);
VXR_CHECK_OFFSET(VXR_EXTHEADER, Version, 4);

typedef struct VXR_ARCHITECT {
  VXR_LE32 HalType;    /* 0: VXR_HAL_... */
  VXR_LE32 KernelType; /* 4: VXR_KRNL_... */
} VXR_ARCHITECT;
VXR_CHECK_SIZE(VXR_ARCHITECT, 8);
VXR_CHECK_OFFSET(VXR_ARCHITECT, KernelType, 4);

typedef struct VXR_SYSOSINFO {
  VXR_LE32 MajorVersion;          /* 0 */
  VXR_LE32 MinorVersion;          /* 4 */
  VXR_LE32 BuildNumber;           /* 8 */
  VXR_LE32 PlatformId;            /* 12: 0 Win32s, 1 Windows 9x, 2 NT */
  VXR_LE32 ServicePackMajor;      /* 16 */
  VXR_LE32 ServicePackMinor;      /* 20 */
  VXR_LE32 SuiteMask;             /* 24 */
  VXR_LE32 ProductType;           /* 28: 1 workstation, 2 domain controller, 3 server */
  VXR_LE32 NumberOfProcessors;    /* 32 */
  VXR_LE32 ProcessorType;         /* 36 */
  VXR_LE32 ProcessorLevel;        /* 40 */
  VXR_LE32 ProcessorRevision;     /* 44 */
  VXR_LE32 ProcessorArchitecture; /* 48: 0 x86, 6 ia64, 9 amd64 */
  VXR_LE32 PageSize;              /* 52: bytes */
  VXR_LE64 TotalPhys;             /* 56: bytes */
} VXR_SYSOSINFO;
VXR_CHECK_SIZE(VXR_SYSOSINFO, 64);
VXR_CHECK_OFFSET(VXR_SYSOSINFO, MinorVersion, 4);
VXR_CHECK_OFFSET(VXR_SYSOSINFO, BuildNumber, 8);
VXR_CHECK_OFFSET(VXR_SYSOSINFO, PlatformId, 12);
VXR_CHECK_OFFSET(VXR_SYSOSINFO, ServicePackMajor, 16);
VXR_CHECK_OFFSET(VXR_SYSOSINFO, ServicePackMinor, 20);
VXR_CHECK_OFFSET(VXR_SYSOSINFO, SuiteMask, 24);
VXR_CHECK_OFFSET(VXR_SYSOSINFO, ProductType, 28);
VXR_CHECK_OFFSET(VXR_SYSOSINFO, NumberOfProcessors, 32);
VXR_CHECK_OFFSET(VXR_SYSOSINFO, ProcessorType, 36);
VXR_CHECK_OFFSET(VXR_SYSOSINFO, ProcessorLevel, 40);
VXR_CHECK_OFFSET(VXR_SYSOSINFO, ProcessorRevision, 44);
VXR_CHECK_OFFSET(VXR_SYSOSINFO, ProcessorArchitecture, 48);
VXR_CHECK_OFFSET(VXR_SYSOSINFO, PageSize, 52);
VXR_CHECK_OFFSET(VXR_SYSOSINFO, TotalPhys, 56);

typedef struct VXR_SYSINFO {
  VXR_LE32 BootMedia;    /* 0: VXR_BOOTMEDIA_... */
  char SystemPath[260];  /* 4 */
  char WindowsPath[260]; /* 264 */
  VXR_SYSOSINFO SysOs;   /* 524 */
} VXR_SYSINFO;
VXR_CHECK_SIZE(VXR_SYSINFO, 588);
VXR_CHECK_OFFSET(VXR_SYSINFO, SystemPath, 4);
VXR_CHECK_OFFSET(VXR_SYSINFO, WindowsPath, 264);
VXR_CHECK_OFFSET(VXR_SYSINFO, SysOs, 524);

typedef struct VXR_GUID {
  VXR_LE32 Data1;   /* 0 */
  VXR_LE16 Data2;   /* 4 */
  VXR_LE16 Data3;   /* 6 */
  uint8_t Data4[8]; /* 8 */
} VXR_GUID;
VXR_CHECK_SIZE(VXR_GUID, 16);
VXR_CHECK_OFFSET(VXR_GUID, Data2, 4);
VXR_CHECK_OFFSET(VXR_GUID, Data3, 6);
VXR_CHECK_OFFSET(VXR_GUID, Data4, 8);

typedef struct VXR_SERVICE {
  char Name[32];   /* 0 */
  char Group[64];  /* 32 */
  char Image[260]; /* 96: as the service entry states it */
  VXR_LE32 Tag;    /* 356 */
  VXR_LE32 Type;   /* 360 */
  VXR_LE32 Start;  /* 364 */
} VXR_SERVICE;
VXR_CHECK_SIZE(VXR_SERVICE, 368);
VXR_CHECK_OFFSET(VXR_SERVICE, Group, 32);
VXR_CHECK_OFFSET(VXR_SERVICE, Image, 96);
VXR_CHECK_OFFSET(VXR_SERVICE, Tag, 356);
VXR_CHECK_OFFSET(VXR_SERVICE, Type, 360);
VXR_CHECK_OFFSET(VXR_SERVICE, Start, 364);

typedef struct VXR_FILEINFO {
  char FileName[260];       /* 0: full path as it was examined */
  char Section[256];        /* 260: of an INF file, the install section; else empty */
  char ProductName[64];     /* 516 */
  char CompanyName[64];     /* 580 */
  char ProductVersion[64];  /* 644 */
  char FileDescription[64]; /* 708 */
  char FileVersion[64];     /* 772 */
  VXR_LE64 CreationTime;    /* 836: 100-ns units since 1601-01-01 UTC */
  VXR_LE64 LastAccessTime;  /* 844 */
  VXR_LE64 LastWriteTime;   /* 852 */
  VXR_LE64 FileSize;        /* 860: bytes */
} VXR_FILEINFO;
VXR_CHECK_SIZE(VXR_FILEINFO, 868);
VXR_CHECK_OFFSET(VXR_FILEINFO, Section, 260);
VXR_CHECK_OFFSET(VXR_FILEINFO, ProductName, 516);
VXR_CHECK_OFFSET(VXR_FILEINFO, CompanyName, 580);
VXR_CHECK_OFFSET(VXR_FILEINFO, ProductVersion, 644);
VXR_CHECK_OFFSET(VXR_FILEINFO, FileDescription, 708);
VXR_CHECK_OFFSET(VXR_FILEINFO, FileVersion, 772);
VXR_CHECK_OFFSET(VXR_FILEINFO, CreationTime, 836);
VXR_CHECK_OFFSET(VXR_FILEINFO, LastAccessTime, 844);
VXR_CHECK_OFFSET(VXR_FILEINFO, LastWriteTime, 852);
VXR_CHECK_OFFSET(VXR_FILEINFO, FileSize, 860);

typedef struct VXR_DEVDRV {
  VXR_GUID DevGuid;       /* 0: set-up class */
  VXR_LE32 DeviceType;    /* 16: VXR_DEVTYPE_...; zero, and InstanceID empty, when nothing could be found out */
  char InstanceID[260];   /* 20 */
  char Description[256];  /* 280 */
  char Manufacturer[256]; /* 536 */
  char ProviderName[256]; /* 792 */
  VXR_SERVICE Service;    /* 1,048 */
  VXR_FILEINFO ImgFile;   /* 1,416 */
  VXR_FILEINFO InfFile;   /* 2,284 */
} VXR_DEVDRV;
VXR_CHECK_SIZE(VXR_DEVDRV, 3152);
VXR_CHECK_OFFSET(VXR_DEVDRV, DeviceType, 16);
VXR_CHECK_OFFSET(VXR_DEVDRV, InstanceID, 20);
VXR_CHECK_OFFSET(VXR_DEVDRV, Description, 280);
VXR_CHECK_OFFSET(VXR_DEVDRV, Manufacturer, 536);
VXR_CHECK_OFFSET(VXR_DEVDRV, ProviderName, 792);
VXR_CHECK_OFFSET(VXR_DEVDRV, Service, 1048);
VXR_CHECK_OFFSET(VXR_DEVDRV, ImgFile, 1416);
VXR_CHECK_OFFSET(VXR_DEVDRV, InfFile, 2284);

typedef struct VXR_DISKEXTENT {
  VXR_LE32 DiskNumber;     /* 0 */
  uint8_t Padding[4];      /* 4: as the platform delivered it */
  VXR_LE64 StartingOffset; /* 8: bytes, signed */
  VXR_LE64 ExtentLength;   /* 16: bytes, signed */
} VXR_DISKEXTENT;
VXR_CHECK_SIZE(VXR_DISKEXTENT, 24);
VXR_CHECK_OFFSET(VXR_DISKEXTENT, Padding, 4);
VXR_CHECK_OFFSET(VXR_DISKEXTENT, StartingOffset, 8);
VXR_CHECK_OFFSET(VXR_DISKEXTENT, ExtentLength, 16);

typedef struct VXR_VOLDISK {
  VXR_DISKEXTENT DiskExtent; /* 0 */
  VXR_DEVDRV DiskDriver;     /* 24 */
  VXR_DEVDRV CtrlDriver;     /* 3,176 */
  VXR_DEVDRV BusEDriver;     /* 6,328: IDE disks only, else zero */
} VXR_VOLDISK;
VXR_CHECK_SIZE(VXR_VOLDISK, 9480);
VXR_CHECK_OFFSET(VXR_VOLDISK, DiskDriver, 24);
VXR_CHECK_OFFSET(VXR_VOLDISK, CtrlDriver, 3176);
VXR_CHECK_OFFSET(VXR_VOLDISK, BusEDriver, 6328);

typedef struct VXR_VOLDISKS {
  VXR_LE32 DiskCount;                      /* 0: 0..2 */
  VXR_LE32 MaxDiskCount;                   /* 4: 2 */
  VXR_VOLDISK Disks[VXR_MAX_VOLUME_DISKS]; /* 8 */
} VXR_VOLDISKS;
VXR_CHECK_SIZE(VXR_VOLDISKS, 18968);
VXR_CHECK_OFFSET(VXR_VOLDISKS, MaxDiskCount, 4);
VXR_CHECK_OFFSET(VXR_VOLDISKS, Disks, 8);

typedef struct VXR_VOLUME {
  char MntPnt[16];       /* 0: such as C:\ */
  char Volume[64];       /* 16: GUID path without trailing backslash */
  uint8_t Device[260];   /* 80: 16-bit length, then the device name in UTF-16LE without terminator */
  uint8_t UniqId[260];   /* 340: 16-bit length, then the id */
  char Label[16];        /* 600 */
  char FileSystem[16];   /* 616 */
  char BMName[260];      /* 632: the volume's name in the backup */
  VXR_LE32 DeviceLen;    /* 892: bytes in Device, the length included */
  VXR_LE32 UniqIdLen;    /* 896: bytes in UniqId, the length included */
  VXR_LE32 Serial;       /* 900 */
  VXR_LE32 MaxLen;       /* 904: longest file name component */
  VXR_LE32 Flags;        /* 908: of the file system */
  uint8_t reserved[4];   /* 912 */
  VXR_LE32 VolType;      /* 916: 0x400 always, 0x1 holds boot.ini, 0x2 holds the system directory */
  VXR_VOLDISKS VolDisks; /* 920 */
} VXR_VOLUME;
VXR_CHECK_SIZE(VXR_VOLUME, 19888);
VXR_CHECK_OFFSET(VXR_VOLUME, Volume, 16);
VXR_CHECK_OFFSET(VXR_VOLUME, Device, 80);
VXR_CHECK_OFFSET(VXR_VOLUME, UniqId, 340);
VXR_CHECK_OFFSET(VXR_VOLUME, Label, 600);
VXR_CHECK_OFFSET(VXR_VOLUME, FileSystem, 616);
VXR_CHECK_OFFSET(VXR_VOLUME, BMName, 632);
VXR_CHECK_OFFSET(VXR_VOLUME, DeviceLen, 892);
VXR_CHECK_OFFSET(VXR_VOLUME, UniqIdLen, 896);
VXR_CHECK_OFFSET(VXR_VOLUME, Serial, 900);
VXR_CHECK_OFFSET(VXR_VOLUME, MaxLen, 904);
VXR_CHECK_OFFSET(VXR_VOLUME, Flags, 908);
VXR_CHECK_OFFSET(VXR_VOLUME, reserved, 912);
VXR_CHECK_OFFSET(VXR_VOLUME, VolType, 916);
VXR_CHECK_OFFSET(VXR_VOLUME, VolDisks, 920);

typedef struct VXR_VOLUMES {
  VXR_LE32 VolCount;                /* 0: 0..4 */
  VXR_LE32 MaxVolCount;             /* 4: 4 */
  VXR_LE32 BootVolInd;              /* 8: signed index of the last volume with boot.ini in its root, -1 for none */
  VXR_LE32 SystVolInd;              /* 12: signed index of the last with the system directory, -1 for none */
  VXR_VOLUME Vols[VXR_MAX_VOLUMES]; /* 16 */
} VXR_VOLUMES;
VXR_CHECK_SIZE(VXR_VOLUMES, 79568);
VXR_CHECK_OFFSET(VXR_VOLUMES, MaxVolCount, 4);
VXR_CHECK_OFFSET(VXR_VOLUMES, BootVolInd, 8);
VXR_CHECK_OFFSET(VXR_VOLUMES, SystVolInd, 12);
VXR_CHECK_OFFSET(VXR_VOLUMES, Vols, 16);

/* The machine's names. One that does not fit its field is left out: the field is empty. */
typedef struct VXR_NETINFO {
  char ComputerName[16];                          /* 0 */
  char ComputerNameNetBIOS[16];                   /* 16 */
  char ComputerNameDnsHostname[16];               /* 32 */
  char ComputerNameDnsDomain[16];                 /* 48 */
  char ComputerNameDnsFullyQualified[16];         /* 64 */
  char ComputerNamePhysicalNetBIOS[16];           /* 80 */
  char ComputerNamePhysicalDnsHostname[16];       /* 96 */
  char ComputerNamePhysicalDnsDomain[16];         /* 112 */
  char ComputerNamePhysicalDnsFullyQualified[16]; /* 128 */
} VXR_NETINFO;
VXR_CHECK_SIZE(VXR_NETINFO, 144);
VXR_CHECK_OFFSET(VXR_NETINFO, ComputerNameNetBIOS, 16);
VXR_CHECK_OFFSET(VXR_NETINFO, ComputerNameDnsHostname, 32);
VXR_CHECK_OFFSET(VXR_NETINFO, ComputerNameDnsDomain, 48);
VXR_CHECK_OFFSET(VXR_NETINFO, ComputerNameDnsFullyQualified, 64);
VXR_CHECK_OFFSET(VXR_NETINFO, ComputerNamePhysicalNetBIOS, 80);
VXR_CHECK_OFFSET(VXR_NETINFO, ComputerNamePhysicalDnsHostname, 96);
VXR_CHECK_OFFSET(VXR_NETINFO, ComputerNamePhysicalDnsDomain, 112);
VXR_CHECK_OFFSET(VXR_NETINFO, ComputerNamePhysicalDnsFullyQualified, 128);

typedef struct VXR_BMEXTNSON {
  VXR_LE32 Size;           /* 0: 80,324; written, never checked */
  VXR_ARCHITECT Architect; /* 4 */
  VXR_SYSINFO SysInfo;     /* 12 */
  VXR_VOLUMES Volumes;     /* 600 */
  VXR_NETINFO NetInfo;     /* 80,168 */
  uint8_t reserved[12];    /* 80,312 */
} VXR_BMEXTNSON;
VXR_CHECK_SIZE(VXR_BMEXTNSON, 80324);
VXR_CHECK_OFFSET(VXR_BMEXTNSON, Architect, 4);
VXR_CHECK_OFFSET(VXR_BMEXTNSON, SysInfo, 12);
VXR_CHECK_OFFSET(VXR_BMEXTNSON, Volumes, 600);
VXR_CHECK_OFFSET(VXR_BMEXTNSON, NetInfo, 80168);
VXR_CHECK_OFFSET(VXR_BMEXTNSON, reserved, 80312);

/* A whole file, as it lies in memory. Bytes of that size may be read as one at any address, whatever they hold. */
typedef struct VXR_EXTIMAGE {
  VXR_EXTHEADER Header;    /* 0 */
  VXR_BMEXTNSON Extension; /* 8 */
} VXR_EXTIMAGE;
VXR_CHECK_SIZE(VXR_EXTIMAGE, VXR_EXT_FILE_SIZE);
VXR_CHECK_OFFSET(VXR_EXTIMAGE, Extension, 8);

#undef VXR_CHECK
#undef VXR_CHECK_SIZE
#undef VXR_CHECK_OFFSET

/* Values of the records' fields. */
enum { VXR_BOOTMEDIA_DISK, VXR_BOOTMEDIA_CDROM, VXR_BOOTMEDIA_NET, VXR_BOOTMEDIA_RAM, VXR_BOOTMEDIA_UNKNOWN };
enum { VXR_KRNL_UP, VXR_KRNL_UP_PAE, VXR_KRNL_MP, VXR_KRNL_MP_PAE };
enum { VXR_HAL_E_ISA_UP, VXR_HAL_ACPIPIC_UP, VXR_HAL_ACPIAPIC_UP, VXR_HAL_ACPIAPIC_MP, VXR_HAL_MPS_UP, VXR_HAL_MPS_MP };
enum { VXR_DEVTYPE_DISKDRIVE, VXR_DEVTYPE_HDC, VXR_DEVTYPE_SCSIADAPTER, VXR_DEVTYPE_NET, VXR_DEVTYPE_UNKNOWN };

/* Queries (VXRExt_QueryData in vxrcore.h): classes and, for each class, codes. */
enum { VXREQ_Volume, VXREQ_System, VXREQ_Network, VXREQ_Architect };

enum {
  VXREQS_BootMedia,   /* 4 bytes */
  VXREQS_SystemPath,  /* text */
  VXREQS_WindowsPath, /* text */
  VXREQS_SysOs,       /* VXR_SYSOSINFO, 64 bytes */
  VXREQS_Reference /* wants 588 bytes of room; stores the low 32 bits of the address of the image's VXR_SYSINFO in the
                      first 4 and leaves the others. Not a pointer on a 64-bit system: read the image instead */
};
enum { VXREQN_Name /* text: the plain computer name */ };
enum { VXREQA_KernelType /* 4 bytes */, VXREQA_HalType /* 4 bytes */ };

/* Volume class. Of the whole table: */
enum {
  VXREQV_VolCount,   /* 4 bytes */
  VXREQV_VolIndex,   /* 4 bytes, signed: index of the volume at the drive letter in the in value, as it is recorded */
  VXREQV_SystVolInd, /* 4 bytes, signed: -1 for none */
  VXREQV_BootVolInd, /* 4 bytes, signed: -1 for none */
  /* Of the volume that the in value numbers: */
  VXREQV_MntPnt,    /* text */
  VXREQV_BMName,    /* text */
  VXREQV_Volume,    /* text */
  VXREQV_Label,     /* text */
  VXREQV_UniqId,    /* bytes: 16-bit length, then the id */
  VXREQV_Serial,    /* 4 bytes */
  VXREQV_FSName,    /* text */
  VXREQV_Device,    /* bytes: 16-bit length, then the name in UTF-16LE */
  VXREQV_DiskCount, /* 4 bytes */
  /* Of the disk that the in pointer numbers, joined with one VXREQV_...Driver below: */
  VXREQV_DiskNumber,         /* 4 bytes: the same for every driver */
  VXREQV_DiskDescription,    /* text */
  VXREQV_DiskInstanceId,     /* text */
  VXREQV_DiskManufacturer,   /* text */
  VXREQV_DiskProvider,       /* text */
  VXREQV_DiskDevGuid,        /* 16 bytes */
  VXREQV_DiskImgFileTime,    /* 8 bytes: last write */
  VXREQV_DiskImgFileSize,    /* 8 bytes */
  VXREQV_DiskImgFileName,    /* text */
  VXREQV_DiskImgFileDesc,    /* text */
  VXREQV_DiskImgFileVersion, /* text */
  VXREQV_DiskInfFileTime,    /* 8 bytes: last write */
  VXREQV_DiskInfFileSize,    /* 8 bytes */
  VXREQV_DiskInfFileName,    /* text */
  VXREQV_DiskInfFileDesc,    /* text */
  VXREQV_DiskInfFileVersion, /* text */
  VXREQV_DiskSrvName,        /* text */
  VXREQV_DiskSrvGroup,       /* text */
  VXREQV_DiskSrvImage        /* text */
};
#define VXREQV_DiskDriver 0x80000000u /* the disk's driver */
#define VXREQV_BusEDriver 0x40000000u /* the bus extender's: IDE disks only */
#define VXREQV_CtrlDriver 0x20000000u /* the controller's */

#endif
