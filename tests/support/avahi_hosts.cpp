#include "tests/support/avahi_hosts.h"

#include <fcntl.h>
#include <net/if.h>
#include <poll.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>

#include "runtime/errnoexcept.h"
#include "tests/support/child_process.h"
#include "tests/support/mount_namespace.h"

namespace fs = std::filesystem;

namespace {

constexpr int kPatience = 20'000;  // milliseconds until a daemon has to be ready
constexpr const char* kDaemon = "/usr/sbin/avahi-daemon";
constexpr const char* kBus = "/usr/bin/dbus-daemon";
constexpr const char* kBusPolicy = R"(<busconfig>
  <type>system</type>
  <listen>unix:path=FOLDER/bus</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow user="*"/><allow own="*"/><allow send_destination="*"/><allow receive_sender="*"/>
  </policy>
</busconfig>
)";
constexpr const char* kDaemonSettings = R"([server]
host-name=NAME
allow-interfaces=eth0
entries-per-entry-group-max=100
[publish]
publish-hinfo=no
publish-workstation=no
)";

std::string With(std::string text, const std::string& mark, const std::string& value) {
  return text.replace(text.find(mark), mark.size(), value);
}

// The library reads the address of the bus once in the life of a process, so the address stays and what stands there
// changes: a link to the bus of the host in use.
const std::string& BusLink() {
  static const TempDirectory folder;
  static const std::string link = [] {
    std::string path = folder / "bus";
    setenv("DBUS_SYSTEM_BUS_ADDRESS", ("unix:path=" + path).c_str(), 1);
    return path;
  }();
  return link;
}

void Check(bool done, const std::string& what) {
  if (!done) throw ErrnoError(what);
}

[[noreturn]] void RunProgram(int network, const std::string& folder, const std::vector<std::string>& command,
                             int output) {
  try {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    dup2(output, STDOUT_FILENO);
    dup2(output, STDERR_FILENO);
    Check(setns(network, CLONE_NEWNET) == 0, "network");
    Check(unshare(CLONE_NEWNS) == 0, "mount namespace");
    Check(mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "mounts");
    MountEmpty("/run");
    MountOver(folder + "/avahi", "/etc/avahi");
    setenv("DBUS_SYSTEM_BUS_ADDRESS", ("unix:path=" + folder + "/bus").c_str(), 1);
    std::vector<char*> arguments(command.size() + 1);
    for (size_t i = 0; i < command.size(); ++i) arguments[i] = const_cast<char*>(command[i].c_str());
    execvp(arguments[0], arguments.data());
    Check(false, command[0]);
  } catch (const std::exception& error) {
    dprintf(STDERR_FILENO, "%s\n", error.what());
  }
  _exit(127);
}

}  // namespace

std::string AvahiHosts::Missing() {
  for (const char* program : {kDaemon, kBus})
    if (access(program, X_OK) != 0) return std::string("needs ") + program;
  static const bool allowed =
      RunInChild([] {
        _exit(unshare(CLONE_NEWNET | CLONE_NEWNS) == 0 && std::system("ip link add type veth >/dev/null 2>&1") == 0
                  ? 0
                  : 1);
      }).exit_status == 0;
  return allowed ? "" : "needs the right to make networks";
}

void AvahiHosts::UseNone() {
  fs::remove(BusLink());
}

AvahiHosts::AvahiHosts() : _hosts(2) {
  try {
    for (int host : {0, 1}) {
      const std::string folder = std::to_string(host);
      _hosts[host].folder = _folder / folder;
      _folder.Write(folder + "/bus.conf", With(kBusPolicy, "FOLDER", _hosts[host].folder));
      _folder.Write(folder + "/avahi/avahi-daemon.conf", With(kDaemonSettings, "NAME", Name(host)));
      fs::create_directory(_folder / (folder + "/avahi/services"));
    }
    _MakeNetworks();
    for (int host : {0, 1}) {
      StartBus(host);
      // Both at once, as each takes a second to make sure of its name.
      _hosts[host].daemon = _Start(_hosts[host], {kDaemon, "--no-drop-root", "--no-chroot", "--no-rlimits"});
    }
    for (const Host& host : _hosts) _Await(host.daemon, "Server startup complete");
    Use(0);
  } catch (...) {
    _Close();
    throw;
  }
}

AvahiHosts::~AvahiHosts() {
  _Close();
}

void AvahiHosts::_Close() {
  UseNone();
  for (Host& host : _hosts) {
    _Stop(host.daemon, SIGKILL);
    _Stop(host.bus, SIGKILL);
    if (host.network >= 0) close(host.network);
  }
  if (_own_network >= 0) close(_own_network);
}

