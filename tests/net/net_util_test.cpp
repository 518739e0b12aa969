#include "net/net_util.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>

#include <cstdlib>

#include "tests/support/error_text.h"
#include "tests/support/mount_namespace.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

bool Run(const std::string& commands) {
  return std::system(("exec 2>&1; set -e; " + commands).c_str()) == 0;
}

// In an empty network: br1 without a port, and br0 with the ports "v0", whose peer "v1" has an address and one more
// with a label, and "p0", which is down while its peer, a port of br2, isn't.
bool MakeNetwork() {
  return unshare(CLONE_NEWNET) == 0 && mount("none", "/sys", "sysfs", 0, nullptr) == 0 &&
         Run("ip link add br1 index 11 type bridge; ip link add br0 index 10 type bridge;"
             "ip link add br2 type bridge;"
             "ip link add v0 index 20 address 02:00:fe:0a:00:9f type veth peer name v1;"
             "ip link add p0 type veth peer name fifteenletters1;"
             "for i in v0 p0; do ip link set $i master br0; done; ip link set fifteenletters1 master br2;"
             "for i in br0 v0 v1 fifteenletters1; do ip link set $i up; done;"
             "ip addr add 10.1.2.3/24 dev v1; ip addr add 10.1.2.4/24 dev v1 label v1:x");
}

template <typename Asked>
Asked Refreshed(const std::string& name, Asked asked = {}) {
  asked.name = name;
  asked.Refresh();
  return asked;
}

std::string Shown(const std::string& name, const NetworkInterface& before = {}) {
  const NetworkInterface its = Refreshed(name, before);
  return (its.up ? "up " : "") + std::string(its.running ? "running " : "") + std::to_string(its.index) +
         (its.hasAddress ? " has " : " ") + its.address.Presentation() + ' ' + its.hardwareAddress +
         (its.isBridge ? " bridge" : "") + (its.isBridgeMember ? " member" : "") + ' ' + its.bridgeName;
}

void ExpectInterfaces() {
  ASSERT_TRUE(MakeNetwork());
  std::vector<std::string> names = {"v1", "first"};
  EnumNetworkInterfaces(names);
  EXPECT_THAT(names,
              ElementsAre("v1", "first", "br0", "br1", "br2", "fifteenletters1", "lo", "p0", "v0", "v1", "v1:x"));

  while (!Refreshed<NetworkInterface>("br0").running) continue;  // its carrier follows its port's
  EXPECT_EQ("up running 20 0.0.0.0 02:00:fe:0a:00:9f member br0", Shown("v0"));
  EXPECT_THAT(Shown("v1"), testing::MatchesRegex("up running [0-9]+ has 10.1.2.3 [0-9a-f:]{17} "));
  EXPECT_THAT(Shown("v1:x"), testing::HasSubstr(" has 10.1.2.4 "));
  EXPECT_THAT(Shown("fifteenletters1"), testing::EndsWith(" member br2"));
  EXPECT_EQ("up running 10 0.0.0.0 02:00:fe:0a:00:9f bridge ", Shown("br0"));
  for (const std::string name : {"p0", "br1", "lo", "none", "fifteenletters1x", ""})
    EXPECT_EQ("0 0.0.0.0  ", Shown(name, Refreshed<NetworkInterface>("v0"))) << name;

  const auto bridge = Refreshed<NetworkBridge>("br0");
  EXPECT_TRUE(bridge.exists);
  EXPECT_EQ("8000.0200fe0a009f", bridge.bridgeId);
  EXPECT_THAT(bridge.interfaces, UnorderedElementsAre("v0", "p0"));
  EXPECT_FALSE(bridge.topologyChange || bridge.topologyChangeDetected);
  EXPECT_THAT(Refreshed("br1", bridge).interfaces, IsEmpty());
  EXPECT_FALSE(Refreshed("v0", bridge).exists);

  // More addresses than the first buffer holds.
  ASSERT_TRUE(Run("for n in $(seq 60); do ip addr add 10.2.0.$n/32 dev v1 label v1:$n; done"));
  names.clear();
  EnumNetworkInterfaces(names);
  EXPECT_EQ(9U + 60, names.size());
}

// What a real bridge rarely shows, and no tree at all; and the host's name.
void ExpectOddTrees() {
  ASSERT_EQ(0, unshare(CLONE_NEWUTS | CLONE_NEWNET));
  EXPECT_TRUE(SetHostname("station-7"));
  EXPECT_FALSE(SetHostname(std::string(65, 'x')));
  EXPECT_EQ("station-7", Hostname());
  MountEmpty("/mnt");
  ASSERT_TRUE(
      Run("mkdir -p /mnt/b/bridge /mnt/b/brif/.hidden /mnt/b/brif/port; cd /mnt/b; touch brif/file; cd bridge;"
          "echo 8000.1 x > bridge_id; echo 2 > topology_change; cp topology_change topology_change_detected;"
          "echo 3456 > topology_change_timer"));
  ASSERT_EQ(0, mount("/mnt", "/sys/class/net", nullptr, MS_BIND, nullptr));
  std::vector<std::string> names;
  EnumNetworkInterfaces(names);
  EXPECT_THAT(names, ElementsAre("b", "lo"));
  const auto bridge = Refreshed<NetworkBridge>("b");
  EXPECT_EQ("8000.1", bridge.bridgeId);
  EXPECT_THAT(bridge.interfaces, ElementsAre("port"));
  EXPECT_TRUE(bridge.topologyChange && bridge.topologyChangeDetected);
  EXPECT_EQ(3456, bridge.topologyChangeTimer);
  ASSERT_TRUE(Run("cd /mnt/b/bridge; for f in topo*; do echo x > $f; done"));
  EXPECT_EQ(0, Refreshed("b", bridge).topologyChangeTimer);
  EXPECT_FALSE(Refreshed("b", bridge).topologyChange);
  ASSERT_TRUE(Run("rm -r /mnt/b/brif"));
  EXPECT_EQ("Unable to list directory contents of: /sys/class/net/b/brif: No such file or directory",
            ErrorText([] { Refreshed<NetworkBridge>("b"); }));
  MountEmpty("/sys/class");
  EXPECT_EQ("Unable to list directory contents of: /sys/class/net/: No such file or directory",
            ErrorText([&] { EnumNetworkInterfaces(names); }));
}

TEST(NetworkInterfaces, AreAsTheSystemHasThem) {
  if (RunInMountNamespace([] { ASSERT_TRUE(MakeNetwork()); }).exit_status != 0)
    GTEST_SKIP() << "needs iproute2 and the right to make networks";
  ExpectInMountNamespace(ExpectInterfaces);
  ExpectInMountNamespace(ExpectOddTrees);
}

}  // namespace
