// Serves the files of a directory over HTTP, and a port at which each line is told to everybody there.
//
//   serve                                        a directory with one file, of which it is the first reader itself
//   serve /media/data                            the files in it, not those below
//   serve /media/data --port 8080 --line-port 8081
//
// and meanwhile
//
//   curl http://localhost:8080/                  the names, one a line
//   curl -O http://localhost:8080/NAME
//   nc localhost 8081
//
// Whoever can reach a port is served: see docs/socket-server.md. As the server opens a file for writing too, one that
// may not be written isn't there. A file that grows is sent as far as it went when it was asked for.

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <fstream>
#include <optional>
#include <set>
#include <string_view>

#include "emulators/temp_directory.h"
#include "examples/commandline.h"
#include "net/socketserver.h"
#include "runtime/filesystem.h"
#include "runtime/str_util.h"

namespace {

using Headers = std::map<std::string, std::string>;

// The content type that a browser should be told.
const char* TypeOf(const std::string& name) {
  static const std::pair<const char*, const char*> types[] = {
      {".txt", "text/plain; charset=utf-8"}, {".part", "text/plain; charset=utf-8"},
      {".html", "text/html; charset=utf-8"}, {".xml", "application/xml"},
      {".json", "application/json"},         {".zip", "application/zip"}};
  for (const auto& [ending, type] : types)
    if (name.ends_with(ending)) return type;
  return "application/octet-stream";
}

// A URL's path without the "/" in front and the query behind, its percent signs resolved (RFC 3986); nothing if that
// can't be done.
std::optional<std::string> NameIn(std::string_view url) {
  if (!url.starts_with('/')) return {};
  url = url.substr(1, url.find('?') - 1);
  std::string name;
  for (; !url.empty(); url.remove_prefix(1)) {
    char c = url[0];
    if (c == '%') {
      const std::string_view digits = url.substr(1, 2);
      unsigned char byte = 0;
      const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), byte, 16);
      if (error != std::errc() || end != digits.data() + 2) return {};
      c = static_cast<char>(byte);
      url.remove_prefix(2);
    }
    name += c;
  }
  return name;
}

class Directory {
 public:
  explicit Directory(const std::string& path) : _path(path), _directory(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC) {}

