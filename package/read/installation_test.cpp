// What an install section asks for, where its files lie and where they go.
#include "package/read/installation.h"

#include <cstdlib>

#include "package/choose/models.h"
#include "package/read/sources.h"
#include "tests/support/pe_builder.h"
#include "tests/support/targets.h"
#include "tests/support/test_machine.h"

namespace package {
namespace {

namespace fs = std::filesystem;

constexpr char kSigned[] = "[Version]\nSignature = \"$Windows NT$\"\n";
const IncludePlaces kIncludes = {"D:\\Windows\\inf", "D:\\Windows\\System32\\DriverStore\\FileRepository"};
const RestoredPlaces kPlaces = {"D:", "D:\\Windows", "D:\\Windows\\System32", "D:\\Windows\\inf"};

std::string Joined(const std::vector<std::string> &texts) {
  std::string joined;
  for (std::size_t i = 0; i < texts.size(); ++i) joined += (i > 0 ? "|" : "") + texts[i];
  return joined;
}

std::string Shown(const std::vector<RegistryLine> &lines) {
  std::string shown;
  for (const RegistryLine &line : lines) {
    shown += " " + std::string(1, "+-&"[static_cast<int>(line.verb)]) + Joined({line.root, line.key, line.name}) +
             (line.flagsText.empty() ? "" : "," + line.flagsText) + (line.data.empty() ? "" : "=" + Joined(line.data));
  }
  return shown;
}

std::string Shown(const std::optional<DWORD> &number) { return number ? std::to_string(*number) : "-"; }

std::string Shown(const ServiceLines &service) {
  return service.name + "(" + std::to_string(service.flags) + ") " + Shown(service.type) + "," + Shown(service.start) +
         "," + Shown(service.errorControl) + "," + Shown(service.bootFlags) + " " +
         Joined({service.binary, service.group, service.displayName, service.description, service.startName}) + " " +
         Joined(service.dependOnServices) + "+" + Joined(service.dependOnGroups) + Shown(service.registry);
}

class InstallationTest : public MachineTest {
 protected:
  InstallationTest() { Open(); }

  bool Read(const std::string &text, const Target &target, const std::string &name = "Inst") {
    WriteFile("ram/pack/arv.inf", kSigned + text);
    inf = {};
    return ReadInfSource("X:\\pack\\arv.inf", SettingsFor(target), &inf, &reason) &&
           ReadInstallation(inf, name, target, kIncludes, &found, &reason);
  }

  // "[section]", then whatever there is of the rest.
  std::string Found() const {
    std::string shown = "[" + found.section + "]";
    for (const FileLine &file : found.files) {
      shown += " " + file.list + ":" + file.target + "<" + file.source + "," + std::to_string(file.flags) +
               (file.serves ? "*" : "") + (file.inf > 0 ? "@" + found.infs[file.inf].path : "");
    }
    shown += Shown(found.registry);
    if (!found.hardware.empty()) shown += " HW" + Shown(found.hardware);
    for (const ServiceLines &service : found.services) shown += " " + Shown(service);
    return shown + (found.noService ? " none" : "");
  }

