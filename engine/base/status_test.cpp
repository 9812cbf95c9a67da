#include "engine/base/status.h"

#include "platform/machine/base/fault.h"
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
  EXPECT_FALSE(VXREng_StatusMsg(kProgress, "Looking...\n"));
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
  EXPECT_TRUE(VXREng_StatusMsg(kProgress, "first %s\n", percent.c_str()));
  VXREng_SetStatusWnd(window, 3);
  EXPECT_TRUE(VXREng_StatusMsg(kProgress, "not shown\n"));
  EXPECT_THAT(statusLines, ElementsAre("first 100%s\n"));
  VXREng_SetStatusWnd(window, 1);
  EXPECT_TRUE(VXREng_StatusMsg(kProgress, "second\n"));
  EXPECT_THAT(statusLines.back(), testing::EndsWith("second\n"));
  EXPECT_THAT(statusLines.back(), HasSubstr("first")) << "appended to the text that was there";
  EXPECT_THAT(log, HasSubstr("STMSG:first 100%s\n"));
  EXPECT_THAT(log, HasSubstr("STMSG:not shown\n"));
  EXPECT_THAT(log, HasSubstr(":WndFlags = 0x00000003\n"));
}

}  // namespace
