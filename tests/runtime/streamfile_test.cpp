#include "runtime/streamfile.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <functional>
#include <istream>
#include <ostream>

#include "emulators/poll_runner.h"
#include "emulators/temp_directory.h"
#include "runtime/errnoexcept.h"
#include "runtime/filereader.h"
#include "tests/support/child_process.h"
#include "tests/support/error_text.h"

namespace {

struct StreamFileTest : testing::Test {
  StreamFileTest() { directory.Write("file", "0123456789"); }
  const TempDirectory directory;
  const std::string path = directory / "file";
  std::string text;
};

// The streams themselves are the fuzzer's.
TEST_F(StreamFileTest, CopiesCloseOnTheirOwn) {
  StreamFile file(path, O_RDWR);
  EXPECT_TRUE(file.Write("012") == 3 && file.Write("3456", 1) == 1);
  file.IStream().seekg(0);
  file = *&file;
  StreamFile copy(file), assigned(path, O_RDONLY);
  assigned = file;
  file.Close();
  EXPECT_EQ(10u, copy.Read(text));
  EXPECT_TRUE(assigned.Read(text) == 0 && text.empty() && assigned.IsOpen()) << "one position";
  EXPECT_FALSE(StreamFile(file).IsOpen());
}

TEST_F(StreamFileTest, TellsWhatFailed) {
  StreamFile closed, reading(path, O_RDONLY), writing(path, O_WRONLY);
  const std::string no_file = ": No such file or directory", bad = ": Bad file descriptor";
  const std::pair<std::string, std::function<void()>> rows[] = {
      {"text" + no_file, [] { throw ErrnoError("text", ENOENT); }},
      {"StreamFileBase: invalid file descriptor", [] { StreamFileBase base(-1); }},
      {"StreamFileBase: file is closed", [&] { closed.Read(text); }},
      {"StreamFileBase: unable to create ostream", [&] { reading.OStream(); }},
      {"StreamFileBase: unable to create istream", [&] { writing.IStream(); }},
      {"StreamFileBase: unable to get file flags" + bad, [&] { closed.SetNonBlock(); }},
      {"StreamFileBase: error in Read" + bad, [&] { writing.Read(text); }},
      {"StreamFileBase: error in Write" + bad, [&] { reading.Write("text"); }},
      {"StreamFile: Unable to open /no/such" + no_file, [&] { closed.Open("/no/such", O_RDONLY); }},
      // What can't be opened for writing isn't read; root may write any file, but no directory.
      {"StreamFile: Unable to open /: Is a directory", [&] { FileReader().Open("/"); }}};
  for (const auto& [expected, call] : rows) EXPECT_EQ(expected, ErrorText(call));
  EXPECT_EQ("StreamFileBase: invalid file descriptor", ErrorText([&] { reading._set_fileno(-1); }));
  EXPECT_FALSE(reading.IsOpen()) << "closed first";
}

TEST_F(StreamFileTest, ReportsAFailingCloseOnceNothingElseIsUnderWay) {
  for (const char* thrown : {"", "first"})
    EXPECT_EQ(*thrown != '\0' ? thrown : "StreamFileBase: unable to close file: Bad file descriptor", ErrorText([&] {
      const StreamFile file(path, O_RDONLY);
      ::close(file.Fileno());
      if (*thrown != '\0') throw std::runtime_error(thrown);
    }));
}

TEST_F(StreamFileTest, AStreamOnAFullPipeWritesEachByteOnce) {
  int ends[2];
  ASSERT_EQ(0, ::pipe(ends));
  StreamFileBase reader(ends[0]), writer(ends[1]);
  for (StreamFileBase* end : {&reader, &writer}) end->SetNonBlock();
  std::ostream& out = writer.OStream();
  std::string sent, received;
  EXPECT_TRUE(reader.IStream().get() == EOF && reader.IStream().bad());  // not the end of the file
  while (out << sent.size() << ' ') sent += std::to_string(sent.size()) + ' ';
  for (; !out.flush(); received += text) out.clear(), reader.Read(text);
  writer._close();
  while (reader.Read(text) > 0) received += text;
  EXPECT_EQ(sent, received.substr(0, sent.size()));
  EXPECT_LE(received.size(), sent.size() + 8);  // the number that met the full pipe
}

TEST_F(StreamFileTest, FileReaderReadsOneChunkAhead) {
  const std::string a(8192, 'a'), b(8192, 'b'), c(1000, 'c');
  directory.Write("file", a + b + c);
  FileReader reader;
  reader.Open(path);
  reader.Open("/no/such/file");  // one is open
  EXPECT_EQ(POLLIN, reader.RequestedEvents());
  EXPECT_TRUE(reader.Read(text) == a.size() && text == a);
  PollPasses(2);
  EXPECT_EQ(0, reader.RequestedEvents());
  directory.Write("file", a + a + c);
  EXPECT_TRUE(reader.Read(text) == b.size() && text == b);
  EXPECT_TRUE(reader.Read(text) == c.size() && reader.Read(text) == 0 && text == c && reader.Fileno() == -1);
  reader.Open(path);
  PollPasses(1);
  reader.Close();  // with a chunk that nobody took
  EXPECT_TRUE(reader.Read(text) == 0 && reader.RequestedEvents() == 0 && reader.IsRegistered());
}

// In a child: it closes standard input.
TEST(StreamFileBase, AssignmentAloneLeavesDescriptorZeroBehind) {
  ExpectInChild([] {
    const StreamFileBase zero(dup2(open("/dev/null", O_RDONLY), 0));
    StreamFileBase copy(zero), target;
    EXPECT_TRUE(copy.IsOpen());
    target = zero;
    EXPECT_FALSE(target.IsOpen());
    copy._close();
    EXPECT_TRUE(zero.IsOpen());
  });
}

}  // namespace