  // A regular file in this directory itself: no path leads out of it, and no link is followed.
  std::optional<StreamFileBase> Open(const std::string& name) const {
    struct stat status;
    if (name.find_first_of(std::string("/\0", 2)) != std::string::npos ||
        ::fstatat(_directory.Fileno(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISREG(status.st_mode))
      return {};
    const int fileno = ::openat(_directory.Fileno(), name.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (fileno < 0) return {};
    return std::optional<StreamFileBase>(std::in_place, fileno);
  }

  std::string Names() const {
    std::set<std::string> names;
    _DirList entries(_path);
    std::string name, all;
    while (entries.GetNextEntry(name, nullptr))
      if (Open(name)) names.insert(name + '\n');
    for (const std::string& line : names) all += line;
    return all;
  }

 private:
  const std::string _path;
  const StreamFile _directory;
};

class FileServer : public SocketServerListener {
 public:
  FileServer(const std::string& directory, int port)
      : _directory(directory), _server(HTTPParser::TypeRequest, Socket::FamilyIPv4) {
    _server.RegisterListener(*this);
    _server.Listen(port);
  }
  int Port() const { return _server.Port(); }
  int Answers() const { return _answers; }
  int Files() const { return _files; }

  void ClientOpened(SocketClient& client) override { _raw[&client] = ""; }
  void GotRequest(SocketClient& client, const std::string& data) override {
    const auto its = _raw.find(&client);
    if (its != _raw.end() && its->second.size() < kLongestHead) its->second += data;
  }
  void GotHTTPRequest(SocketClient& client, std::string url, Headers& headers, std::string body) override {
    const auto its = _raw.find(&client);
    if (its == _raw.end()) return;
    const std::string line = RequestLine(its->second);
    // Asked for more before it has got what it asked for. As it gets no answer it will ask again (RFC 9112, 9.3.2).
    if (client.IsSendingFile()) return Finish(client);
    const std::string method = line.substr(0, line.find(' '));
    const bool known = (method == "GET" || method == "HEAD") && body.empty();
    const Reply reply = {client, method == "HEAD", !known || !WantsMore(line, headers)};
    ++_answers;
    const auto name = NameIn(url);
    if (!known)
      Send(reply, "405 Method Not Allowed\r\nAllow: GET, HEAD", "only files, and only to be read\n");
    else if (name == "")
      Send(reply, "200 OK", _directory.Names());
    else if (const auto file = name ? _directory.Open(*name) : std::nullopt)
      SendFile(reply, *name, *file);
    else
      Send(reply, "404 Not Found", "no such file\n");
    if (reply.last) Finish(client);
  }
  void ClientReadClosed(SocketClient& client) override { client.CloseWhenDone(); }
  void ClientClosed(SocketClient& client) override { _raw.erase(&client); }

 private:
  static constexpr size_t kLongestHead = size_t{100} << 10;  // bytes, more than the parser takes

  struct Reply {
    SocketClient& client;
    bool head;  // without a body
    bool last;  // of this connection
  };

  void Finish(SocketClient& client) {
    _raw.erase(&client);
    client.CloseWhenDone();
  }

  // "GET /name HTTP/1.1", taken off the front of the bytes together with the header block behind it. A body isn't:
  // behind one the connection ends.
  static std::string RequestLine(std::string& raw) {
    raw.erase(0, raw.find_first_not_of("\r\n"));
    std::string line = raw.substr(0, raw.find_first_of("\r\n"));
    raw.erase(0, std::min(raw.find("\n\r\n"), raw.find("\n\n")));
    raw.erase(0, raw.find('\n', 1));
    return line;
  }

  static bool WantsMore(const std::string& line, const Headers& headers) {
    for (const auto& [name, value] : headers) {
      if (CaseInsensitiveStringCompare(name, "Connection") != 0) continue;
      if (CaseInsensitiveStringFind(value, "close", 0) != UINT32_MAX) return false;
      if (CaseInsensitiveStringFind(value, "keep-alive", 0) != UINT32_MAX) return true;
    }
    return !line.ends_with("/1.0");
  }

  static void SendHead(const Reply& reply, const std::string& status, const std::string& type, uint64_t length) {
    reply.client.Write("HTTP/1.1 " + status + "\r\nContent-Type: " + type +
                       "\r\nContent-Length: " + std::to_string(length) +
                       "\r\nConnection: " + (reply.last ? "close" : "keep-alive") + "\r\n\r\n");
  }

  static void Send(const Reply& reply, const std::string& status, const std::string& text) {
    SendHead(reply, status, "text/plain; charset=utf-8", text.size());
    if (!reply.head) reply.client.Write(text);
  }

  void SendFile(const Reply& reply, const std::string& name, const StreamFileBase& file) {
    struct stat status;
    if (::fstat(file.Fileno(), &status) != 0) return reply.client.Close();
    const auto size = static_cast<uint64_t>(status.st_size);
    SendHead(reply, "200 OK", TypeOf(name), size);
    // That very file, whatever has its name by now.
    if (!reply.head) reply.client.WriteFile("/proc/self/fd/" + std::to_string(file.Fileno()), size);
    ++_files;
    std::cout << (reply.head ? "told of " : "sent ") << name << ", " << size << " bytes" << std::endl;
  }

  const Directory _directory;
  int _answers = 0;
  int _files = 0;
  // Of each that may still ask, what has come and belongs to no request yet: a request is told without its method,
  // which stands there.
  std::map<SocketClient*, std::string> _raw;
  SocketServer _server;
};

class LineServer : public SocketServerListener {
 public:
  explicit LineServer(int port) : _server("\n", Socket::FamilyIPv4) {
    _server.RegisterListener(*this);
    _server.Listen(port);
  }
  int Port() const { return _server.Port(); }
  int Lines() const { return _lines; }

  void GotRequest(SocketClient&, const std::string& line) override {
    ++_lines;
    _server.WriteToClients(line);
  }
  void ClientReadClosed(SocketClient& client) override { client.CloseWhenDone(); }

 private:
  int _lines = 0;
  SocketServer _server;
};

// Asks for one file, once.
class Reader : public SocketServerListener {
 public:
  Reader(int port, const std::string& name) : _name(name), _server(HTTPParser::TypeResponse, Socket::FamilyIPv4) {
    _server.PollItem::UnRegister();  // it only dials
    _server.RegisterListener(*this);
    SocketAddress address("127.0.0.1");
    address.Port(port);
    _server.Connect(address, 1);
  }
  void ClientOpened(SocketClient& client) override {
    client.Write("GET /" + _name + " HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n");
  }
  void GotHTTPResponse(SocketClient& client, Headers& headers, std::string body) override {
    std::cout << "read " << _name << ", " << headers["Content-Type"] << ": " << body << std::flush;
    client.Close();
  }

 private:
  const std::string _name;
  SocketServer _server;
};

}  // namespace

int main(int argc, char** argv) {
  CommandLine line("Serves the files of a directory over HTTP, and a port at which each line is told to everybody.");
  std::string directory;
  int port = 0, line_port = 0, seconds = 0;
  line.add_option("directory", directory, "whose files are served; one of its own by default")
      ->check(CLI::ExistingDirectory);
  line.AddNumber("--port", port, 0, 65535, "for HTTP; 0: one of the system's choice");
  line.AddNumber("--line-port", line_port, 0, 65535, "for lines; 0: one of the system's choice");
  line.AddSeconds(seconds);
  line.Read(argc, argv);
  try {
    std::optional<TempDirectory> own;
    if (directory.empty()) {
      directory = own.emplace().Path();
      std::ofstream(directory + "/hello.txt") << "hello\n";
    }
    const FileServer files(directory, port);
    const LineServer lines(line_port);
    std::cout << "files of " << directory << " at http://localhost:" << files.Port() << "/, lines at port "
              << lines.Port() << std::endl;
    std::optional<Reader> reader;
    if (own) reader.emplace(files.Port(), "hello.txt");
    RunLoop(seconds);
    return LastLine({{"answers", files.Answers()}, {"files", files.Files()}, {"lines", lines.Lines()}});
  } catch (const std::exception& error) {
    std::cerr << "ERROR: " << error.what() << std::endl;
    return 1;
  }
}
