#include "emulators/avahi_hosts.h"

#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <utility>

namespace fs = std::filesystem;

namespace {

constexpr const char* kBusSettings =
    "</listen><type>system</type><auth>EXTERNAL</auth><policy context='default'><allow user='*'/><allow own='*'/>"
    "<allow send_destination='*'/><allow receive_sender='*'/></policy></busconfig>";
constexpr const char* kDaemonSettings = "\nallow-interfaces=eth0\nentries-per-entry-group-max=100\n";

// The library reads the address of the bus once in the life of a process, so the address stays and what stands there
// changes: a link to the bus of the host in use.
const std::string& BusLink() {
  static const TempDirectory folder;
  static const std::string link = folder / "bus";
  setenv("DBUS_SYSTEM_BUS_ADDRESS", ("unix:path=" + link).c_str(), 1);
  return link;
}

// Before any test starts: none meets the machine's own bus.
[[maybe_unused]] const std::string& bus_link = BusLink();

void Command(const std::string& line) {
  if (std::system(line.c_str()) != 0) throw std::runtime_error("failed: " + line);
}

int OpenNetwork(const std::string& process) {
  return open(("/proc/" + process + "/ns/net").c_str(), O_RDONLY | O_CLOEXEC);
}

}  // namespace

// What it prints once it is ready is read by nobody, and is far less than a pipe holds.
struct AvahiHosts::Program {
  explicit Program(const std::string& line)
      : output(popen(("echo $$; exec setpriv --pdeathsig KILL " + line + " 2>&1").c_str(), "re")), id(Await("\n")) {
    id.pop_back();
  }
  ~Program() { Stop(SIGKILL); }

  // Returns what it has printed when `ready` is there.
  std::string Await(const std::string& ready) const {
    std::string printed;
    while (printed.find(ready) == std::string::npos) {
      const int byte = std::getc(output);
      if (byte == EOF) throw std::runtime_error("not ready: " + printed);
      printed += static_cast<char>(byte);
    }
    return printed;
  }

  void Stop(int signal) {
    if (output == nullptr) return;
    kill(std::stoi(id), signal);
    pclose(std::exchange(output, nullptr));
  }

  FILE* output;
  std::string id;  // of the process
};

// A namespace that is entered again shows its own "/", which in a chroot isn't ours.
std::string AvahiHosts::Missing() {
  static const TempDirectory here;
  static const int status =
      std::system(("exec >/dev/null 2>&1; unshare --net --mount sh -ec 'ip link add type veth; dbus-daemon --version; "
                   "/usr/sbin/avahi-daemon --version; nsenter --net --mount --target $$ test -d " +
                   here.Path() + "'")
                      .c_str());
  return status == 0 ? "" : "needs avahi-daemon, dbus-daemon, the right to make networks, and no chroot around it";
}

void AvahiHosts::UseNone() {
  fs::remove(BusLink());
}

AvahiHosts::AvahiHosts() : _hosts(2) {
  for (int i : {0, 1}) {
    Host& host = _hosts[i];
    host.folder = _folder / Name(i);
    _folder.Write(Name(i) + "/bus.conf", "<busconfig><listen>unix:path=" + host.folder + "/bus" + kBusSettings);
    _folder.Write(Name(i) + "/avahi-daemon.conf", "[server]\nhost-name=" + Name(i) + kDaemonSettings);
    _folder.Write(Name(i) + "/hosts", std::string(kFarAddress) + ' ' + kFarName + '\n');
    fs::create_directory(host.folder + "/services");
    host.machine = std::make_unique<Program>("unshare --net --mount sh -ec 'mount -t tmpfs none /run; mount --bind " +
                                             host.folder + " /etc/avahi; echo ready; exec sleep infinity'");
    host.machine->Await("ready");
  }
  Command(_On(0) + "ip link add eth0 type veth peer name eth0 netns " + _hosts[1].machine->id);
  for (int i : {0, 1}) {
    // Addresses that are there at once: without the second in which the kernel asks whether another host has them.
    Command(_On(i) + "sh -ec 'ip link set eth0 addrgenmode none; ip link set lo up; ip link set eth0 up; " +
            "ip addr add " + IPv4(i) + "/24 dev eth0; ip addr add " + LinkLocal(i) + "/64 dev eth0 nodad'");
    _hosts[i].bus = std::make_unique<Program>(_On(i) + "dbus-daemon --nofork --print-address --config-file " +
                                              _hosts[i].folder + "/bus.conf");
    _hosts[i].bus->Await("unix:path");
    // Both daemons at once, as each takes a second to make sure of its name.
    _LaunchDaemon(i);
  }
  for (const Host& host : _hosts) host.daemon->Await("Server startup complete");
  Use(0);
}

AvahiHosts::~AvahiHosts() {
  UseNone();
}

void AvahiHosts::Use(int host) const {
  UseNone();
  fs::create_symlink(_hosts[host].folder + "/bus", BusLink());
}

void AvahiHosts::InNetwork(int host, const std::function<void()>& body) const {
  const struct Back {
    ~Back() {
      setns(network, CLONE_NEWNET);
      close(network);
    }
    const int network = OpenNetwork("thread-self");
  } back;
  const int other = OpenNetwork(_hosts[host].machine->id);
  const bool entered = setns(other, CLONE_NEWNET) == 0;
  close(other);
  if (!entered) throw std::runtime_error("no way into the network of " + Name(host));
  body();
}

void AvahiHosts::Readdress(int host, int number) const {
  Command(_On(host) + "sh -ec 'ip addr flush dev eth0; ip addr add " + IPv4(number) + "/24 dev eth0; ip addr add " +
          LinkLocal(number) + "/64 dev eth0 nodad'");
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
  _folder.Write(name, text + "</service></service-group>\n");
  fs::rename(_folder / name, _hosts[host].folder + "/services/" + name + ".service");
}

void AvahiHosts::Withdraw(int host, const std::string& name) const {
  fs::remove(_hosts[host].folder + "/services/" + name + ".service");
}

void AvahiHosts::StopDaemon(int host) {
  _hosts[host].daemon->Stop(SIGTERM);
}

void AvahiHosts::StartDaemon(int host) {
  _LaunchDaemon(host);
  _hosts[host].daemon->Await("Server startup complete");
}

void AvahiHosts::StopBus(int host) {
  _hosts[host].bus->Stop(SIGKILL);
}

// The head of a command line that is run on that host.
std::string AvahiHosts::_On(int host) const {
  return "nsenter --net --mount --target " + _hosts[host].machine->id +
         " env DBUS_SYSTEM_BUS_ADDRESS=unix:path=" + _hosts[host].folder + "/bus ";
}

void AvahiHosts::_LaunchDaemon(int host) {
  _hosts[host].daemon =
      std::make_unique<Program>(_On(host) + "/usr/sbin/avahi-daemon --no-drop-root --no-chroot --no-rlimits");
}
