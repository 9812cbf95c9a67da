// The machine that tests and benchmarks start from, as a machine file describes it.
#pragma once

// A 64-bit 6.1 system on X:, two processors, 8 GiB.
inline constexpr char kStandardSystem[] = R"([system]
system_directory = 'X:\Windows\System32'
windows_directory = 'X:\Windows'
os = { major = 6, minor = 1, build = 7601, platform = 2, sp_major = 1, sp_minor = 0, suite = 0x100, product = 1 }
processor = { count = 2, architecture = 9, type = 8664, level = 6, revision = 0x3A09 }
memory = 8589934592
)";

// The least that a machine file may say: eight lines.
inline constexpr char kLeastMachine[] = R"([system]
system_directory = 'X:\Windows\System32'
windows_directory = 'X:\Windows'
os = { major = 6, minor = 1 }
[[drive]]
root = 'X:\'
type = 'ramdisk'
path = 'ram'
)";

// X: (RAM disk, host directory ram), with the product in X:\Halcyra, and D: (fixed, restored).
inline constexpr char kStandardDrives[] = R"(
[[drive]]
root = 'X:\'
type = 'ramdisk'
path = 'ram'

[[drive]]
root = 'D:\'
type = 'fixed'
path = 'restored'

[registry.'SOFTWARE\Varnelt\Halcyra']
HCDIR = 'X:\Halcyra'

)";

// The product's settings for a log that tells everything.
inline constexpr char kMasterIni[] = "[debugging]\r\nvxrcore=5\r\n";

// Restore job 1 of a 64-bit 6.1 system in D:\Windows, with drivers in X:\drivers; no extension file.
inline constexpr char kStandardJob[] = R"(
[registry.'SOFTWARE\Varnelt\Relmar\1']
Disk = '\\.\PhysicalDrive0'
InfDir = 'X:\drivers'
BootPart = '\\.\PhysicalDrive0\Partition1'
RootPath = 'D:\Windows'
HAL = 9
OSVerMaj = 6
OSVerMin = 1
)";
