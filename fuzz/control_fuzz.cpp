// Bytes into the control port, in pieces, over a socket: the answers are those to a plain cutting into lines. Then each
// line into a whole station: its answer is a line, and what it stores can be read again.
//
// A byte of 0xFF begins a new piece. Lines that would look up a host are left out of the second half, which runs as
// nobody: nothing that a document asks for can be done to this machine.

#include <grp.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "bench/silence.h"
#include "net/socket.h"
#include "runtime/pollprocessor.h"
#include "station/controlport.h"
#include "station/station.h"

namespace {

void Require(bool condition) {
  if (!condition) std::abort();
}

std::string Echo(const std::string& request) {
  if (request.find('!') != std::string::npos) throw std::runtime_error(request);
  return '<' + request + '>';
}

std::vector<std::string> LinesOf(std::string bytes) {
  std::erase(bytes, '\xFF');
  std::vector<std::string> lines;
  for (size_t end; (end = bytes.find('\n')) != std::string::npos; bytes.erase(0, end + 1)) {
    std::string line = bytes.substr(0, end);
    if (line.ends_with('\r')) line.pop_back();
    if (!line.empty()) lines.push_back(line);
  }
  return lines;
}

void Exchange(const std::string& bytes, const std::vector<std::string>& lines) {
  static ControlPort port(0, "", Echo);
  std::string expected, got;
  for (const std::string& line : lines)
    // The text of an exception ends at a NUL.
    expected += (line.find('!') == std::string::npos ? '<' + line + '>' : "ERROR: " + std::string(line.c_str())) + '\n';
  Socket tool(Socket::FamilyIPv4, Socket::TypeStream, 0);
  SocketAddress address("127.0.0.1");
  address.Port(port.Port());
  tool.Connect(address);
  std::istringstream pieces(bytes);
  for (std::string piece; std::getline(pieces, piece, '\xFF');) {
    if (!piece.empty()) tool.Write(piece);
    PollProcessor::Instance().Poll(0);
  }
  tool.Shutdown(Socket::ShutdownWrite);
  for (char block[4096];;) {
    const ssize_t size = recv(tool.Fileno(), block, sizeof block, MSG_DONTWAIT);
    if (size == 0) break;
    if (size > 0) got.append(block, static_cast<size_t>(size));
    PollProcessor::Instance().Poll(1);
  }
  Require(got == expected);
}

struct Nobodys {
  Nobodys() {
    constexpr uid_t kNobody = 65'534;
    if (geteuid() == 0)
      Require(setgroups(0, nullptr) == 0 && setresgid(kNobody, kNobody, kNobody) == 0 &&
              setresuid(kNobody, kNobody, kNobody) == 0);
    Require(mkdtemp(directory.data()) != nullptr);
    Settings settings;
    settings.name = "bog";
    settings.state = directory + "/state";
    settings.disk.path = directory + "/disk";
    settings.disk.board = true;
    settings.control.port = 0;
    settings.control.interface = "";
    station = std::make_unique<Station>(settings);
  }
  Nobodys(const Nobodys&) = delete;
  Nobodys& operator=(const Nobodys&) = delete;
  ~Nobodys() {
    station.reset();
    std::error_code ignored;
    std::filesystem::remove_all(directory, ignored);
  }

  std::string directory = "/tmp/moorlog-control-XXXXXX";
  std::unique_ptr<Station> station;
};

std::string Zones() {
  std::ostringstream zones;
  ConfigTimezone().write_doctype(zones);
  return zones.str();
}

void AskStation(const std::string& line) {
  static Nobodys nobodys;
  static const std::string zones = Zones();
  for (const char* host : {"head", "soil", "loggeraddress"})
    if (line.find(host) != std::string::npos) return;
  try {
    const std::string answer = nobodys.station->Answer(line);
    Require(answer.find('\n') == std::string::npos);
    Require(Zones() == zones);
    Require(answer.find("<ack>true</ack>") == std::string::npos || answer.find("<error>") == std::string::npos);
  } catch (const std::runtime_error&) {
    Require(line.find('<') == std::string::npos);
  }
  const std::string stored = nobodys.directory + "/state/moorlog.xml";
  if (access(stored.c_str(), F_OK) != 0) return;
  DocMoorlog document;
  DocumentFile(stored).Load(document);
  Require(access(stored.c_str(), F_OK) == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Silence silence;
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  const std::vector<std::string> lines = LinesOf(bytes);
  Exchange(bytes, lines);
  for (const std::string& line : lines) AskStation(line);
  return 0;
}