void AvahiHosts::_MakeNetworks() {
  const char* const here = "/proc/thread-self/ns/net";
  Check((_own_network = open(here, O_RDONLY | O_CLOEXEC)) >= 0, here);
  for (Host& host : _hosts) {
    Check(unshare(CLONE_NEWNET) == 0, "network namespace");
    host.network = open(here, O_RDONLY | O_CLOEXEC);
    const bool back = setns(_own_network, CLONE_NEWNET) == 0;
    Check(host.network >= 0 && back, here);
  }
  const std::string other = "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(_hosts[1].network);
  _Command(_hosts[0], "ip link add eth0 type veth peer name eth0 netns " + other);
  for (int host : {0, 1}) {
    // Addresses that are there at once: without the second in which the kernel asks whether another host has them.
    _Command(_hosts[host],
             "ip link set eth0 addrgenmode none && ip link set lo up && ip link set eth0 up && "
             "ip addr add " +
                 IPv4(host) +
                 "/24 dev eth0 && "
                 "ip addr add " +
                 LinkLocal(host) + "/64 dev eth0 nodad");
    InNetwork(host, [this, host] { _hosts[host].interface = if_nametoindex("eth0"); });
  }
}

void AvahiHosts::Use(int host) const {
  UseNone();
  fs::create_symlink(_hosts[host].folder + "/bus", BusLink());
}

void AvahiHosts::InNetwork(int host, const std::function<void()>& body) const {
  struct Return {
    int network;
    ~Return() { setns(network, CLONE_NEWNET); }
  };
  Check(setns(_hosts[host].network, CLONE_NEWNET) == 0, "network");
  const Return back{_own_network};
  body();
}

void AvahiHosts::Publish(int host, const std::string& name, const std::string& type, int port,
                         const std::vector<std::string>& txt, const std::string& at) const {
  std::string text = "<service-group><name>" + name + "</name><service><type>" + type + "</type><port>" +
                     std::to_string(port) + "</port>";
  if (!at.empty()) text += "<host-name>" + at + "</host-name>";
  for (const std::string& record : txt) {
    const bool pair = record.find('=') != std::string::npos;
    text += std::string("<txt-record") + (pair ? " value-format=\"binary-hex\">" : ">") + record + "</txt-record>";
  }
  // Aside first: the daemon reads a file as soon as it is there.
  const std::string aside = std::to_string(host) + "/" + name;
  _folder.Write(aside, text + "</service></service-group>\n");
  fs::rename(_folder / aside, _hosts[host].folder + "/avahi/services/" + name + ".service");
}

void AvahiHosts::Withdraw(int host, const std::string& name) const {
  fs::remove(_hosts[host].folder + "/avahi/services/" + name + ".service");
}

void AvahiHosts::StopDaemon(int host) {
  _Stop(_hosts[host].daemon, SIGTERM);
}

void AvahiHosts::StartDaemon(int host) {
  _hosts[host].daemon = _Start(_hosts[host], {kDaemon, "--no-drop-root", "--no-chroot", "--no-rlimits"});
  _Await(_hosts[host].daemon, "Server startup complete");
}

void AvahiHosts::StopBus(int host) {
  _Stop(_hosts[host].bus, SIGKILL);
}

void AvahiHosts::StartBus(int host) {
  const std::string& folder = _hosts[host].folder;
  fs::remove(folder + "/bus");
  _hosts[host].bus = _Start(_hosts[host], {kBus, "--nofork", "--print-address", "--config-file", folder + "/bus.conf"});
  _Await(_hosts[host].bus, "unix:path");
}

AvahiHosts::Program AvahiHosts::_Start(const Host& host, const std::vector<std::string>& command) const {
  int ends[2];
  Check(pipe2(ends, O_CLOEXEC) == 0, "pipe");
  // What a daemon prints later is read by nobody, and must not block it.
  fcntl(ends[1], F_SETFL, O_NONBLOCK);
  const pid_t child = fork();
  if (child == 0) RunProgram(host.network, host.folder, command, ends[1]);
  close(ends[1]);
  return {child, ends[0]};
}

void AvahiHosts::_Await(const Program& program, const std::string& ready) const {
  std::string printed;
  pollfd waiting{program.output, POLLIN, 0};
  while (printed.find(ready) == std::string::npos) {
    char chunk[1024];
    const ssize_t got = poll(&waiting, 1, kPatience) > 0 ? read(program.output, chunk, sizeof chunk) : 0;
    if (got <= 0) throw std::runtime_error("not ready: " + printed);
    printed.append(chunk, got);
  }
}

void AvahiHosts::_Command(const Host& host, const std::string& line) const {
  Program shell = _Start(host, {"/bin/sh", "-c", line + " && echo done"});
  const auto finish = [&shell] { _Stop(shell, SIGKILL); };
  try {
    _Await(shell, "done");
  } catch (...) {
    finish();
    throw;
  }
  finish();
}

void AvahiHosts::_Stop(Program& program, int signal) {
  if (program.pid > 0) {
    kill(program.pid, signal);
    waitpid(program.pid, nullptr, 0);
  }
  if (program.output >= 0) close(program.output);
  program = {};
}
