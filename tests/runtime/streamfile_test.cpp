#include "runtime/streamfile.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <functional>
#include <istream>
#include <ostream>

#include "runtime/errnoexcept.h"
#include "runtime/filereader.h"
#include "tests/support/child_process.h"
#include "tests/support/poll_runner.h"
#include "tests/support/temp_directory.h"

namespace {

using testing::AnyOf;
using testing::StartsWith;
using testing::ThrowsMessage;

struct StreamFileTest : public testing::Test {
  StreamFileTest() { directory.Write("file", "0123456789"); }

  const TempDirectory directory;
  const std::string path = directory / "file";
};

TEST_F(StreamFileTest, CopiesCloseOnTheirOwn) {
  StreamFile file(path, O_RDONLY);
  file = *&file;
  StreamFile copy(file), assigned(path, O_RDONLY);
  assigned = file;
  file.Close();
  std::string text;
  EXPECT_EQ(10u, copy.Read(text));
  EXPECT_EQ(0u, assigned.Read(text));  // one position
  EXPECT_EQ("", text);
  EXPECT_TRUE(assigned.IsOpen());
  const auto result = RunInChild([&] {
    ::close(STDIN_FILENO);
    StreamFile zero(path, O_RDONLY);
    assigned = zero;  // descriptor 0 is left out, by assignment only
    EXPECT_FALSE(assigned.IsOpen());
    EXPECT_TRUE(zero.Fileno() == 0 && StreamFile(zero).IsOpen());
  });
  EXPECT_EQ(0, result.exit_status) << result.output;
}

TEST_F(StreamFileTest, TellsWhatFailed) {
  StreamFile closed, reading(path, O_RDONLY), writing(path, O_WRONLY);
  std::string text;
  const struct {
    std::string text;  // of an ErrnoError where the system's own text follows
    std::function<void()> call;
  } rows[] = {
      {"StreamFileBase: invalid file descriptor", [] { StreamFileBase base(-1); }},
      {"StreamFileBase: file is closed", [&] { closed.Read(text); }},
      {"StreamFileBase: file is closed", [&] { closed.Write("text"); }},
      {"StreamFileBase: file is closed", [&] { closed.OStream(); }},
      {"StreamFileBase: file is closed", [&] { closed.IStream(); }},
      {"StreamFileBase: unable to create ostream", [&] { reading.OStream(); }},
      {"StreamFileBase: unable to create istream", [&] { writing.IStream(); }},
      {"StreamFileBase: unable to get file flags", [&] { closed.SetNonBlock(); }},
      {"StreamFileBase: error in Read", [&] { writing.Read(text); }},
      {"StreamFileBase: error in Write", [&] { reading.Write("text"); }},
      {"StreamFile: Unable to open /no/such/file", [&] { closed.Open("/no/such/file", O_RDONLY); }},
  };
  for (const auto& row : rows)
    EXPECT_THAT(row.call, AnyOf(ThrowsMessage<ErrnoError>(StartsWith(row.text + ": ")),
                                ThrowsMessage<StreamFileBaseError>(row.text)));
}

TEST_F(StreamFileTest, ReportsAFailingCloseOnceNothingElseIsUnderWay) {
  const auto failing = ThrowsMessage<ErrnoError>(StartsWith("StreamFileBase: unable to close file: "));
  const auto destroyed = [&] {
    StreamFile file(path, O_RDONLY);
    ::close(file.Fileno());
    EXPECT_THAT([&] { file.Close(); }, failing);
    EXPECT_TRUE(file.IsOpen());
  };
  const auto unwound = [&] {
    StreamFile file(path, O_RDONLY);
    ::close(file.Fileno());
    throw std::runtime_error("first");
  };
  EXPECT_THAT(destroyed, failing);
  EXPECT_THAT(unwound, ThrowsMessage<std::runtime_error>("first"));
}

TEST_F(StreamFileTest, StreamsShareTheDescriptorAndCloseItOnce) {
  StreamFile file(path, O_RDWR | O_TRUNC);
  std::string expected;
  for (int i = 0; i < 3000; ++i) expected += "line " + std::to_string(i) + '\n';
  file.OStream() << expected;
  EXPECT_LT(directory.Read("file").size(), expected.size());  // the rest is buffered
  file.IStream();
  file.Close();
  EXPECT_EQ(expected, directory.Read("file"));

  file.Open(path, O_RDONLY);
  std::string text;
  char c;
  while (file.IStream().get(c)) {
    text += c;
    file.IStream().unget().get(c);  // also across the edge of the buffer
    EXPECT_EQ(text.back(), c);
  }
  EXPECT_EQ(expected, text);
  file.IStream().clear();
  file.IStream().seekg(5) >> text;
  EXPECT_EQ("0", text);
  EXPECT_EQ(6, file.IStream().tellg());
}

TEST_F(StreamFileTest, AStreamOnAFullPipeWritesEachByteOnce) {
  int ends[2];
  ASSERT_EQ(0, ::pipe(ends));
  StreamFileBase reader(ends[0]), writer(ends[1]);
  reader.SetNonBlock();
  writer.SetNonBlock();
  std::ostream& out = writer.OStream();
  std::string sent, received, chunk;
  EXPECT_TRUE(reader.IStream().get() == EOF && reader.IStream().bad());  // not the end of the file
  while (out << sent.size() << ' ') sent += std::to_string(sent.size()) + ' ';
  while (!out.flush()) {
    out.clear();
    reader.Read(chunk);
    received += chunk;
  }
  writer._close();
  while (reader.Read(chunk) > 0) received += chunk;
  EXPECT_EQ(sent, received.substr(0, sent.size()));
  EXPECT_LE(received.size(), sent.size() + 8);  // the number that met the full pipe
}

TEST_F(StreamFileTest, FileReaderReadsOneChunkAhead) {
  directory.Write("file", std::string(8192, 'a') + std::string(8192, 'b') + std::string(1000, 'c'));
  FileReader reader;
  std::string chunk;
  reader.Open(path);
  reader.Open("/no/such/file");  // one is open
  EXPECT_EQ(POLLIN, reader.RequestedEvents());
  EXPECT_EQ(8192u, reader.Read(chunk));
  EXPECT_EQ(std::string(8192, 'a'), chunk);
  PollPasses(2);
  EXPECT_EQ(0, reader.RequestedEvents());
  directory.Write("file", std::string(16384, 'x') + std::string(1000, 'c'));
  EXPECT_EQ(8192u, reader.Read(chunk));
  EXPECT_EQ(std::string(8192, 'b'), chunk);
  EXPECT_EQ(1000u, reader.Read(chunk));
  EXPECT_EQ(0u, reader.Read(chunk));
  EXPECT_EQ(std::string(1000, 'c'), chunk);
  EXPECT_EQ(-1, reader.Fileno());
  // What can't be opened for writing isn't read; root may write any file, but no directory.
  EXPECT_THAT([&] { reader.Open(directory.Path()); }, ThrowsMessage<ErrnoError>(StartsWith("StreamFile: Unable")));
}

}  // namespace
