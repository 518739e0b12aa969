#include "daqm/daqm.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <bit>
#include <optional>
#include <random>

#include "emulators/daqmbus.h"
#include "emulators/own_host.h"
#include "emulators/poll_runner.h"
#include "emulators/virtual_time.h"
#include "examples/timer.h"
#include "fuzz/daqmtool.h"
#include "tests/support/captured_output.h"
#include "tests/support/error_text.h"
#include "tests/support/gpio_tree.h"
#include "tests/support/setting.h"

namespace {

using Texts = std::vector<std::string>;
using Values = std::vector<double>;

// Collects nothing that isn't asked for.
struct Owner : DAQM::Listener {
  void GotDAQMSerial(std::string, std::string) override {}
  void GotDAQMVersion(std::string, std::string) override {}
  void GotDAQMDisconnected() override { ++disconnected; }
  void GotDAQMHeader(const Texts&, const Texts&) override {}
  void GotDAQMData(long, const Values&) override {}
  void GotDAQMBackupHeader(const Texts&, const Texts&) override {}
  void GotDAQMBackupData(long, const Values&) override {}
  void GotDAQMReserved() override {}
  int disconnected = 0;
};

// What one session does is held against a second form of it in the fuzzer.
TEST(DAQM, StandsAlone) {
  ExpectInChild([] {
    if (!BecomeRoot() || !EnterOwnNetwork()) return;
    Gpio::_debug = true;
    EXPECT_EQ(std::bit_cast<uint64_t>(DAQM::NaN), 0x7FF4000000000000U);
    Pty pty;
    Owner owner;
    std::optional<DAQM> session(std::in_place, false, false);
    EXPECT_EQ(session->RegisterListener(&owner), nullptr);
    EXPECT_NE(ErrorText([] { DAQM(false, false); }).find("ddress already in use"), std::string::npos);
    for (const unsigned port : {4U, 7U}) session->Connect(port);  // no rows of the table
    session->Connect();
    EXPECT_FALSE(session->IsActive());

    // Why a port can't be had is told to the caller, who is user 0 from then on.
    DAQM::port_to_dev.push_back({"/nowhere", 5});
    ASSERT_EQ(seteuid(4'711), 0);
    EXPECT_EQ(ErrorText([&] { session->Connect(4); }),
              "LinuxTTY: Unable to open tty device: /nowhere: No such file or directory");
    EXPECT_EQ(geteuid(), 0U);
    DAQM::port_to_dev[4] = {pty.Path(), 5};
    ASSERT_EQ(seteuid(4'711), 0);
    session->Connect();
    EXPECT_EQ(geteuid(), 4'711U);
    session->GotDAQMLine("\n");
    session->Connect();
    EXPECT_EQ(owner.disconnected, 1);
    session->GotDAQMLine("\n");
    session.reset();
    EXPECT_EQ(owner.disconnected, 1);
    ASSERT_EQ(seteuid(0), 0);
  });
}

TEST(DAQM, ClosesAClientThatDoesNotRead) {
  ExpectInChild([] {
    if (!BecomeRoot() || !EnterOwnNetwork()) return;
    DAQM session(false, false);
    DAQMTool idle, visitor;
    EXPECT_TRUE(PollUntil([&] {
      session.GotDAQMLine("hello\n");
      return idle.got.ends_with("hello\n") && visitor.got.ends_with("hello\n");
    }));
    visitor.client->CloseWhenDone();
    EXPECT_TRUE(PollUntil([&] { return visitor.client->IsClosed(); })) << "a visit that has ended";
    idle.client->SetRequestedEvents(0);
    std::optional<CapturedOutput> output(std::in_place);
    const std::string line = std::string(65'535, 'x') + '\n';
    for (int lines = 0; lines < 1'000 && output->Text().empty(); ++lines) {
      session.GotDAQMLine(line);
      PollPasses(20);
    }
    const std::string text = output->Text();
    output.reset();
    const std::string start = "ERROR: DAQM: Closing a client that doesn't read: ";
    ASSERT_TRUE(text.starts_with(start)) << text;
    EXPECT_NEAR(std::stod(text.substr(start.size())), (1 << 20) + 32'768.5, 32'767.5);  // one line more than 1 MiB
    session.GotDAQMLine(line);
  });
}

TEST(DAQMDeathTest, ALineMustNotEndTheDevice) {
#ifdef NDEBUG
  GTEST_SKIP() << "a build without assertions";
#endif
  struct Ender : Owner {
    void GotDAQMConnected(unsigned) override { session->Disconnect(); }
    void GotDAQMDisconnected() override { session->Connect(); }
    DAQM* session = nullptr;
  };
  const auto run = [](bool in_line) {
    if (!EnterOwnNetwork()) return;
    DAQM session(false, false);
    Ender ender;
    ender.session = &session;
    session.RegisterListener(in_line ? &ender : nullptr);
    session.GotDAQMLine("\n");
    session.RegisterListener(&ender);
    session.Disconnect();
  };
  EXPECT_EQ(RunInChild([&] { run(true); }).signal, SIGABRT);
  EXPECT_EQ(RunInChild([&] { run(false); }).signal, SIGABRT);
}

// Days with a trouble every 20 minutes; MOORLOG_DAQM_DAYS and MOORLOG_DAQM_SEED ask for others.
class Days : public Owner {
 public:
  void Run() {
    DAQM::port_to_dev[1].device = _bus.Path();
    _session.emplace(false, false);
    _session->RegisterListener(this);
    _Connect();
    PollFor(500);
    const int steps = 72 * Setting("MOORLOG_DAQM_DAYS", 1);
    for (int step = 0; step < steps; ++step) {
      PollFor(20 * 60'000);
      for (uint32_t count = 1 + _random() % 3; count > 0; --count)
        _bus.Misbehave(static_cast<int>(_random() % DAQMBus::kMisbehaviours), static_cast<int>(_random() % 5));
      if (step % 12 == 5) _Visit(step);
      if (step % 24 == 6) _session->StartLiveData();
      if (step % 24 == 7) _session->StopLiveData();
    }
    PollFor(400'000);
    EXPECT_EQ(_tree.Writes(), _powered ? "" : "?");
    EXPECT_TRUE(_session->SerialNumberList().starts_with("DA-100 DA-101 DA-102 DA-103 DA-104"));
    EXPECT_EQ(_session->VersionNumberList(), "2.0 2.1");
    _session.reset();
    EXPECT_EQ(_tree.Writes(), "gpio13/value=0 ");
    _CheckReports();
  }

  void GotDAQMHeader(const Texts& names, const Texts& units) override {
    _names[0] = names;
    EXPECT_EQ(units.size(), names.size());
  }
  void GotDAQMBackupHeader(const Texts& names, const Texts&) override { _names[1] = names; }
  void GotDAQMData(long, const Values& values) override { _Count(0, values), ++_rows; }
  void GotDAQMBackupData(long, const Values& values) override { _Count(1, values); }
  void GotDAQMLiveData(long, const Values& values) override { _live_rows += values.empty() ? 0 : 1; }
  // The station's owner lets the bus go without power for half a minute.
  void GotDAQMPowerOff() override {
    _session->Disconnect();
    _bus.SetPower(_powered = false);
    EXPECT_EQ(_tree.Writes(), "gpio13/value=0 ");
    _again.SetTimeout(30'000);
  }

 private:
  void _Connect() {
    _session->Connect(1);
    _bus.SetPower(_powered = true);
    const std::string writes = _tree.Writes();
    EXPECT_TRUE(writes.ends_with("gpio13/active_low=0 gpio13/direction=out gpio13/value=1 ")) << writes;
  }
  // A row fits its header, and no value comes twice.
  void _Count(int kind, const Values& values) {
    const Texts& names = _names[kind];
    ASSERT_EQ(values.size(), names.size());
    for (size_t i = 0; i < values.size(); ++i) {
      const double value = values[i];
      if (std::bit_cast<uint64_t>(value) == std::bit_cast<uint64_t>(DAQM::NaN) || value < 100) continue;
      const std::string name = DAQMBus::NameOf(DAQMBus::ModuleOf(value), DAQMBus::ColumnOf(value));
      EXPECT_TRUE(names[i].starts_with(name) || names[i].empty()) << names[i] << ' ' << name;
      EXPECT_EQ(++_delivered[kind][value], 1) << value;
    }
  }
  // A tool renames columns, and hears the bus meanwhile.
  void _Visit(int number) {
    PollFor(15'000);  // what is cut is a report and not the answer
    if (!_powered) return;
    DAQMTool tool;
    _time.SetGrace(5'000);
    const std::string module = std::to_string(number % 5);
    tool.client->Write(DAQMBus::Framed("{\"" + module + "\":{\"rename\":" + std::to_string(number) + "}}") +
                       DAQMBus::Framed("{\"" + module + "\":\"storeconfig\"}"));
    const std::string end = DAQMBus::Framed("{\"" + module + "\":\"stored\"}");
    EXPECT_TRUE(PollUntil([&] { return tool.got.find(end) != tool.got.npos; }, 1)) << tool.got;
    EXPECT_NE(tool.got.find("{\"renamed\":" + std::to_string(number) + "}}"), tool.got.npos);
    _time.SetGrace(0);
    _renamed = "_" + std::to_string(number);
    PollFor(100'000);
    const Texts& names = _names[0];
    EXPECT_TRUE(std::any_of(names.begin(), names.end(), [this](const auto& name) { return name.ends_with(_renamed); }))
        << number;
  }
  void _CheckReports() const {
    int promised[2] = {}, delivered[2] = {};
    const auto& reports = _bus.Reports();
    for (size_t i = 0; i + 100 < reports.size(); ++i) {
      const DAQMBus::Report& report = reports[i];
      if (report.missing) continue;
      const bool due = report.good && report.settled;
      for (int column = 1; column <= DAQMBus::kColumns; ++column) {
        const auto found = _delivered[report.kept].find(DAQMBus::ValueOf(report.module, column, report.time));
        const bool came = found != _delivered[report.kept].end();
        EXPECT_TRUE(came || !due) << "module " << report.module << " at " << report.time
                                  << (report.kept ? " kept" : "");
        delivered[report.kept] += came && column == 1 ? 1 : 0;
      }
      promised[report.kept] += due ? 1 : 0;
    }
    std::cerr << "reports " << reports.size() << ", promised " << promised[0] << " and kept " << promised[1]
              << ", delivered " << delivered[0] << " and " << delivered[1] << ", rows " << _rows << ", live rows "
              << _live_rows << '\n';
    EXPECT_GT(promised[0], static_cast<int>(reports.size()) / 2);
    EXPECT_EQ(promised[1], 100);
    EXPECT_GT(_live_rows, 1'000);
  }

  VirtualTime _time;
  GpioTree _tree;
  std::mt19937 _random{static_cast<uint32_t>(Setting("MOORLOG_DAQM_SEED", 5))};
  DAQMBus _bus{{5, 10, 20}};
  std::optional<DAQM> _session;
  Timer _again{-1, [this] { _Connect(); }};
  Timer _gps{1'000, [this] {
               _gps.AddTimeout(1'000);
               _session->SyncToGPSTime(time(nullptr));
             }};
  Texts _names[2];
  std::map<double, int> _delivered[2];
  std::string _renamed;
  int _rows = 0, _live_rows = 0;
  bool _powered = true;
};

TEST(DAQMDays, EachReportIsDeliveredOnce) {
  if (!MountNamespaceAvailable()) GTEST_SKIP() << "needs the right to mount, and / to be a mount point";
  const auto result = RunInMountNamespace([] {
    ASSERT_TRUE(EnterOwnNetwork());
    std::cout.rdbuf(nullptr);  // what goes wrong is told there, line by line
    Days().Run();
  });
  EXPECT_EQ(result.exit_status, 0) << result.output.substr(0, 5'000);
}

}  // namespace
