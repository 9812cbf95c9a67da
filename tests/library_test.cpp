// The shared library as a host that loads it sees it.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <sstream>

#include "vxrcore/machine.h"

namespace {

bool IsMapped() {
  std::stringstream maps;
  maps << std::ifstream("/proc/self/maps").rdbuf();
  return maps.str().find("libvxrcore") != std::string::npos;
}

TEST(LibraryTest, ExportsWhatItsHeadersDeclare) {
  EXPECT_EQ(
      std::system(
          "cd " VXR_SOURCE_DIR "/include/vxrcore && bash -c 'diff "
          "<(sed -nE \"s/^VXR_API .*(VXR[a-zA-Z]+_\\w+)\\(.*/\\1@@VXRCORE_0/p\" vxrcore.h machine.h drivers.h | sort) "
          "<(nm -D --defined-only --with-symbol-versions " VXR_LIBRARY " | sed \"/ A /d; s/.* //\" | sort)'"),
      0)
      << "declared (<) and exported (>) functions differ";
}

TEST(LibraryTest, CanBeUnloaded) {
  void *library = dlopen(VXR_LIBRARY, RTLD_NOW);
  ASSERT_NE(library, nullptr) << dlerror();
  EXPECT_TRUE(IsMapped());
  char message[300] = "";
  const auto open = reinterpret_cast<decltype(&VXRMachine_Open)>(dlsym(library, "VXRMachine_Open"));
  EXPECT_FALSE(open(VXR_SOURCE_DIR "/README.md", message, sizeof message));
  EXPECT_NE(std::strstr(message, "not TOML"), nullptr) << "what another library threw: " << message;
  EXPECT_TRUE(open(VXR_SOURCE_DIR "/examples/scsi-6.1-x64/machine.toml", message, sizeof message)) << message;
  EXPECT_TRUE(reinterpret_cast<decltype(&VXRMachine_Close)>(dlsym(library, "VXRMachine_Close"))());
  EXPECT_EQ(dlclose(library), 0);
  EXPECT_FALSE(IsMapped());
}

}  // namespace
