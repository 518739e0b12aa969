// Lists the services of a type on the local network, with addresses and TXT strings, until interrupted.
//
//   browse                        analyser heads
//   browse _http._tcp             another type
//   browse --offer meadow ...     offers such a service itself, at port 5500, so that there is one to find
//   browse --seconds 10 ...       ends by itself
//
// Needs an Avahi daemon on this host (apt-get install avahi-daemon). While there is none it says so and goes on trying.
// A daemon that ends later isn't noticed: restart this program after the daemon.

#include <iostream>
#include <string>

#include "examples/commandline.h"
#include "examples/timer.h"
#include "net/bonjourclient.h"
#include "runtime/pollprocessor.h"

namespace {

struct Options {
  std::string type = "_tarno-tn5500._tcp";
  std::string offer;
  int seconds = 0;  // 0: no end
};

Options Read(int argc, char** argv) {
  constexpr size_t kLongestName = 63;  // bytes, as of every label in DNS
  Options options;
  CommandLine line("Lists the services of a type on the local network, with addresses and TXT strings.");
  line.add_option("type", options.type, "as in _http._tcp")->capture_default_str()->check([](const std::string& type) {
    const bool service = type.starts_with('_') && (type.ends_with("._tcp") || type.ends_with("._udp"));
    return service ? "" : "'" + type + "' is no service type such as _http._tcp";
  });
  line.add_option("--offer", options.offer, "offer such a service under this name as well")
      ->check([](const std::string& name) {
        return !name.empty() && name.size() <= kLongestName ? "" : "a service's name has 1 to 63 bytes";
      });
  line.AddSeconds(options.seconds);
  line.Read(argc, argv);
  return options;
}

// TXT strings may be any bytes, the terminal shouldn't get them.
std::string Printable(const std::string& bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= ' ' && byte < 0x7F)
      text += c;
    else
      text.append("\\x") += {kDigits[byte >> 4], kDigits[byte & 15]};
  }
  return text;
}

class Browser : public BonjourClientListener {
 public:
  explicit Browser(const Options& options) : _options(options), _retry(-1, [this] { _Retry(); }), _client(this) {
    _Start();
  }

  int Found() const { return _found; }
  int Gone() const { return _gone; }

  void AddService(std::string name, std::string, std::string, unsigned int interface, std::string host,
                  const SocketAddress& address, const std::map<std::string, std::string>& txt) override {
    ++_found;
    std::cout << "found " << Printable(name) << ": " << address.Presentation() << " port " << address.Port() << ", "
              << Printable(host) << ", interface " << interface << '\n';
    for (const auto& [key, value] : txt) std::cout << "      " << Printable(key) << '=' << Printable(value) << '\n';
    std::cout.flush();
  }

  void RemoveService(std::string name, std::string, std::string) override {
    ++_gone;
    std::cout << "gone  " << Printable(name) << std::endl;
  }

  void ServiceError(std::string message) override {
    std::cout << Printable(message.substr(0, message.find('\n'))) << std::endl;
    if (message != "Unable to create Avahi client\n") return;
    std::cout << "No Avahi daemon answers; the next try is in 5 seconds" << std::endl;
    _retry.SetTimeout(5000);
  }

 private:
  void _Start() {
    _client.Browse(_options.type);
    if (!_options.offer.empty())
      _client.Register(_options.offer, _options.type, "", 5500, {{"program", "browse"}}, true);
  }

  void _Retry() {
    _client.Clear();
    _Start();
  }

  const Options _options;
  int _found = 0;
  int _gone = 0;
  Timer _retry;  // before the client, which may need it at once
  BonjourClient _client;
};

}  // namespace

int main(int argc, char** argv) {
  const Options options = Read(argc, argv);
  std::cout << "browsing for " << options.type << std::endl;
  const Browser browser(options);
  RunLoop(options.seconds);
  return LastLine({{"found", browser.Found()}, {"gone", browser.Gone()}});
}
