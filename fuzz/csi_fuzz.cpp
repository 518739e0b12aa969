// What the Campbell logger replies, against a plain second reading of it: lines, stored files, the remembered time and
// what is thrown.
//
// Input: a byte of choice, and the bytes. They are bodies of JSON, one after another with 0x1e between two; or the same
// as replies, by their length and in chunks, in pieces of any size; or bytes of the connection, whole and in pieces; or
// the file that remembers.

#include <jsoncpp/json/reader.h>
#include <jsoncpp/json/writer.h>

#include <strings.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iterator>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "csi/pullcsi.h"
#include "emulators/temp_directory.h"
#include "emulators/virtual_time.h"

namespace {

#define REQUIRE(condition) \
  if (!(condition)) abort()

constexpr char kNext = 0x1e;
constexpr const char* kTable = "MoorcloudData";

using Bodies = std::vector<std::string>;
using Files = std::map<std::string, std::string>;

Files FilesIn(const std::string& directory) {
  Files files;
  for (const auto& entry : std::filesystem::directory_iterator(directory)) {
    std::ifstream file(entry.path(), std::ios::binary);
    files[entry.path().filename()] = {std::istreambuf_iterator<char>(file), {}};
  }
  return files;
}

// --- the second reading ---

const Json::Value kNull;

const Json::Value& At(const Json::Value& value, const char* name) {
  return value.isObject() && value.isMember(name) ? value[name] : kNull;
}

std::string Text(const Json::Value& value) {
  try {
    return value.asString();
  } catch (const Json::Exception&) {
    return "";
  }
}

bool Truth(const Json::Value& value) {
  try {
    return value.asBool();
  } catch (const Json::Exception&) {
    return false;
  }
}

bool Numbers(const std::string& text, int* numbers, int count) {
  std::istringstream in(text);
  for (int i = 0; i < count; ++i) {
    if (i > 0) in.get();
    in >> numbers[i];
  }
  return !in.fail();
}

time_t Moment(const int* numbers) {
  tm when{};
  when.tm_year = numbers[0] < INT32_MIN + 1900 ? INT32_MIN : numbers[0] - 1900;
  when.tm_mon = numbers[1] == INT32_MIN ? INT32_MIN : numbers[1] - 1;
  when.tm_mday = numbers[2];
  when.tm_hour = numbers[3];
  when.tm_min = numbers[4];
  when.tm_sec = numbers[5];
  when.tm_isdst = -1;
  return mktime(&when);
}

bool IsValid(const std::string& text) {
  int numbers[6];
  if (!Numbers(text, numbers, 6)) return false;
  const int64_t ahead = int64_t{Moment(numbers)} - time(nullptr);
  return -31'557'600 < ahead && ahead < 86'400;
}

bool SameName(const std::string& first, const std::string& second) {
  return strcasecmp(first.c_str(), second.c_str()) == 0 && first.size() == second.size();
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
std::string Written(const Json::Value& document) {
  return Json::FastWriter().write(document);
}
#pragma GCC diagnostic pop

struct Plain {
  std::string directory, last, log;
  Json::Value fields;
  std::vector<int> types;
  bool stored = false;

  void Take(const std::string& body) {
    Json::Value root;
    std::istringstream in(body);
    in >> root;
    const Json::Value* const parents[] = {&root, &At(root, "head"), &At(At(root, "head"), "environment")};
    for (const Json::Value* parent : parents)
      if (!parent->isNull() && !parent->isObject()) return;
    const std::string table = Text(At(*parents[2], "table_name"));
    const Json::Value row = At(root, "data").isArray() && !At(root, "data").empty() ? root["data"][0] : kNull;
    const std::string time = Text(At(row, "time"));
    root["head"]["environment"]["timezone"] = "Bog/Edge";
    if (SameName(table, "Public")) return TakeLive(At(root["head"], "fields"), time, At(row, "vals"));
    if (!SameName(table, kTable) || !IsValid(time) || (IsValid(last) && time <= last)) return;
    std::string name = time;
    std::erase(name, ':');
    std::ofstream(directory + "/ws-" + name + ".json") << Written(root);
    last = time;
    stored = true;
  }
  void TakeLive(const Json::Value& now, const std::string& time, const Json::Value& values) {
    if (now != fields) {
      fields = now;
      types.clear();
      log += "DATALOGGERH\tSECONDS\tNANOSECONDS\t";
      for (Json::ArrayIndex i = 0; fields.isArray() && i < fields.size(); ++i) {
        const std::string type = Text(At(fields[i], "type"));
        types.push_back(type.find("float") != type.npos ? 1 : type.find("boolean") != type.npos ? 2 : 0);
        if (types.back() != 0) log += Text(At(fields[i], "name")) + '\t';
      }
      log += "CHK\n";
    }
    int numbers[7];
    const bool timed = Numbers(time, numbers, 7);
    std::ostringstream line;
    line << std::setfill('0') << "DATALOGGER\t" << (timed ? Moment(numbers) : 0) << '\t'
         << (timed ? static_cast<int32_t>(numbers[6] * int64_t{1'000'000}) : 0) << '\t';
    for (Json::ArrayIndex i = 0; values.isArray() && i < values.size() && i < types.size(); ++i) {
      if (types[i] == 1) line << std::strtod(Text(values[i]).c_str(), nullptr) << '\t';
      if (types[i] == 2) line << Truth(values[i]) << '\t';
    }
    unsigned int sum = 0;
    for (const char byte : line.str()) sum += static_cast<unsigned char>(byte);
    line << std::setw(3) << sum % 256 << '\n';
    log += line.str();
  }
};

// --- the system's ---

struct Pull : PullCSI, PullCSI::Listener {
  using PullCSI::Listener;
  Pull(LinuxClock& clock, const std::string& rows, const std::string& conf) : PullCSI(clock, rows, conf, 60, false, 1) {
    RegisterListener(this);
  }
  ~Pull() noexcept override = default;
  void GotCSIHeader(std::string line) override { log += line; }
  void GotCSIData(std::string line) override { log += line; }
  // Nobody listens from now on.
  void Leave() {
    RegisterListener(nullptr);
    alone = true;
  }
  std::string log;
  bool alone = false;
};

class World {
 public:
  World() {
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    _directory.Write("tree/Bog/Edge", "");
    _directory.Write("zone", "Bog/Edge\n");
    _clock = std::make_unique<LinuxClock>(_directory / "tree", _directory / "link", _directory / "zone", "");
  }
  // Nothing stored and nothing remembered.
  void Clear() {
    for (const char* name : {"ours", "plain", "conf"}) {
      std::filesystem::create_directory(_directory / name);
      for (const auto& entry : std::filesystem::directory_iterator(_directory / name))
        std::filesystem::remove(entry.path());
    }
    plain = {};
    plain.directory = _directory / "plain";
  }
  void Remember(const std::string& bytes) { _directory.Write("conf/PullCSI.conf", bytes); }
  Pull NewPull() { return {*_clock, _directory / "ours", _directory / "conf"}; }

  // Whether both threw.
  bool Take(Pull& pull, const std::string& body) {
    std::map<std::string, std::string> headers = {{"Content-type", "Application/JSON; charset=utf-8"}};
    const bool thrown = Throws([&] { plain.Take(body); });
    REQUIRE(Throws([&] { pull.HTTPGotResponse(headers, body); }) == thrown);
    Compare(pull);
    return thrown;
  }
  void Compare(const Pull& pull) const {
    REQUIRE(pull.log == (pull.alone ? "" : plain.log));
    REQUIRE(FilesIn(_directory / "ours") == FilesIn(_directory / "plain"));
    if (!plain.stored) return;
    Json::Value conf;
    std::istringstream(_directory.Read("conf/PullCSI.conf")) >> conf;
    REQUIRE(conf.size() == 1 && conf["last_timestamp"] == plain.last);
  }
  template <typename Step>
  static bool Throws(Step step) {
    try {
      step();
    } catch (const std::exception&) {
      return true;
    }
    return false;
  }

  Plain plain;

 private:
  VirtualTime _time{1'714'566'600};  // 2024-05-01 14:30:00 in the zone
  const TempDirectory _directory{TempDirectory::Memory()};
  std::unique_ptr<LinuxClock> _clock;
};

std::string Reply(const std::string& body, size_t chunk) {
  std::ostringstream reply;
  reply << "HTTP/1.1 200 OK\r\nServer: logger\r\nCONTENT-TYPE: application/json\r\n";
  if (chunk == 0) {
    reply << "Content-Length: " << body.size() << "\r\n\r\n" << body;
    return reply.str();
  }
  reply << "Transfer-Encoding: chunked\r\n\r\n" << std::hex;
  for (size_t at = 0; at < body.size(); at += chunk)
    reply << std::min(chunk, body.size() - at) << "\r\n" << body.substr(at, chunk) << "\r\n";
  reply << "0\r\n\r\n";
  return reply.str();
}

// Up to the first throw.
bool Feed(Pull& pull, const std::string& bytes, size_t piece) {
  return World::Throws([&] {
    for (size_t at = 0; at < bytes.size(); at += piece) pull.HeadGotRaw(bytes.substr(at, piece));
  });
}

void CheckReplies(World& world, const Bodies& bodies, size_t size) {
  Pull pull = world.NewPull();
  std::string bytes;
  bool thrown = false;
  for (const std::string& body : bodies) {
    bytes += Reply(body, bytes.empty() ? size : 0);
    thrown = thrown || World::Throws([&] { world.plain.Take(body); });
    if (thrown) break;
  }
  REQUIRE(Feed(pull, bytes, size + 1) == thrown);
  world.Compare(pull);
  // The next connection finds a parser that is as new.
  pull.HeadConnected("");
  const std::string last = R"({"head":{"environment":{"table_name":"PUBLIC"},"fields":[]}})";
  world.plain.Take(last);
  REQUIRE(!Feed(pull, Reply(last, 0), size + 1));
  world.Compare(pull);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  static World world;
  world.Clear();
  const std::string bytes(reinterpret_cast<const char*>(data) + 2, size - 2);
  Bodies bodies;
  std::istringstream in(bytes);
  for (std::string body; std::getline(in, body, kNext);) bodies.push_back(body);
  switch (data[0] % 8) {
    case 0: {
      world.Remember(bytes);
      Pull pull = world.NewPull();
      Json::Value conf;
      std::istringstream file(bytes);
      if (!World::Throws([&] { file >> conf; })) world.plain.last = Text(At(conf, "last_timestamp"));
      world.Take(pull,
                 R"({"head":{"environment":{"table_name":"moorclouddata"}},"data":[{"time":"2024-05-01T14:00:00"}]})");
      break;
    }
    case 1: {
      Pull whole = world.NewPull();
      const bool thrown = Feed(whole, bytes, bytes.size() + 1);
      const Files files = FilesIn(world.plain.directory + "/../ours");
      world.Clear();
      Pull pieces = world.NewPull();
      REQUIRE(Feed(pieces, bytes, size_t{1} + data[1]) == thrown);
      REQUIRE(pieces.log == whole.log && FilesIn(world.plain.directory + "/../ours") == files);
      break;
    }
    case 2:
      CheckReplies(world, bodies, data[1]);
      break;
    default: {
      Pull pull = world.NewPull();
      if ((data[0] & 8) != 0) pull.Leave();
      for (const std::string& body : bodies) world.Take(pull, body);
    }
  }
  return 0;
}
