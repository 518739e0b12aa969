// What a peer sends over a real socket, in pieces: lines, and blocks that the listener asks for by what it reads. They
// must be those that a simple loop over all bytes finds, whatever the pieces. Each line goes to the methane decoder as
// it came, and once more with its sum put right.
//
// Input: a byte for the size of the pieces, and the bytes. A line "B" and three digits asks for a block of that size,
// and "BX" for one that never comes.

#include <sys/socket.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "analyser/ch4device.h"
#include "net/socket.h"
#include "runtime/datachecksum.h"
#include "runtime/pollprocessor.h"

namespace {

#define REQUIRE(condition) \
  if (!(condition)) abort()

unsigned int BlockAskedBy(const std::string& line) {
  if (line.starts_with("BX")) return UINT32_MAX;
  return line.starts_with('B') && line.size() > 3 ? static_cast<unsigned int>(atoi(line.substr(1, 3).c_str())) : 0;
}

// The records of a whole input, "L" before each line and "B" before each block.
std::vector<std::string> Records(std::string bytes) {
  std::vector<std::string> records;
  for (unsigned int block = 0;;) {
    const size_t end = block > 0 ? block : bytes.find('\n') + 1;
    if (end == 0 || end > bytes.size()) return records;
    records.push_back((block > 0 ? 'B' : 'L') + bytes.substr(0, end));
    block = block > 0 ? 0 : BlockAskedBy(bytes.substr(0, end));
    bytes.erase(0, end);
  }
}

class Decoder : public CH4Device::Listener {
 public:
  Decoder() : _device(false) { _device.RegisterListener(this); }

  void Take(std::string line) {
    _device.HeadGotLine(line);
    line.resize(std::max<size_t>(line.size(), 4) - 4);
    AppendCheckSum(line);
    _device.HeadGotLine(line);
  }
  // As if it had learned nothing.
  void Forget() {
    for (const char* header : {"DATAH     \n", "DATADIAGH \n"}) _device.HeadGotLine(header);
  }

  void GotCH4Data(const CH4Data& data) override {
    REQUIRE(data.errorFlags == 0 || data.errorFlags == 0x20 || data.errorFlags == 0x220);
    for (const double value : data.values) REQUIRE(value == value);
  }

 private:
  CH4Device _device;
};

class Link : public Head::Listener {
 public:
  explicit Link(Decoder& decoder) : _decoder(decoder) {
    Socket door(Socket::FamilyIPv4, Socket::TypeStream, 0);
    SocketAddress address("127.0.0.1");
    door.Bind(address);
    door.Listen(1);
    door.GetSockName(&address);
    _head = std::make_unique<Head>(this, address.Port(), false);
    _head->Connect("127.0.0.1");
    while (!_head->IsConnected()) PollProcessor::Instance().Poll(-1);
    _peer = door.Accept(nullptr);
    // Ends with a reset: thousands of connections that wait out their minute would use up the ports.
    const linger at_once = {1, 0};
    setsockopt(_peer.Fileno(), SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
  }
  ~Link() noexcept override {}

  void Send(const std::string& bytes, size_t piece) {
    for (size_t sent = 0; sent < bytes.size();) {
      sent += _peer.Write(bytes.data() + sent, static_cast<unsigned int>(std::min(piece, bytes.size() - sent)));
      while (_received < sent) PollProcessor::Instance().Poll(-1);
    }
  }
  const std::vector<std::string>& Got() const { return _got; }

  void HeadGotRaw(std::string data) override { _received += data.size(); }
  void HeadGotBLOB(std::string blob) override { _got.push_back('B' + blob); }
  void HeadGotLine(std::string line) override {
    _got.push_back('L' + line);
    _decoder.Take(line);
    if (const unsigned int size = BlockAskedBy(line); size > 0) _head->ExpectBLOB(size);
  }

 private:
  Decoder& _decoder;
  std::unique_ptr<Head> _head;
  Socket _peer;
  size_t _received = 0;
  std::vector<std::string> _got;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static Decoder decoder;
  if (size == 0) return 0;
  const size_t piece = std::max(size_t{data[0]} * data[0], size_t{1});
  const std::string bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
  decoder.Forget();
  Link link(decoder);
  link.Send(bytes, std::max(piece, bytes.size() / 64 + 1));
  REQUIRE(link.Got() == Records(bytes));
  return 0;
}
