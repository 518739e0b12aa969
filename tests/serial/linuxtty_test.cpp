#include "serial/linuxtty.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <csignal>
#include <optional>
#include <utility>

#include "emulators/poll_runner.h"
#include "emulators/pty.h"
#include "emulators/virtual_time.h"
#include "tests/support/captured_output.h"
#include "tests/support/error_text.h"
#include "tests/support/fake_device.h"

namespace {

// For the whole program: where it leads a session, the end of a port that it has opened brings the signal.
[[maybe_unused]] const auto previous = std::signal(SIGHUP, SIG_IGN);

// A port whose two ends are in the test's hand.
struct Ends : LinuxTTYReader::Listener {
  Ends() {
    time.SetGrace(20);
    EXPECT_EQ(reader.RegisterListener(this), nullptr);
  }
  void ReceivedChars(LinuxTTYReader& from, const char* data, int length) override {
    EXPECT_EQ(&from, &reader);
    EXPECT_GT(length, 0);
    got.append(data, length);
  }
  VirtualTime time;
  std::optional<Pty> pty{std::in_place};
  FakeDevice port;  // for what it takes of a write
  LinuxTTYReader reader{pty->Path()};
  LinuxTTYWriter writer{pty->Path()};
  std::string got;
};

TEST(LinuxTTY, OpensAsItIsMeantTo) {
  const Ends ends;
  EXPECT_EQ(fcntl(ends.reader.Fileno(), F_GETFL) & (O_ACCMODE | O_NONBLOCK), O_RDONLY | O_NONBLOCK);
  EXPECT_EQ(fcntl(ends.writer.Fileno(), F_GETFL) & (O_ACCMODE | O_NONBLOCK), O_WRONLY | O_NONBLOCK);
  EXPECT_EQ(ErrorText([] { LinuxTTYReader("/none"); }),
            "LinuxTTY: Unable to open tty device: /none: No such file or directory");
}

TEST(LinuxTTY, BytesGoOutAsFarAsThereIsRoom) {
  Ends ends;
  LinuxTTYWriter& writer = ends.writer;
  std::string sent;
  while (sent.size() < 4'096) sent += std::to_string(sent.size()) + ',';
  ends.port.most = 0;  // a stalled line keeps the queue
  EXPECT_EQ(writer.Write(sent.substr(0, 4'000)), 4'000);
  PollPasses(2);
  EXPECT_EQ(writer.Write(sent.data() + 4'000, 1'000), 96);
  EXPECT_EQ(writer.Write("x"), 0);
  ends.port.most = 1'000;
  EXPECT_TRUE(PollUntil([&] { return (ends.got += ends.pty->Read()).size() >= 4'096; }));
  EXPECT_EQ(ends.got, sent.substr(0, 4'096));
  EXPECT_EQ(writer.RequestedEvents(), POLLOUT);  // until the event that finds nothing
  PollPasses(1);
  EXPECT_EQ(writer.RequestedEvents(), 0);
  EXPECT_EQ(writer.Write(""), 0);
  EXPECT_EQ(writer.RequestedEvents(), 0);
}

TEST(LinuxTTY, BytesComeInWhileThereIsAListener) {
  Ends ends;
  for (const std::string bytes : {"x", "", "three"}) {
    ends.pty->Write(bytes);
    PollFor(100);
    EXPECT_EQ(std::exchange(ends.got, ""), bytes);
  }
  EXPECT_EQ(ends.reader.RegisterListener(nullptr), &ends);
  ends.pty->Write("lost");
  PollFor(100);
  ends.reader.RegisterListener(&ends);
  PollFor(100);
  EXPECT_EQ(ends.got, "");
}

TEST(LinuxTTY, APortThatGoesIsLeftAloneAndSaysSo) {
  Ends ends;
  LinuxTTYReader& reader = ends.reader;
  LinuxTTYWriter& writer = ends.writer;
  EXPECT_FALSE(reader.IsHungUp() || writer.IsHungUp());
  const std::string lost = ": Lost tty device: " + ends.pty->Path() + '\n';
  const CapturedOutput output;
  writer.Write("x");
  ends.pty.reset();
  EXPECT_TRUE(reader.IsHungUp() && writer.IsHungUp());  // before the loop knows
  EXPECT_NE(reader.RequestedEvents(), 0);
  PollFor(1'000);
  EXPECT_EQ(output.Text(), "LinuxTTYReader" + lost + "LinuxTTYWriter" + lost);
  EXPECT_EQ(ends.time.Sleeps(), 1);
  EXPECT_EQ(reader.RequestedEvents() | writer.RequestedEvents(), 0);
  EXPECT_EQ(writer.Write("x"), 0);
  EXPECT_TRUE(reader.IsHungUp() && writer.IsHungUp());
  for (const auto handle : {&PollItem::HandleError, &PollItem::HandleInvalid, &PollItem::HandleHangUp}) {
    const CapturedOutput line;
    ends.pty.emplace();
    LinuxTTYReader other(ends.pty->Path());
    (other.*handle)();
    EXPECT_EQ(line.Text(), "LinuxTTYReader: Lost tty device: " + ends.pty->Path() + '\n');
    EXPECT_TRUE(other.IsHungUp() && other.RequestedEvents() == 0);
  }
}

}  // namespace
