// Listings of sysfs trees, "L PATH TARGET" a link and "F PATH TEXT" a file, and what they say of disks.
#include "rescue/disk_chain.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <fstream>
#include <tuple>

#include "rescue/pci_tree.h"

namespace {

namespace fs = std::filesystem;
using namespace rescue;
using testing::ElementsAre;

constexpr const char *kBuses[] = {"ide", "ata", "scsi", "nvme", "virtio", "usb", "sd", "other"};

std::string Show(const ControllerPath &path) {
  std::string text;
  for (const PciNode &node : path.nodes) {
    text += std::string(SetupClass(node.function)) + ' ' + HardwareIds(node.function)[0].substr(4) + '@' +
            node.address + '(' + node.driver + ") < ";
  }
  return text + path.rootBus;
}

std::string Show(const Disk &disk) {
  std::string text = disk.name + ' ' + kBuses[static_cast<int>(disk.bus)];
  for (const unsigned number : {disk.channel, disk.target, disk.lun}) text += ' ' + std::to_string(number);
  text += " [" + disk.vendor + '|' + disk.model + '|' + disk.revision + '|' + disk.serial + "] ";
  text += std::to_string(disk.size) + '/' + std::to_string(disk.sectorSize) + ' ' + Show(disk.controller);
  for (const ControllerPath &other : disk.otherControllers) text += " + " + Show(other);
  return text + (disk.unfit.empty() ? "" : " ! " + disk.unfit);
}

std::string Names(const std::vector<Disk> &disks) {
  std::string names;
  for (const Disk &disk : disks) names += disk.name + ' ';
  return names;
}

class DiskChain : public testing::Test {
 protected:
  DiskChain() {
    std::string name = (fs::temp_directory_path() / "disks-XXXXXX").string();
    folder = mkdtemp(name.data());
  }
  ~DiskChain() override { fs::remove_all(folder); }

  static fs::path Data(const char *name) { return fs::path(VXR_SOURCE_DIR) / "tests/data/sysfs" / name; }
  void Build(const fs::path &listing) {
    std::ifstream lines(listing);
    ASSERT_TRUE(lines) << listing;
    for (std::string line; std::getline(lines, line);) {
      const std::size_t blank = line.find(' ', 2);
      const fs::path place = folder / line.substr(3, blank - 3);
      fs::path parent = place.parent_path();
      if (fs::is_symlink(parent)) parent = (parent.parent_path() / fs::read_symlink(parent)).lexically_normal();
      fs::create_directories(parent);
      if (line[0] == 'L') fs::create_symlink(line.substr(blank + 1), place);
      if (line[0] == 'F') std::ofstream(place) << line.substr(blank + 1) << '\n';
    }
  }
  std::vector<std::string> Listed() const {
    std::vector<Disk> disks;
    EXPECT_TRUE(ListDisks(folder / "sys", &disks));
    std::vector<std::string> texts;
    for (const Disk &disk : disks) texts.push_back(Show(disk));
    return texts;
  }

