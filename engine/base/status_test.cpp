#include "engine/base/status.h"

#include "platform/machine/base/fault.h"
#include "tests/support/own_code_page.h"
#include "tests/support/test_machine.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

class StatusTest : public MachineTest {
 protected:
  void SetUp() override {
    Open();
    VXREng_SetStatusWnd(nullptr, 0);
    dwError = 0;
    log.clear();
  }
  ~StatusTest() override { VXREng_SetStatusWnd(nullptr, 0); }
};

TEST_F(StatusTest, RecordsTheLastFailureWhetherOrNotItIsShown) {
  EXPECT_FALSE(VXREng_StatusMsg(13, "Failed to copy %s to %s\n", "a", "b"));
  EXPECT_EQ(dwError, 13u);
  EXPECT_EQ(log, "") << "without a window nothing is logged";
  EXPECT_FALSE(VXREng_StatusMsg(VXR_STATUS_PROGRESS, "Looking...\n"));
  EXPECT_EQ(dwError, 13u);

  VXREng_SetStatusWnd(window, 2);
#ifdef VXR_FAULT_POINTS
  machine::SetFaultPlan({"HeapAlloc", 1});
  EXPECT_FALSE(VXREng_StatusMsg(3, "no memory\n"));
  EXPECT_EQ(dwError, 3u);
  machine::SetFaultPlan({});
#endif
  EXPECT_FALSE(VXREng_StatusMsg(4, nullptr));
  EXPECT_EQ(dwError, 4u);
  EXPECT_THAT(statusLines, ElementsAre());
  EXPECT_THAT(log, Not(HasSubstr("STMSG")));
}

TEST_F(StatusTest, ShowsLinesAsTheFlagsSay) {
  const std::string percent = "100%s";  // a text that is put in stays a text
  VXREng_SetStatusWnd(window, 2);
  EXPECT_TRUE(VXREng_StatusMsg(VXR_STATUS_PROGRESS, "first %s\n", percent.c_str()));
  VXREng_SetStatusWnd(window, 3);
  EXPECT_TRUE(VXREng_StatusMsg(VXR_STATUS_PROGRESS, "not shown\n"));
  EXPECT_THAT(statusLines, ElementsAre("first 100%s\n"));
  VXREng_SetStatusWnd(window, 1);
  EXPECT_TRUE(VXREng_StatusMsg(VXR_STATUS_PROGRESS, "second\n"));
  EXPECT_THAT(statusLines.back(), testing::EndsWith("second\n"));
  EXPECT_THAT(statusLines.back(), HasSubstr("first")) << "appended to the text that was there";
  EXPECT_THAT(log, HasSubstr("STMSG:first 100%s\n"));
  EXPECT_THAT(log, HasSubstr("STMSG:not shown\n"));
  EXPECT_THAT(log, HasSubstr(":WndFlags = 0x00000003\n"));
}

TEST_F(StatusTest, CutsALongLine) {
  VXREng_SetStatusWnd(window, 2);
  EXPECT_TRUE(VXREng_StatusMsg(VXR_STATUS_PROGRESS, "%s", std::string(1500, 'x').c_str()));
  EXPECT_THAT(statusLines, ElementsAre(std::string(1023, 'x')));
  if (!UseCodePage(932)) return;
  VXREng_StatusMsg(VXR_STATUS_PROGRESS, "%s", (std::string(1022, 'x') + "\x95\x5C").c_str());
  EXPECT_EQ(statusLines.back(), std::string(1022, 'x')) << "cut between characters";
  machine::SetCodePage(machine::kDefaultCodePage);
}

}  // namespace
