#include "analyser/ch4device.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>

#include "emulators/analyser.h"
#include "runtime/datachecksum.h"
#include "tests/support/avahi_hosts.h"
#include "tests/support/captured_output.h"
#include "tests/support/poll_runner.h"

namespace {

using testing::Each;

// A line closed by its sum.
std::string Closed(std::string line) {
  AppendCheckSum(line);
  return line;
}

class CH4DeviceTest : public testing::Test, public CH4Device::Listener {
 protected:
  CH4DeviceTest() {
    AvahiHosts::UseNone();
    device = std::make_unique<CH4Device>(false);
    device->RegisterListener(this);
  }
  ~CH4DeviceTest() noexcept override {}

  void GotCH4Data(const CH4Data& data) override { record = data; }

  std::optional<CH4Data> After(const std::vector<std::string>& lines) {
    record.reset();
    for (const std::string& line : lines) device->HeadGotLine(line);
    return record;
  }

  std::unique_ptr<CH4Device> device;
  std::optional<CH4Data> record;
};

TEST_F(CH4DeviceTest, ReadsTheLinesOfAnAnalyser) {
  const std::string headers = Analyser::Headers();
  const size_t second = headers.find('\n') + 1;
  const auto got =
      After({headers.substr(0, second), headers.substr(second), Analyser::DataLine(1'700'000'000, 999'999'999, 4'321)});
  ASSERT_TRUE(got);
  EXPECT_EQ(1'700'000'000, got->seconds);
  EXPECT_EQ(999'999'999, got->nanoseconds);
  EXPECT_THAT(got->values, testing::ElementsAre(0.079575, 1.921, 21.521, 101.304, 62.521, 0, 4321, 0.0002, 0, 0));
  EXPECT_EQ(0U, got->errorFlags);
  EXPECT_EQ(0U, got->reserved16);
  EXPECT_THAT(got->reserved8, Each(0));
}

TEST_F(CH4DeviceTest, GivesARecordOrNone) {
  constexpr double kNone = CH4Unavailable, kMax = std::numeric_limits<double>::max();
  const std::string header = "DATAH\tSECONDS\tNANOSECONDS\tDIAG\tCH4\tAUX4\tCHK\n", old_header = "DATAH\tCH4\tCH4\t";
  const std::string diag = "DATADIAGH\tNOSIGNAL\tBADTEMP\tPUMPON\tMOTORSPINNING\tLASTERTEMPUNREG\tCHK\n";
  const auto with_diag = [](const char* word) { return Closed(std::string("DATA\t5\t6\t") + word + "\t2\t3\t"); };
  std::string many = "DATADIAGH";
  for (int i = 0; i < 31; ++i) many += "\tB" + std::to_string(i);
  // clang-format off
  const struct {
    const char* name;
    std::vector<std::string> lines;
    std::vector<double> record;  // seconds, nanoseconds, CH4D, CH4, AUX4, errorFlags
  } rows[] = {
      {"no header yet", {Closed("DATA\t1\t2\t")}, {0, 0, kNone, kNone, kNone, 0}},
      {"all columns", {header, with_diag("0")}, {5, 6, kNone, 2, 3, 0}},
      {"too few words", {Closed("DATA\t5\t6\t0\t2\t")}, {}},
      {"wrong sum", {"DATA\t5\t6\t0\t2\t3\t  1\n"}, {}},
      {"sum that is no number", {"DATA\t5\t6\t0\t2\t3\tabc\n"}, {}},
      {"sum with zeros, words in plenty", {"DATA\t5 6\v0 2 3\t 9 9\t082\n"}, {5, 6, kNone, 2, 3, 0}},
      {"no numbers", {Closed("DATA\tx\t\t-\t.\tnan\tinf\t")}, {0, 0, kNone, 0, 0, 0}},
      {"numbers with a tail", {Closed("DATA\t7s\t-8.5\t0\t1e1x\t+.5\t")}, {7, -8, kNone, 10, 0.5, 0}},
      {"too large", {Closed("DATA\t3000000000\t-3000000000\t0\t1e-400\t1e400\t")},
       {INT32_MAX, INT32_MIN, kNone, 0, kMax, 0}},
      {"nine bytes", {"DATA\t  69\n"}, {}},
      {"other words", {Closed("DATAX\t5\t6\t0\t2\t3\t"), Closed("data\t5\t6\t0\t2\t3\t")}, {}},
      {"bits without names", {with_diag("4294967295")}, {5, 6, kNone, 2, 3, 0}},
      {"failure", {diag, with_diag("1")}, {5, 6, kNone, 2, 3, 544}},
      {"warning", {with_diag("2")}, {5, 6, kNone, 2, 3, 32}},
      {"another warning", {with_diag("8")}, {5, 6, kNone, 2, 3, 32}},
      {"failure and warning", {with_diag("18")}, {5, 6, kNone, 2, 3, 544}},
      {"neither", {with_diag("4294967268")}, {5, 6, kNone, 2, 3, 0}},
      {"other meanings", {"DATADIAGH\tX\tNOTREADY\n", with_diag("2")}, {5, 6, kNone, 2, 3, 544}},
      {"32nd bit", {many + "\tNOTREADY\n", with_diag("2147483648")}, {5, 6, kNone, 2, 3, 544}},
      {"33rd name", {many + "\tX\tNOTREADY\n", with_diag("4294967295")}, {5, 6, kNone, 2, 3, 0}},
      {"column unread", {old_header + "CH4D\tAUX4\n", Closed("DATA\t1\t2\t3\t4\t")}, {0, 0, 3, 2, kNone, 0}},
      {"time unread", {old_header + "SECONDS\n", Closed("DATA\t1\t2\t3\t4\t")}, {0, 0, kNone, 2, kNone, 0}},
      {"header of nothing", {"DATAH     \n", Closed("DATA\t5\t6\t")}, {0, 0, kNone, kNone, kNone, 0}}};
  // clang-format on
  for (const auto& row : rows) {
    std::vector<double> got;
    if (const auto data = After(row.lines))
      got = {double(data->seconds), double(data->nanoseconds), data->values[0],
             data->values[1],       data->values[9],           double(data->errorFlags)};
    EXPECT_EQ(row.record, got) << row.name;
  }
}

TEST_F(CH4DeviceTest, TellsWhatItReadsWhenVerbose) {
  device = std::make_unique<CH4Device>(true);
  device->RegisterListener(this);
  std::string told;
  {
    const CapturedOutput output;
    After({"x\n", "DATAH\tDIAG\tCH4\tCHK\n", "DATADIAGH\tNOSIGNAL\tBADTEMP\n", Closed("DATA\t2\t1.25\t"),
           "DATA\t2\t1\t  1\n"});
    told = output.Text();
  }
  EXPECT_EQ(
      "CH4: x\n\n"
      "CH4: DATAH\tDIAG\tCH4\tCHK\n\nCH4=1\nCHK=2\nDIAG=0\n"
      "CH4: DATADIAGH\tNOSIGNAL\tBADTEMP\n\nBADTEMP=2\nNOSIGNAL=1\n"
      "CH4: DATA\t2\t1.25\t 45\n\nCH4: CH4=1.25 CHK=45 DIAG=2 BADTEMP=1 NOSIGNAL=0\n"
      "CH4: DATA\t2\t1\t  1\n\n",
      told);
}

TEST_F(CH4DeviceTest, LooksAtNothingWithoutAListenerAndMayBeDestroyedByIt) {
  struct Destroyer : CH4Device::Listener {
    explicit Destroyer(std::unique_ptr<CH4Device>& device) : victim(device) {}
    void GotCH4Data(const CH4Data&) override { victim.reset(); }
    std::unique_ptr<CH4Device>& victim;
  } destroyer(device);
  EXPECT_EQ(this, device->RegisterListener(nullptr));
  After({"DATAH\tCH4\tCHK\n"});
  EXPECT_EQ(nullptr, device->RegisterListener(this));
  EXPECT_EQ(CH4Unavailable, After({Closed("DATA\t2\t1\t")})->values[1]);
  device->RegisterListener(&destroyer);
  After({Closed("DATA\t2\t1\t")});
  EXPECT_FALSE(device);
}

// The analyser is a service of one host, goes away, and comes back as the same service of another. It is found at its
// link-local address, whatever other ones it has. Time is real here, as it is for the daemons.
TEST_F(CH4DeviceTest, FollowsAnAnalyserByItsName) {
  if (const std::string why = AvahiHosts::Missing(); !why.empty()) GTEST_SKIP() << why;
  const AvahiHosts hosts;
  device = std::make_unique<CH4Device>(true);
  device->RegisterListener(this);
  Head::Listener nobody;
  Head other(&nobody, Analyser::kType, false);  // takes the port that is announced

  std::optional<Analyser> analyser, second;
  const auto start = [&hosts](int host, std::optional<Analyser>& which, int port, const char* name) {
    hosts.Use(host);
    hosts.InNetwork(host, [&] { which.emplace("::", port).Announce(name); });
  };
  std::string told;
  const auto records_come = [&](int bound = 20'000) {
    bool came = false;
    record.reset();
    const CapturedOutput output;
    if (device->GetHead().ConnectedTo().empty()) device->GetHead().Connect("tn-5500");
    hosts.InNetwork(0, [&] { came = PollUntil([this] { return record.has_value(); }, bound); });
    told = output.Text();
    return came;
  };
  start(1, analyser, 5500, "TN-5500");
  start(1, second, 0, "TN-5500-2");
  EXPECT_TRUE(records_come());
  EXPECT_THAT(told, testing::HasSubstr("Got address: " + AvahiHosts::IPv4(1) + '\n'));
  EXPECT_THAT(told, testing::HasSubstr("Connecting to: " + AvahiHosts::LinkLocal(1) + '\n'));
  EXPECT_EQ(
      "<tarno><tn5500><output><rate>10</rate><waveforms>false</waveforms><status>false</status>"
      "<dataclock>false</dataclock></output></tn5500></tarno>",
      analyser->Commands().at(0));
  hosts.InNetwork(0, [&] {
    other.Connect("TN-5500-2");
    EXPECT_TRUE(PollUntil([&] { return other.IsConnected(); }, 20'000));
  });

  analyser->Vanish();
  EXPECT_FALSE(records_come(3'000));
  EXPECT_THAT(told, testing::EndsWith("Attempting to connect to: tn-5500\nNo host info\n"));
  start(0, analyser, 5500, "TN-5500");
  EXPECT_TRUE(records_come());
  EXPECT_THAT(told, testing::HasSubstr("Connecting to: " + AvahiHosts::LinkLocal(0) + '\n'));
  other.Disconnect();
}

}  // namespace
