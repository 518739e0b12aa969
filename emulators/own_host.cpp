#include "emulators/own_host.h"

#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>

#include "emulators/must.h"

bool BecomeRoot() {
  const std::string user = std::to_string(geteuid()), group = std::to_string(getegid());
  if (seteuid(0) == 0) return true;
  if (unshare(CLONE_NEWUSER) != 0) return false;
  for (const auto& [file, text] : {std::pair("setgroups", std::string("deny")),
                                   {"uid_map", "0 " + user + " 1"},
                                   {"gid_map", "0 " + group + " 1"}}) {
    std::ofstream map(std::string("/proc/self/") + file);
    if (!(map << text << std::flush)) return false;
  }
  return true;
}

bool EnterOwnNetwork() {
  if (unshare(CLONE_NEWNET) != 0) return false;
  const int asked = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  ifreq loopback = {};
  std::strcpy(loopback.ifr_name, "lo");
  loopback.ifr_flags = IFF_UP | IFF_RUNNING;
  const bool up = ioctl(asked, SIOCSIFFLAGS, &loopback) == 0;
  close(asked);
  return up;
}

bool EnterOwnMounts() {
  return unshare(CLONE_NEWNS) == 0 && mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

void MountEmpty(const std::string& target, const std::string& options) {
  Must(mount("tmpfs", target.c_str(), "tmpfs", 0, options.c_str()) == 0, "mount a disk over ", target);
}

void MountGpio(int line) {
  const std::string directory = "/sys/class/gpio/gpio" + std::to_string(line);
  MountEmpty("/sys/class");
  std::filesystem::create_directories(directory);
  for (const char* name : {"/active_low", "/direction", "/value"}) std::ofstream(directory + name).flush();
}