  fs::path folder;
};

const std::string kNoStart = ": Windows does not start from it here; restore onto a disk that Windows starts from";
const std::string kName = "name the controller that Windows will have with --controller";
const std::string kNoPci = "no PCI controller is to be seen above the disk; " + kName;

TEST_F(DiskChain, BusesAndControllersAreThoseOfWindows) {
  Build(Data("buses.txt"));
  std::ofstream(folder / "sys/block/sdc/device/vpd_pg80") << std::string("\0\x80\0\x08  WD-12 3", 12);
  const std::string size = " 1073741824/512 ", ids = "&SUBSYS_01231028&REV_05@";
  const std::string port = "{4D36E97D-E325-11CE-BFC1-08002BE10318} VEN_8086&DEV_4C0", ssd = "VEN_1E0F&DEV_0011" + ids;
  EXPECT_THAT(
      Listed(),
      ElementsAre("cciss/c0d0 scsi 0 0 0 [|||]" + size + "SCSIAdapter VEN_103C&DEV_3230" + ids +
                      "0000:00:03.0(cciss) < PNP0A08",
                  "mmcblk0 sd 0 0 0 [|DG4032||0x1d]" + size + "SCSIAdapter VEN_8086&DEV_4DC4" + ids +
                      "0000:00:1a.0(sdhci-pci) < PNP0A08 ! an SD or MMC card" + kNoStart,
                  "nvme0n1 scsi 0 0 0 [|Samsung SSD 980|5B2|S1] 1073741824/4096 SCSIAdapter VEN_8086&DEV_467F" + ids +
                      "0000:00:0e.0(vmd) < PNP0A08",
                  "nvme1n2 nvme 0 0 1 [|KCD6|0104|Z9]" + size + "SCSIAdapter " + ssd + "0000:01:00.0(nvme) < " + port +
                      "1&SUBSYS_00000000&REV_05@0000:00:01.0(pcieport) < PNP0A08 + SCSIAdapter " + ssd +
                      "0000:02:00.0(nvme) < " + port + "5&SUBSYS_00000000&REV_05@0000:00:02.0(pcieport) < PNP0A08",
                  "sda usb 0 0 0 [Kingston|DataTraveler|1.0|]" + size + "SCSIAdapter VEN_8086&DEV_A36D" + ids +
                      "0000:00:14.0(xhci_hcd) < PNP0A08 ! a USB disk" + kNoStart,
                  "sdc ide 1 1 0 [ATA|WDC WD800|1.0|WD-12]" + size + "hdc VEN_8086&DEV_2850" + ids +
                      "0000:00:1f.1(ata_piix) < PNP0A08",
                  "sdd scsi 1 0 0 [ATA|DISK|1.0|]" + size + "SCSIAdapter VEN_8086&DEV_2822" + ids +
                      "0000:00:1f.2(ahci) < PNP0A08",
                  "sde scsi 0 0 0 [Msft|Virtual Disk|1.0|]" + size +
                      " ! a disk on a bus of Hyper-V's own, not on PCI; " + kName,
                  "sdf scsi 0 0 1 [LIO-ORG|iscsi|1.0|]" + size + " ! " + kNoPci,
                  "sdg scsi 0 0 0 [LaCie|Big Disk|1.0|]" + size + "SCSIAdapter VEN_104C&DEV_8024" + ids +
                      "0000:00:1e.0(firewire_ohci) < PNP0A08 ! a FireWire disk" + kNoStart,
                  "vda virtio 0 0 0 [|||]" + size + " ! " + kNoPci,
                  "xvda other 0 0 0 [|||]" + size + " ! a disk on a bus of Xen's own, not on PCI; " + kName));
}

TEST_F(DiskChain, AHostileTreeGivesNothingAbsurd) {
  Build(Data("hostile.txt"));
  fs::create_directories(folder / "sys/block/sdp");
  ASSERT_EQ(mkfifo((folder / "sys/block/sdp/size").c_str(), 0600), 0);
  EXPECT_THAT(Listed(), ElementsAre("nvme0n1 nvme 0 0 0 [|||] 4096/512  ! " + kNoPci,
                                    "sda ide 0 0 0 [|||] 1073741824/512 hdc VEN_8086&DEV_7010&SUBSYS_01231028&REV_05@"
                                    "0000:00:01.0(a?b) < PNP0A03",
                                    "sdb scsi 0 0 0 [ATA|a?b  c|1.0|] 1073741824/512  ! " + kNoPci,
                                    "sdc scsi 0 0 0 [ATA|DISK|1.0|] 1073741824/512  ! " + kNoPci));
}

TEST_F(DiskChain, DisksBehindPortsOfARealKernel) {
  Build(Data("live-q35-ports.txt"));
  const std::string size = " 44040192/512 ", system = "{4D36E97D-E325-11CE-BFC1-08002BE10318} ";
  const std::string port = system + "VEN_1B36&DEV_000C&SUBSYS_00001B36&REV_00@0000:00:0";
  EXPECT_THAT(Listed(),
              ElementsAre("nvme0n1 nvme 0 0 0 [|QEMU NVMe Ctrl|7.2.22|live]" + size +
                              "SCSIAdapter VEN_1B36&DEV_0010&SUBSYS_11001AF4&REV_02@0000:01:00.0(nvme) < " + port +
                              "3.0(pcieport) < PNP0A08",
                          "sda ata 3 0 0 [ATA|QEMU HARDDISK|2.5+|]" + size +
                              "hdc VEN_8086&DEV_2922&SUBSYS_11001AF4&REV_02@0000:00:1f.2(ahci) < PNP0A08",
                          "sdb scsi 2 0 0 [QEMU|QEMU HARDDISK|2.5+|]" + size +
                              "SCSIAdapter VEN_1000&DEV_0060&SUBSYS_10131000&REV_00@0000:03:03.0(megaraid_sas) < " +
                              system + "VEN_8086&DEV_244E&SUBSYS_00000000&REV_92@0000:00:05.0() < PNP0A08",
                          "vda virtio 0 0 0 [|||]" + size +
                              "SCSIAdapter VEN_1AF4&DEV_1042&SUBSYS_11001AF4&REV_01@0000:02:00.0(virtio-pci) < " +
                              port + "4.0(pcieport) < PNP0A08"));
  Mount mount;
  mount.major = 253;
  std::vector<Disk> disks;
  EXPECT_TRUE(DisksOf(mount, folder / "sys", &disks));
  EXPECT_EQ(Names(disks), "sda sdb ");
}

TEST_F(DiskChain, DisksOfRealMachines) {
  const char *corpus = std::getenv("VXR_CORPUS_DIR");
  if (corpus == nullptr) GTEST_SKIP() << "VXR_CORPUS_DIR is not set";
  const std::string ids = "VEN_1000&DEV_0060&SUBSYS_10131000&REV_00@", size = " 67108864/512 ";
  const std::string model = "[QEMU|QEMU HARDDISK|2.5+|]" + size, ata = "[ATA|QEMU HARDDISK|2.5+|]" + size;
  const fs::path listings = fs::path(corpus) / "sysfs";
  Build(listings / "q35-ahci-nvme-raid-behind-bridge.txt");
  EXPECT_THAT(
      Listed(),
      ElementsAre("nvme0n1 nvme 0 0 0 [|QEMU NVMe Ctrl|7.2.22|s2]" + size +
                      "SCSIAdapter VEN_1B36&DEV_0010&SUBSYS_11001AF4&REV_02@0000:00:03.0(nvme) < PNP0A08",
                  "sda ata 0 0 0 " + ata + "hdc VEN_8086&DEV_2922&SUBSYS_11001AF4&REV_02@0000:00:02.0(ahci) < PNP0A08",
                  "sdb scsi 2 0 0 " + model + "SCSIAdapter " + ids +
                      "0000:01:03.0(megaraid_sas) < {4D36E97D-E325-11CE-BFC1-08002BE10318} "
                      "VEN_8086&DEV_244E&SUBSYS_00000000&REV_92@0000:00:04.0() < PNP0A08"));
  fs::remove_all(folder / "sys");
  Build(listings / "pc-eleven-controllers.txt");
  const std::vector<std::string> disks = Listed();
  ASSERT_EQ(disks.size(), 11U);
  EXPECT_EQ(disks[3],
            "sdc ide 0 0 0 " + ata + "hdc VEN_8086&DEV_7010&SUBSYS_11001AF4&REV_00@0000:00:01.1(ata_piix) < PNP0A03");
  EXPECT_EQ(disks[8], "sdh scsi 2 0 0 " + model + "SCSIAdapter " + ids + "0000:00:05.0(megaraid_sas) < PNP0A03");
  EXPECT_EQ(disks[10], "vda virtio 0 0 0 [|||]" + size +
                           "SCSIAdapter VEN_1AF4&DEV_1001&SUBSYS_00021AF4&REV_00@0000:00:0a.0(virtio-pci) < PNP0A03");
  const std::vector<PciNode> functions = ListPciFunctions(folder / "sys");
  ASSERT_EQ(functions.size(), 16U);
  EXPECT_EQ(functions[2].address + functions[15].address, "0000:00:01.10000:00:0d.0");
}

TEST_F(DiskChain, AFileSystemLiesOnAllDisksBelowIt) {
  Build(Data("volumes.txt"));
  const std::string sys = (folder / "sys").string(), at = "/mnt (ntfs3 from /dev/x) ";
  const std::string none = at + "is on no disk: " + kName;
  const auto image = [](const char *loop, const char *file) {
    return std::string(loop) + " is the image " + file + ", not a disk: " + kName;
  };
  for (const auto &[device, minor, expected] : std::initializer_list<std::tuple<unsigned, unsigned, std::string>>{
           {8, 2, "sda "},             // a partition
           {65, 160, "sdaa "},         // a whole disk
           {9, 0, "sdb sdaa "},        // an array of partitions
           {253, 0, "sda sdb sdaa "},  // a volume over an array and a partition
           {259, 7, "sda sdb sdaa "},  // a partition of a loop device over that volume
           {253, 1, "sdb sdaa "},      // one disk by two paths
           {7, 2, "sda "},             // a loop device over a partition
           {7, 1, image("/dev/loop1", "/srv/disk.img")},
           {253, 9, none},  // in a circle
           {7, 3, none},    // over itself
           {8, 3, at + "is on no block device that " + sys + " shows: " + kName},
           {0, 21, at + "has no disk of its own: " + kName},
       }) {
    Mount mount;
    mount.source = "/dev/x";
    mount.type = "ntfs3";
    mount.point = "/mnt";
    mount.major = device;
    mount.minor = minor;
    std::vector<Disk> disks;
    const machine::Status found = DisksOf(mount, sys, &disks);
    EXPECT_EQ(found ? Names(disks) : Words(found), expected) << device << ':' << minor;
  }
}

TEST_F(DiskChain, TheMountOfADirectory) {
  const fs::path root = fs::canonical(folder), table = root / "mountinfo";
  const std::string at = root.string(), head = "1 0 8:1 / / rw - ext4 /dev/a rw\n", line = "2 1 8:2 / " + at;
  fs::create_directories(root / "m t/sub");
  fs::create_directory_symlink(root / "m t/sub", root / "link");
  std::ofstream(root / "file") << "image";
  const std::string mounted = "; mount the restored volume and name the directory where it is";
  for (const auto &[name, lines, expected] : std::initializer_list<std::tuple<const char *, std::string, std::string>>{
           {"m t/sub", line + "/m\\040t rw,noatime shared:1 master:2 - fuseblk /dev/b rw\n", "/dev/b fuseblk 8:2 rw"},
           {"link", line + "/m\\040t ro - ntfs3 /dev/b rw\n", "/dev/b ntfs3 8:2 ro"},
           {"m t", line + "/m\\040t rw - ntfs3 /dev/b errors=x,ro,y\n", "/dev/b ntfs3 8:2 ro"},
           {"m t", line + "/m\\040t/sub rw - ntfs3 /dev/b ro\n", "/dev/a ext4 8:1 rw"},
           {"m t", line + "/m rw - ntfs3 /dev/b ro\n" + line + " rw - vfat  rw,error\n", " vfat 8:2 rw"},
           {"m t", line + " ro - vfat /dev/b ro\n" + line + " rw - ntfs3 /dev/c rw\n", "/dev/c ntfs3 8:2 rw"},
           {"m t", "3 1 0:44 / " + at + " rw - fuse /dev/null rw\n", "/dev/null fuse 0:44 rw"},
           {"m t", line + "/m\\040t\\08x rw - a b rw\n2 1 8 / " + at + " rw - a b rw\n" + line + " rw a b c d\n\n- -",
            "/dev/a ext4 8:1 rw"},
           {"none", "", at + "/none is missing" + mounted},
           {"file", "", at + "/file is a file" + mounted},
       }) {
    std::ofstream(table) << head << lines;
    Mount mount;
    const machine::Status found = FindMount(root / name, table, &mount);
    EXPECT_EQ(found ? mount.source + ' ' + mount.type + ' ' + std::to_string(mount.major) + ':' +
                          std::to_string(mount.minor) + (mount.readOnly ? " ro" : " rw")
                    : Words(found),
              expected)
        << lines;
  }
}

}  // namespace
