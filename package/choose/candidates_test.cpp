// Which drivers of a folder are found for a device, in which order, and why others are not taken.
#include "package/choose/candidates.h"

#include "tests/support/pe_builder.h"
#include "tests/support/targets.h"
#include "tests/support/test_machine.h"

namespace package {
namespace {

using testing::ElementsAre;

constexpr char kInstall[] = R"(
[Inst.NTamd64]
CopyFiles = @arv.sys
[Inst.NTamd64.Services]
AddService = arv, 2, Svc
[Svc]
ServiceType = 1
ServiceBinary = %12%\arv.sys
[None]
[None.Services]
AddService = ,2
[Not.NTamd64]
CopyFiles = @arv.sys
ExcludeID = pci\dev
[Old]
FeatureScore = 10
[Old.Services]
AddService = old, 2, OldSvc
[OldSvc]
ServiceBinary = %12%\old.sys
[Gone]
[Gone.Services]
AddService = gone, 2, GoneSvc
[GoneSvc]
ServiceBinary = %12%\gone.sys
[Broken]
[Broken.Services]
AddService = broken, 2, BrokenSvc
[BrokenSvc]
ServiceBinary = %12%\broken.sys
[Flat]
[Flat.Services]
AddService = arv, 2, Svc
AddService = flt, , PackedSvc
[PackedSvc]
ServiceBinary = %12%\packed.sys
[Strings]
Id = PCI\DEV
)";

class CandidatesTest : public MachineTest {
 protected:
  CandidatesTest() {
    std::string image = BuildImage(VersionTree({}));
    WriteFile("ram/pack/sub/arv.sys", image);
    WriteFile("ram/pack/sub/packed.sy_", image);
    WriteFile("ram/pack/sub/broken.sys", image.substr(0, 60));
    WriteFile("ram/pack/sub/old.sys", image.replace(70, 2, "\x4C\x01"));
    Open();
  }
  void WriteInf(const std::string &name, const std::string &body, const std::string &date = "1/2/2020,1.0") {
    WriteFile("ram/pack/" + name,
              "stray text\r\n[Version]\r\nSignature = $Chicago$\r\nDriverVer = " + date + "\r\n" + body + kInstall);
  }
  // What the folder offers: "file models section service or refusal rank".
  std::vector<std::string> Offers(const DeviceIds &device, const Target &target = k10) {
    Index index = MakeIndex(target);
    AddDirectory(&index, "X:\\pack\\", false);
    AddDirectory(&index, "x:\\PACK\\sub", false);  // stands in it already
    if (!goes.empty()) std::filesystem::remove(Host(goes));
    std::vector<std::string> offers;
    refusals.clear();
    for (const Candidate &c : FindCandidates(index, device, {}, &index.unread)) {
      const char *word = RefusalWord(c.refusal);
      if (word != nullptr) refusals.push_back(c.refusalText);
      char rank[16];
      std::snprintf(rank, sizeof rank, "%06X", static_cast<unsigned>(c.rank.value));
      offers.push_back(c.rank.path.substr(8) + ' ' + c.models + ' ' + c.section + ' ' +
                       (word != nullptr ? word : "=" + c.service) + ' ' + rank);
    }
    unread.clear();
    for (const UnreadFile &file : index.unread) unread.push_back(file.path + ": " + file.reason);
    return offers;
  }
  std::vector<std::string> unread, refusals;
  std::string goes;  // a file that is removed between the index and the search
};

TEST_F(CandidatesTest, InOrderWithReasons) {
  WriteInf(
      "sub/a.inf",
      "[Manufacturer]\nA = M, NTamd64\nB = N, NTx86, NTamd64.99\nC = P, NTamd64.6.1\nD = Q, NTamd64\nA = M, NTamd64\n"
      "[M.NTamd64]\nOne = Inst, PCI\\OTHER, PCI\\DEV\n\"Two, too\" = None, %Id%\nThree = Not, PCI\\DEV\n"
      "Four = Old, PCI\\CC\nFive = Gone, PCI\\CC\nSix = Nowhere, PCI\\CC\nSeven = Flat, PCI\\X, \\\n PCI\\CC\n"
      "Eight = Broken,, PCI\\DEV\n"
      "[N.NTx86]\nOne = Inst, PCI\\DEV\n[N]\nOne = Inst, PCI\\CC\n[P]\nOne = Inst, PCI\\DEV\n"
      "[Q.NTamd64]\n[Q]\nOne = Inst, PCI\\DEV\n[M.NTamd64.10.0]\nNever = Inst, PCI\\DEV\n");
  EXPECT_THAT(
      Offers({{"PCI\\DEV&SUBSYS", "PCI\\DEV"}, {"PCI\\CC"}}),
      ElementsAre("sub\\a.inf M.NTamd64 None = FF0001", "sub\\a.inf M.NTamd64 Inst.NTamd64 =arv FF1001",
                  "sub\\a.inf M.NTamd64 Old architecture 102000", "sub\\a.inf M.NTamd64 Not.NTamd64 excluded FF0001",
                  "sub\\a.inf N Inst.NTamd64 decoration FF0001", "sub\\a.inf P Inst.NTamd64 section-missing FF0001",
                  "sub\\a.inf Q Inst.NTamd64 decoration FF0001", "sub\\a.inf M.NTamd64 Broken no-binary FF1001",
                  "sub\\a.inf M.NTamd64 Gone file-missing FF2000",
                  "sub\\a.inf M.NTamd64 Nowhere section-missing FF2000",
                  "sub\\a.inf M.NTamd64 Flat compressed FF3000"));
  const std::string target = "Windows 10.0.19045 for amd64, product type 1, suite 0x0";
  EXPECT_THAT(
      refusals,
      ElementsAre("The file old.sys of the service old is for another processor.",
                  "The section [Not.NTamd64] excludes the device by its id pci\\dev.",
                  "The models [N] are announced for NTx86, NTamd64.99, of which none is for " + target +
                      "; [N.NTx86] lists the device.",
                  "The models section [P.NTamd64.6.1] for " + target + " is not there; [P] lists the device.",
                  "The models section [Q.NTamd64] for " + target + " does not list the device; [Q] lists the device.",
                  "The file broken.sys of the service broken is no driver, or cannot be read.",
                  "The file gone.sys of the service gone is missing.",
                  "No form of the install section [Nowhere] is there for this system.",
                  "The file packed.sy_ of the service flt is compressed, which is not unpacked."));
}

TEST_F(CandidatesTest, OfFilesWithOneRank) {
  const std::string models = "[Manufacturer]\nA = M, NTamd64\n[M.NTamd64]\nOne = None, PCI\\DEV\n";
  WriteInf("B.inf", models);
  WriteInf("a.INF", models);
  WriteInf("new.inf", models, "1/3/2020");
  WriteInf("version.inf", models, "1/2/2020,1.0.0.1");
  WriteFile("ram/pack/bad.inf", "[Version]\n[Manufacturer]\n");
  std::filesystem::create_directory_symlink(Host("ram/pack"), Host("ram/pack/loop"));
  EXPECT_THAT(Offers({{"pci\\dev"}, {}}),
              ElementsAre("new.inf M.NTamd64 None = FF0000", "version.inf M.NTamd64 None = FF0000",
                          "a.INF M.NTamd64 None = FF0000", "B.inf M.NTamd64 None = FF0000"));
  EXPECT_THAT(unread, ElementsAre(testing::StartsWith("X:\\pack\\bad.inf: it has no [Version] section with")));
  goes = "ram/pack/a.INF";
  EXPECT_THAT(Offers({{"pci\\dev"}, {}}), testing::SizeIs(3));
  EXPECT_THAT(unread, testing::Contains("X:\\pack\\a.INF: it cannot be opened (error 2)"));
  // The running system's own directory may lie in one that is looked through.
  Index index = MakeIndex({});
  AddDirectory(&index, "X:", false);
  AddDirectory(&index, "x:\\PACK", true);
  EXPECT_THAT(index.files, testing::Each(testing::Field(&IndexedFile::inbox, true)));
}

}  // namespace
}  // namespace package
