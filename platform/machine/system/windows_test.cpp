#include <fcntl.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>

#include "platform/platform.h"
#include "tests/support/test_machine.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

struct WindowsTest : MachineTest {
  HWND Window() const { return static_cast<HWND>(window); }
};

TEST_F(WindowsTest, InsertsAtTheSelection) {
  Open();
  const auto insert = [this](WPARAM begin, LPARAM end, const char *text) {
    platform::SendMessageA(Window(), EM_SETSEL, begin, end);
    platform::SendMessageA(Window(), EM_REPLACESEL, 0, reinterpret_cast<LPARAM>(text));
    return statusLines.back();
  };
  platform::SetWindowTextA(Window(), "one\n");
  EXPECT_EQ(insert(4, 4, "two\n"), "one\ntwo\n");
  EXPECT_EQ(platform::GetWindowTextLengthA(Window()), 8);
  EXPECT_EQ(insert(0, 3, "1"), "1\ntwo\n");
  EXPECT_EQ(insert(3, 2, "T"), "1\nTwo\n");
  EXPECT_EQ(insert(1000, 2000, "end"), "1\nTwo\nend");
  EXPECT_EQ(insert(0, -1, "all"), "all");
  platform::SendMessageA(Window(), EM_SETSEL, 1, 2);
  EXPECT_EQ(insert(static_cast<WPARAM>(-1), 0, "-"), "al-l");
}

TEST_F(WindowsTest, AWindowMayEndInItsCallback) {
  Open();
  static void *handle;
  handle = VXRMachine_CreateWindow(
      [](void *, const char *text) {
        VXRMachine_DestroyWindow(handle);
        EXPECT_STREQ(text, "last words");
      },
      nullptr);
  EXPECT_TRUE(platform::SetWindowTextA(static_cast<HWND>(handle), "last words"));
  EXPECT_FALSE(platform::SetWindowTextA(static_cast<HWND>(handle), "again"));
}

// --- Prompts --------------------------------------------------------------------------------------------------------

struct PromptsTest : MachineTest {
  // Asks for a directory with *.inf files, X:\empty having none.
  UINT Ask(const char *directory = "X:\\empty", DWORD size = 260) {
    answer.assign(size + 1, '#');
    return platform::SetupPromptForDiskA(nullptr, "Driver Search", nullptr, directory, "*.inf", nullptr,
                                         IDF_OEMDISK | IDF_CHECKFIRST | IDF_NOCOMPRESSED, answer.data(), size,
                                         &required);
  }
  int Confirm() { return platform::MessageBoxA(nullptr, "Cancel the search?", "Cancel", MB_YESNO); }
  void OpenWith(const std::string &prompts) {
    WriteFile("ram/more/a.inf", "");
    WriteFile("ram/empty/readme", "");
    Open(prompts);
  }

  std::vector<char> answer;
  DWORD required = 0;
};