  InfSource inf;
  Installation found;
  std::string reason;
};

TEST_F(InstallationTest, ReadsWhatASectionAsksFor) {
  const struct {
    const char *text, *shown;
    std::vector<std::string> notes;
  } kCases[] = {
      // The forms of a section, and the sub-sections of the one that is taken.
      {"[Inst]\n[inst.NTX86]\n[Inst.nt]\n[Inst.Ntamd64]\n[Inst.HW]\nAddReg=R\n[R]\nHKR\n", "[Inst.Ntamd64]", {}},
      {"[Inst]\n[Inst.NTamd64.6.1]\n[Inst.NTx86]\n", "[Inst]", {}},
      {"[Inst.NT]\n[Inst.NT.Services]\nAddService=,%Two%\n[Inst.Services]\nAddService=a,2,S\n[Strings]\nTwo="
       "0x00000002\n",
       "[Inst.NT] none",
       {}},
      {"[Inst]\n[Inst.NTamd64]\n[Inst.Services]\nAddService=a,0x02,S\n[S]\nServiceType=1\n",
       "[Inst.NTamd64] a(2) 1,-,-,- |||| +",
       {"There is no section [Inst.NTamd64.Services]; [Inst.Services] is taken instead."}},
      // Copy lists.
      {"[Inst]\nCopyFiles=L,@b.dll\ncopyfiles=l,M\n[L]\na.sys,a64.sys,,0x2\n%N%\n,x\n[DestinationDirs]\nL=12\n"
       "[Inst.Services]\nAddService=a,2,S\n[S]\nServiceBinary=%12%\\A.SYS\n[Strings]\nN=c.ini\n",
       "[Inst] L:a.sys<a64.sys,2* L:c.ini<c.ini,0 :b.dll<b.dll,0 a(2) -,-,-,- %12%\\A.SYS|||| +",
       {"The section [M] of files is not found."}},
      // Registry lines: each section once, deletions first.
      {"[Inst]\nAddReg=A,A\nBitReg=B\nAddReg=C\nDelReg=D\n[A]\nHKR,k,\"n,\"\"m\"\"\",%F%,1,%%2,\"\"\n[B]\nHKLM,k,n,0,1,"
       "2\n"
       "[C]\nHKR,,,,\\\n  v\n[D]\nHKR,old\n[Inst.HW]\nAddReg=D\n[Strings]\nF=0x10001\n",
       "[Inst] -HKR|old| +HKR|k|n,\"m\",0x10001=1|%2| +HKR||=v &HKLM|k|n,0=1|2 HW +HKR|old|",
       {}},
      // Services.
      {"[Inst]\n[Inst.Services]\nAddService=flt,,F\nAddService=a,2,S,E\nDelService=old\nAddReg=R\n[F]\nServiceType="
       "0x1\n"
       "StartType=%Three%\nErrorControl=x\n[S]\nServiceType = "
       "1\nStartType=0\nErrorControl=3\nServiceBinary=%12%\\a.sys\n"
       "LoadOrderGroup=SCSI miniport\nDisplayName=%D%\nDescription=d\nStartName=n\nBootFlags=0x14\nDependencies=x,+g\n"
       "Dependencies=y\nAddReg=R\nDelReg=Q\nSecurity=s\nOdd=1\nStartType=4\n[R]\nHKR,P,5,0x10001,1\n[Q]\nHKR,,z\n"
       "[Strings]\nThree=3\nD=Disk\n",
       "[Inst] flt(0) 1,3,-,- |||| + a(2) 1,0,3,20 %12%\\a.sys|SCSI miniport|Disk|d|n x|y+g -HKR||z +HKR|P|5,0x10001=1",
       {"ErrorControl of the service flt is no number: \"x\".", "The directive Odd of the service a is passed over.",
        "The directive AddReg of a services section is passed over."}},
      {"[Inst]\nReboot\nCopyINF=x.inf\nPrivate=1\nPrivate=2\n[Inst.Services]\nAddService=,2\nAddService=a,3,S\n",
       "[Inst] a(3) -,-,-,- |||| +",
       {"The directive CopyINF is passed over.", "The directive Private is passed over.",
        "The section [S] of the service a is not found."}},
      // Needs: in the file itself, not nested, and of files that are nowhere.
      {"[Inst]\nNeeds=Base, Base\n[Base]\nAddReg=R\nNeeds=Deep\n[Deep.NT]\nAddReg=Q\n[R]\nHKR,r\n[Q]\nHKR,q\n"
       "[Inst.Services]\nInclude=nowhere.inf,..\\evil.inf\nNeeds=NO_DRV.Services\n",
       "[Inst] +HKR|r| none",
       {"The INF file nowhere.inf that is included is not found.",
        "The INF file ..\\evil.inf that is included is not found.",
        "The section [NO_DRV.Services] that is needed is not found."}},
  };
  for (const auto &c : kCases) {
    ASSERT_TRUE(Read(c.text, k10)) << c.text << reason;
    EXPECT_EQ(Found(), c.shown) << c.text;
    EXPECT_EQ(found.notes, c.notes) << c.text;
  }
  ASSERT_TRUE(Read("[Inst]\n[Inst.NTx86]\n[Inst.NTamd64]\n", kXp));
  EXPECT_EQ(found.section, "Inst.NTx86");
  EXPECT_FALSE(Read("[Inst.NTx86]\n", k10));
  EXPECT_FALSE(Read("[]\n", k10, ""));
}

TEST_F(InstallationTest, ReadsScoreVersionCatalogueAndExcludedIds) {
  ASSERT_TRUE(
      Read("DriverVer=01/02/2003,1.2\nCatalogFile=p.cat\nCatalogFile.NT=nt.cat\nCatalogFile.NTx86=x.cat\n"
           "[Inst]\nFeatureScore=80\nFeatureScore=1\nExcludeID=A\\1,%E%\nExcludeID=B\nNeeds=Other\n"
           "[Other]\nDriverVer=05/06/2007,9\n[Strings]\nE=A\\2\n",
           k10));
  EXPECT_EQ(found.featureScore, 0x80u);
  EXPECT_EQ(Joined(found.excludedIds), "A\\1|A\\2|B");
  EXPECT_EQ(found.catalog + " " + found.date + " " + found.version, "nt.cat 01/02/2003 1.2");
  ASSERT_TRUE(Read("DriverVer=01/02/2003,1.2\n[Inst]\nFeatureScore=0x1FF\nDriverVer=03/04/2005\n", k10));
  EXPECT_EQ(found.featureScore, 0xFFu);
  EXPECT_EQ(found.date + " " + found.version, "03/04/2005 ");
}

TEST_F(InstallationTest, TakesNeededSectionsOfTheRestoredSystem) {
  WriteFile("restored/Windows/inf/Base.inf", std::string(kSigned) +
                                                 "[B.NTamd64]\nAddReg=R\nInclude=deep.inf\n[B.NTamd64.Services]\n"
                                                 "AddService=%Own%,2,S\n[S]\nServiceBinary=%12%\\b.sys\n"
                                                 "[R]\nHKR,%Own%\n[Strings]\nOwn=base\n");
  const std::string store = "restored/Windows/System32/DriverStore/FileRepository/";
  WriteFile(store + "stored.inf_amd64_22/stored.inf", std::string(kSigned) + "[T]\nCopyFiles=L\n[L]\nt.sys\n");
  WriteFile(store + "stored.inf_amd64_22/T.sys", "12345");
  WriteFile(store + "stored.inf_amd64_10.txt", "");
  WriteFile(store + "stored.inf_x86_11/stored.inf", std::string(kSigned) + "[T]\n");
  ASSERT_TRUE(
      Read("[Inst]\nInclude=BASE.inf,stored.inf\nNeeds=B,T\nAddReg=R\n[R]\nHKR,%Own%\n[Inst.Services]\n"
           "Include=base.inf\nNeeds=B.Services\n[Strings]\nOwn=mine\n",
           k10));
  const std::string stored = "D:\\Windows\\System32\\DriverStore\\FileRepository\\stored.inf_amd64_22";
  EXPECT_EQ(Found(), "[Inst] L:t.sys<t.sys,0@" + stored +
                         "\\stored.inf +HKR|base| +HKR|mine| base(2) -,-,-,- %12%\\b.sys|||| +");
  EXPECT_EQ(Joined(found.includes), "BASE.inf|stored.inf");
  EXPECT_EQ(FunctionDriver(found)->inf, 1u);
  EXPECT_EQ(FindSource(found.infs[2], "t.sys", k10).path, stored + "\\t.sys");
  // Files of an inbox INF file: in its system, else in that system's store.
  EXPECT_EQ(FindSource(found.infs[1], "b.sys", k10).state, SourceState::kMissing);
  WriteFile(store + "base.inf_amd64_1/b.sys", "12");
  EXPECT_EQ(FindSource(found.infs[1], "b.sys", k10).path,
            "D:\\Windows\\System32\\DriverStore\\FileRepository\\base.inf_amd64_1\\b.sys");
  WriteFile("restored/Windows/System32/drivers/B.sys", "123");
  EXPECT_EQ(FindSource(found.infs[1], "b.sys", k10).size, 3u);
}

TEST_F(InstallationTest, RefusesWhatAsksForMoreThanAnyDriver) {
  std::string text = "[Inst]\n[Inst.Services]\n";
  for (int i = 0; i < 3000; ++i) text += "AddService=a,,S\n";
  text += "[S]\nAddReg=R\n[R]\n";
  for (int i = 0; i < 3000; ++i) text += "%A%,,,,%A%\n";
  EXPECT_FALSE(Read(text + "[Strings]\nA=" + std::string(4000, 'x') + "\n", k10));
  EXPECT_LT(found.services.size(), 3u);
}

TEST_F(InstallationTest, FindsSourcesWhereThePackageDeclaresThem) {
  for (const char *file : {"x64/win10/kstore.sys", "Sub/one.sys", "beside.sys", "zipped.sy_", "disk2/loose.sys",
                           "c.cab", "Sub/plain.sys", "short.c_"}) {
    WriteFile("ram/pack/" + std::string(file), "1234");
  }
  WriteFile("ram/outside.sys", "1");
  fs::create_directories(Host("ram/pack/folder.sys"));
  ASSERT_TRUE(Read(
      "[Inst]\n[SourceDisksNames]\n1=d,t,,\\sub\n2=d,,,disk2\n3=d,c.cab,,.\n4=d,c.cab,,,0x10\n"
      "5=d,,,..\n6=d,,,\"X:\\\"\n[SourceDisksNames.amd64]\n1=d,tag,,\".\\X64\\\"\n[SourceDisksFiles]\nkstore.sys=2\n"
      "one.sys=9,sub\nbeside.sys=2\nzipped.sys=2\nloose.sys=2\npacked.sys=3\nflagged.sys=4\noutside.sys=5\n"
      "absent.sys=1,..\\..\nkstore2.sys=6,pack\n[SourceDisksFiles.amd64]\nKSTORE.sys=1,win10,77\n"
      "[SourceDisksFiles.ntamd64]\nbeside.sys=1\n",
      k10));
  const struct {
    const char *name;
    SourceState state;
    const char *path;
    bool elsewhere;
  } kCases[] = {
      {"kstore.sys", SourceState::kFound, "X64\\win10\\kstore.sys", false},
      {"one.sys", SourceState::kFound, "sub\\one.sys", false},
      {"BESIDE.sys", SourceState::kFound, "BESIDE.sys", true},
      {"zipped.sys", SourceState::kCompressed, "zipped.sy_", false},
      {"short.c", SourceState::kCompressed, "short.c_", false},
      {"loose.sys", SourceState::kFound, "disk2\\loose.sys", false},
      {"packed.sys", SourceState::kInCabinet, "c.cab", false},
      {"flagged.sys", SourceState::kInCabinet, "c.cab", false},
      {"outside.sys", SourceState::kMissing, "outside.sys", false},
      {"absent.sys", SourceState::kMissing, "absent.sys", false},
      {"kstore2.sys", SourceState::kMissing, "kstore2.sys", false},
      {"..\\outside.sys", SourceState::kMissing, "..\\outside.sys", false},
      {"sub\\plain.sys", SourceState::kMissing, "sub\\plain.sys", false},
      {"folder.sys", SourceState::kMissing, "folder.sys", false},
      {"", SourceState::kMissing, "", false},
  };
  for (const auto &c : kCases) {
    const SourceFile source = FindSource(inf, c.name, k10);
    EXPECT_EQ(source.state, c.state) << c.name;
    EXPECT_EQ(source.path, *c.path == '\0' ? "X:\\pack" : "X:\\pack\\" + std::string(c.path)) << c.name;
    EXPECT_EQ(source.elsewhere, c.elsewhere) << c.name;
  }
}

TEST_F(InstallationTest, PutsFilesWhereTheirListsGo) {
  ASSERT_TRUE(
      Read("[Inst]\n[DestinationDirs]\nDefaultDestDir=12\nA=10,system32\\kst\nB=13\nC=16426,\\Kst\nD=24\nE=53\nF=-1,"
           "\"C:\\\"\n"
           "G=11,..\\..\nH=%12%\nI=10,con\nJ=16409\nK=17\nL=16384\nM\n",
           k10));
  const struct {
    const char *list, *target;
    const char *path = nullptr;  // none: refused
  } kCases[] = {{"", "a.sys", "D:\\Windows\\System32\\drivers\\a.sys"},
                {"other", "a.sys", "D:\\Windows\\System32\\drivers\\a.sys"},
                {"a", "x", "D:\\Windows\\system32\\kst\\x"},
                {"B", "b.sys", "D:\\Windows\\System32\\drivers\\b.sys"},
                {"C", "c.exe", "D:\\Program Files (x86)\\Kst\\c.exe"},
                {"D", "d.txt", "D:\\d.txt"},
                {"K", "k.inf", "D:\\Windows\\inf\\k.inf"},
                {"E", "e"},
                {"F", "f"},
                {"G", "g"},
                {"H", "h"},
                {"I", "i"},
                {"J", "j"},
                {"L", "l"},
                {"M", "m"},
                {"D", "..\\x.sys"},
                {"D", "NUL.sys"},
                {"D", "a:b"}};
  std::string path;
  for (const auto &c : kCases) {
    const FileLine file = {c.list, c.target, c.target};
    ASSERT_EQ(ResolveTarget(inf, file, kPlaces, &path, &reason), c.path != nullptr) << c.list << c.target;
    EXPECT_TRUE(c.path == nullptr || path == c.path) << path;
  }
  EXPECT_FALSE(ResolveTarget(inf, {"", "a.sys", ""}, {}, &path, &reason));
  ASSERT_TRUE(Read("[Inst]\n", k10));
  EXPECT_TRUE(ResolveTarget(inf, {"", "a.sys", "", 0, true}, kPlaces, &path, &reason));
  EXPECT_EQ(path, "D:\\Windows\\System32\\drivers\\a.sys");
  EXPECT_TRUE(ResolveTarget(inf, {"", "a.sys", ""}, kPlaces, &path, &reason));
  EXPECT_EQ(path, "D:\\Windows\\System32\\a.sys");
}

TEST_F(InstallationTest, TakesNamesThatAreOneFile) {
  for (const char *name : {"a", "a.sys", ".a", "con1", "com10", "nul_", "a b.c", "%12%"})
    EXPECT_TRUE(PlainName(name)) << name;
  for (const char *name : {"", ".", "..", "a.", "a ", "a\\b", "a/b", "a:b", "*", "a?", "a\n", "Con", "nul.txt",
                           "LPT1.sys", "com\xB9", "aux .x", "a|b", "<", "\""}) {
    EXPECT_FALSE(PlainName(name)) << name;
  }
  EXPECT_FALSE(PlainName(std::string(256, 'a')));
  const struct {
    const char *binary, *name;
  } kBinaries[] = {{"%12%\\a.sys", "a.sys"},
                   {"%13%\\x64\\a.sys", "a.sys"},
                   {"%10%\\System32\\drivers\\a.sys", "a.sys"},
                   {"\\SystemRoot\\System32\\drivers\\a.sys", "a.sys"},
                   {"system32\\DRIVERS\\a.sys", "a.sys"},
                   {"a.sys", nullptr},
                   {"%12%\\", nullptr},
                   {"%12%\\..\\a.sys", nullptr},
                   {"%12%\\a.sys /k", nullptr},
                   {"C:\\Windows\\a.sys", nullptr},
                   {"%24%\\a.sys", nullptr},
                   {"%12%\\con", nullptr},
                   {"", nullptr}};
  for (const auto &c : kBinaries) {
    std::string name;
    ASSERT_EQ(BinaryName(c.binary, &name), c.name != nullptr) << c.binary;
    EXPECT_TRUE(c.name == nullptr || name == c.name) << name;
  }
}

TEST_F(InstallationTest, ReadsTheHeadersOfAnImage) {
  const std::string plain = BuildImage("");
  const std::size_t begin = static_cast<unsigned char>(plain[60]), optional = begin + 24;
  const auto put = [](std::string *image, std::size_t at, unsigned number, int bytes = 4) {
    for (int i = 0; i < bytes; ++i) (*image)[at + static_cast<std::size_t>(i)] = static_cast<char>(number >> 8 * i);
  };
  std::string image = plain.substr(0, optional + 2);
  image.resize(optional + 246);
  put(&image, begin + 20, 240, 2);
  put(&image, optional + 108, 16);
  const auto end = static_cast<unsigned>(image.size());
  put(&image, begin + 4, 0x8664, 2);
  put(&image, optional + 48, 6, 2);
  put(&image, optional + 50, 1, 2);
  put(&image, optional + 112 + 32, end);
  put(&image, optional + 112 + 36, 16);
  image += std::string("\x10\0\0\0\0\2\2\0........", 16);
  ImageFacts facts;
  const auto read = [&](const std::string &bytes) {
    WriteFile("ram/image.sys", bytes);
    return ReadImageFacts("X:\\image.sys", &facts);
  };
  ASSERT_TRUE(read(image));
  EXPECT_EQ(facts.machine, ImageMachine(k10));
  EXPECT_EQ(facts.subsystemMajor * 10 + facts.subsystemMinor, 61);
  EXPECT_TRUE(facts.signedInside);
  const struct {
    std::size_t at;
    unsigned number;
  } kUnsigned[] = {{optional + 144, 0},
                   {optional + 144, end + 4},
                   {optional + 144, 0xFFFFFFF8},
                   {optional + 148, 0},
                   {optional + 148, 17},
                   {optional + 148, 0xFFFFFFFF},
                   {end, 7},
                   {end, 17},
                   {end + 4, 0x00020100},
                   {end + 4, 0x00010200},
                   {optional + 108, 4}};
  for (const auto &c : kUnsigned) {
    std::string bent = image;
    put(&bent, c.at, c.number);
    ASSERT_TRUE(read(bent)) << c.at;
    EXPECT_FALSE(facts.signedInside) << c.at << " " << c.number;
  }
  for (const std::size_t size : {std::size_t{0}, std::size_t{63}, begin + 23, optional + 51}) {
    EXPECT_FALSE(read(image.substr(0, size))) << size;
  }
  for (const std::size_t at : {std::size_t{0}, std::size_t{63}, begin, optional}) {
    std::string bent = image;
    bent[at] = '\x7F';
    EXPECT_FALSE(read(bent)) << at;
  }
  EXPECT_FALSE(ReadImageFacts("X:\\absent.sys", &facts));
}

// Every INF file that is really in use is read without trouble, most of them to an installation.
TEST_F(InstallationTest, ReadsRealFiles) {
  const char *corpus = std::getenv("VXR_CORPUS_DIR");
  if (corpus == nullptr) GTEST_SKIP() << "VXR_CORPUS_DIR is not set";
  std::size_t files = 0, installations = 0, drivers = 0;
  for (const auto &entry : fs::recursive_directory_iterator(fs::path(corpus) / "inf")) {
    if (entry.path().extension() != ".inf" && entry.path().extension() != ".inx") continue;
    fs::copy_file(entry.path(), Host("ram/real.inf"), fs::copy_options::overwrite_existing);
    if (!ReadInfSource("X:\\real.inf", SettingsFor(k10), &inf, &reason)) continue;
    ++files;
    for (std::uint32_t s = 0; s < inf.file->sections.size(); ++s) {
      const std::string name(machine::SectionName(*inf.file, machine::ParsedSection(inf.file.get(), s)));
      if (!ReadInstallation(inf, name, k10, kIncludes, &found, &reason)) continue;
      ++installations;
      std::string binary;
      const ServiceLines *driver = FunctionDriver(found);
      if (driver != nullptr && BinaryName(driver->binary, &binary)) ++drivers;
    }
  }
  EXPECT_GT(files, 100u);
  EXPECT_GT(installations, files);
  EXPECT_GT(drivers, 80u);
}

}  // namespace
}  // namespace package
