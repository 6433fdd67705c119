// LineEditor on POSIX: redirected standard input read line by line through
// pipes, without a prompt, and the console errors it reports.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>

#include "lineEdit/CancelledException.h"
#include "lineEdit/LineEditor.h"
#include "tests/lineEdit/RedirectedDescriptor_posix.h"

namespace korvane::lineEdit {
namespace {

using test::RedirectedDescriptor;

// Standard input from a pipe holding `input`, standard output into a pipe
// whose contents are returned by `output()`.
class RedirectedStandardStreams {
 public:
  explicit RedirectedStandardStreams(const std::string& input) {
    int in[2];
    int out[2];
    EXPECT_EQ(pipe(in), 0);
    EXPECT_EQ(pipe(out), 0);
    EXPECT_EQ(write(in[1], input.data(), input.size()), static_cast<ssize_t>(input.size()));
    close(in[1]);
    outRead_ = out[0];
    fcntl(outRead_, F_SETFL, O_NONBLOCK);
    stdin_ = std::make_unique<RedirectedDescriptor>(0, in[0]);
    stdout_ = std::make_unique<RedirectedDescriptor>(1, out[1]);
  }
  ~RedirectedStandardStreams() { close(outRead_); }

  std::string output() {
    std::string text;
    char chunk[256];
    ssize_t count = 0;
    while ((count = read(outRead_, chunk, sizeof chunk)) > 0) {
      text.append(chunk, static_cast<std::size_t>(count));
    }
    return text;
  }

 private:
  int outRead_ = -1;
  std::unique_ptr<RedirectedDescriptor> stdin_;
  std::unique_ptr<RedirectedDescriptor> stdout_;
};

LineEditorOptions maskedOptions() {
  return LineEditorOptions{.multiLine = false, .reserved = 0, .masked = true, .maskCharacter = '*'};
}

// readLine fails with a system error of `error` whose message starts with
// `start`, not with a cancellation.
void expectConsoleError(LineEditor& editor, int error, std::string_view start) {
  try {
    (void)editor.readLine();
    ADD_FAILURE() << "no error";
  } catch (const CancelledException&) {
    ADD_FAILURE() << "taken for a cancellation";
  } catch (const std::system_error& thrown) {
    EXPECT_EQ(thrown.code(), std::error_code(error, std::generic_category()));
    EXPECT_TRUE(std::string_view(thrown.what()).starts_with(start)) << thrown.what();
  }
}

TEST(LineEditorTest, RedirectedInputReadsLinesWithoutPrompt) {
  RedirectedStandardStreams streams("first\nsecond line\n\nlast");
  LineEditor editor("Password: ", maskedOptions());
  EXPECT_EQ(editor.readLine().view(), "first");
  EXPECT_EQ(editor.readLine().view(), "second line");
  EXPECT_EQ(editor.readLine().view(), "");
  EXPECT_EQ(editor.readLine().view(), "last");  // the last line needs no "\n"
  EXPECT_EQ(streams.output(), "");
}

// At the end of the input there is no line to give: an empty one would make
// a caller that insists on an entry ask again for ever.
TEST(LineEditorTest, EndOfRedirectedInputCancels) {
  RedirectedStandardStreams streams("only\n");
  LineEditor editor("Password: ", maskedOptions());
  EXPECT_EQ(editor.readLine().view(), "only");
  EXPECT_THROW(editor.readLine(), CancelledException);
  EXPECT_THROW(editor.readLine(), CancelledException);
}

TEST(LineEditorTest, FailingRedirectedInputIsAnError) {
  RedirectedStandardStreams streams("");
  // Standard input open for writing only: every read fails with EBADF.
  const RedirectedDescriptor input(0, open("/dev/null", O_WRONLY));
  LineEditor editor("Password: ", maskedOptions());
  expectConsoleError(editor, EBADF, "cannot read from the console: ");
}

// A console that takes keys but no text: the reason for the failed prompt
// reaches the error, past the restoring of the terminal.
TEST(LineEditorTest, FailingConsoleOutputIsAnError) {
  int master = -1;
  int slave = -1;
  ASSERT_EQ(openpty(&master, &slave, nullptr, nullptr, nullptr), 0);
  // The terminal for reading only, and standard output no terminal: the
  // prompt goes to standard input, where every write fails with EBADF.
  const int readOnly = open(ttyname(slave), O_RDONLY | O_NOCTTY);
  ASSERT_GE(readOnly, 0);
  RedirectedStandardStreams streams("");
  {
    const RedirectedDescriptor input(0, readOnly);
    LineEditor editor("Password: ", maskedOptions());
    expectConsoleError(editor, EBADF, "cannot write to the console: ");
  }
  close(master);
  close(slave);
}

TEST(LineEditorTest, TwoEditorsTakeTurns) {
  RedirectedStandardStreams streams("one\ntwo\nthree\n");
  LineEditor first("Password: ", maskedOptions());
  LineEditor second("Repeat password: ", maskedOptions());
  EXPECT_EQ(first.readLine().view(), "one");
  EXPECT_EQ(second.readLine().view(), "two");
  EXPECT_EQ(first.readLine().view(), "three");
}

TEST(LineEditorTest, LongRedirectedLineIsReadInPieces) {
  RedirectedStandardStreams streams(std::string(5000, 'a') + "\nnext\n");
  LineEditor editor("Password: ", maskedOptions());
  EXPECT_EQ(editor.readLine().view(), std::string(4096, 'a'));
  EXPECT_EQ(editor.readLine().view(), std::string(904, 'a'));
  EXPECT_EQ(editor.readLine().view(), "next");
}

}  // namespace
}  // namespace korvane::lineEdit