TEST_F(PromptsTest, TakesTheAnswersInTurn) {
  OpenWith(R"([prompts]
driver_directory = ['cancel', 'skip', 'X:\empty', 'Y:\none', 'X:\more', 'X:\more\']
cancel_search = ['no', 'yes', 'no']
)");
  EXPECT_EQ(Ask(), DPROMPT_CANCEL);
  EXPECT_EQ(Ask(), DPROMPT_SKIPFILE);
  EXPECT_EQ(Ask(), DPROMPT_SUCCESS);  // neither a directory without the file nor one that is not there counts
  EXPECT_STREQ(answer.data(), "X:\\more");
  EXPECT_EQ(required, 8u);
  EXPECT_EQ(Ask("X:\\empty", 8), DPROMPT_BUFFERTOOSMALL);  // X:\more\ needs nine
  EXPECT_EQ(required, 9u);
  EXPECT_EQ(answer[8], '#');
  EXPECT_EQ(Ask(), DPROMPT_CANCEL);

  EXPECT_EQ(Confirm(), IDNO);
  EXPECT_EQ(Confirm(), IDYES);
  EXPECT_EQ(Confirm(), IDNO);
  EXPECT_EQ(Confirm(), IDYES);
  Close();
  Open("[prompts]\ncancel_search = ['no']\n");
  EXPECT_EQ(Confirm(), IDNO) << "the answers of a new machine begin anew";
}

TEST_F(PromptsTest, ARehearsalRepeatsTheAnswers) {
  OpenWith("[prompts]\ndriver_directory = ['X:\\\\empty', 'X:\\\\more', 'skip', 'cancel']\ncancel_search = ['no']\n");
  EXPECT_EQ(Ask(), DPROMPT_SUCCESS);
  EXPECT_EQ(Confirm(), IDNO);
  for (int i = 0; i < 2; ++i) {
    ASSERT_TRUE(VXRMachine_Rehearse(1));
    EXPECT_EQ(Ask(), DPROMPT_SUCCESS);
    EXPECT_EQ(Confirm(), IDNO);
    EXPECT_EQ(Ask(), DPROMPT_SKIPFILE) << "one more question than before";
    ASSERT_TRUE(VXRMachine_Rehearse(0));
  }
  EXPECT_EQ(Ask(), DPROMPT_SKIPFILE) << "a rehearsal uses no answer up";
}

// A terminal in the place of standard input and standard error.
struct Terminal {
  int master = -1, input = dup(STDIN_FILENO), error = dup(STDERR_FILENO);

  Terminal() {
    int slave = -1;
    if (openpty(&master, &slave, nullptr, nullptr, nullptr) != 0) return;
    termios mode{};
    tcgetattr(slave, &mode);
    mode.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    tcsetattr(slave, TCSANOW, &mode);
    dup2(slave, STDIN_FILENO);
    dup2(slave, STDERR_FILENO);
    close(slave);
  }
  ~Terminal() {
    dup2(input, STDIN_FILENO);
    dup2(error, STDERR_FILENO);
    for (int descriptor : {master, input, error}) close(descriptor);
  }
  void Type(const std::string &text) const { ASSERT_EQ(write(master, text.data(), text.size()), std::ssize(text)); }
  std::string Shown() const {
    fcntl(master, F_SETFL, O_NONBLOCK);
    char text[4096];
    const ssize_t count = read(master, text, sizeof text);
    return std::string(text, count < 0 ? 0 : static_cast<std::size_t>(count));
  }
};

TEST_F(PromptsTest, ATerminalComesFirst) {
  OpenWith("[prompts]\ndriver_directory = ['skip']\ncancel_search = ['yes']\n");
  std::string shown;
  UINT answered = 0, repeated = 0, another = 0;
  int confirmed = 0, confirmedAtEnd = 0;
  {
    Terminal terminal;
    if (terminal.master < 0) GTEST_SKIP() << "no pseudo-terminal can be had here";
    terminal.Type("X:\\empty\n  X:\\more \n");
    answered = Ask();
    terminal.Type("what?\n\nNo\n");
    confirmed = Confirm();
    terminal.Type("\x04");  // the end of the input
    confirmedAtEnd = Confirm();
    VXRMachine_Rehearse(1);
    repeated = Ask();
    another = Ask();
    VXRMachine_Rehearse(0);
    shown = terminal.Shown();
  }
  EXPECT_EQ(answered, DPROMPT_SUCCESS);
  EXPECT_EQ(repeated, DPROMPT_SUCCESS);
  EXPECT_EQ(another, DPROMPT_CANCEL) << "a rehearsal asks nobody";
  EXPECT_EQ(confirmed, IDNO);
  EXPECT_EQ(confirmedAtEnd, IDYES);
  EXPECT_THAT(shown, HasSubstr("Driver Search: X:\\empty has no *.inf"));
  EXPECT_THAT(shown, HasSubstr("Cancel the search? [y/n]: "));
  EXPECT_EQ(Ask(), DPROMPT_SKIPFILE) << "the machine file's answer is still there";
}

}  // namespace
