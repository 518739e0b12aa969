// The streams of a descriptor beside those of the standard library on a file of the same content: what is read and
// written, where they stand, and their state.
//
// Input: one byte for the direction, then operations of two bytes.

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <string>

#include "runtime/streamfile.h"

namespace {

constexpr std::ios_base::seekdir kWays[] = {std::ios_base::beg, std::ios_base::cur, std::ios_base::end};

void Require(bool holds) {
  if (!holds) std::abort();
}

struct File {
  explicit File(size_t size) {
    std::string text;
    while (text.size() < size) text += std::to_string(text.size()) + '\n';
    if (write(descriptor, text.data(), text.size()) < 0) std::abort();
  }
  std::string Content() const {
    std::string text(static_cast<size_t>(lseek(descriptor, 0, SEEK_END)), ' ');
    if (pread(descriptor, text.data(), text.size(), 0) < 0) std::abort();
    return text;
  }
  const int descriptor = memfd_create("content", MFD_CLOEXEC);
  const std::string path = "/proc/self/fd/" + std::to_string(descriptor);
};

// A distance of a seek: near and far, ahead and back.
int Distance(int value) {
  return value % 2 == 0 ? value * value / 2 : -value * 8;
}

// One step of reading; what it gave.
std::string ReadStep(std::istream& in, int operation, int value, bool& unget_fits) {
  std::string text;
  const bool unget = operation % 8 == 0 && unget_fits;
  unget_fits = false;
  switch (operation % 8) {
    case 0:
      if (unget) in.unget();
      break;
    case 1:
      text = std::to_string(in.peek());
      break;
    case 2:
      in.seekg(Distance(value), kWays[value % 3]);
      break;
    case 3:
      text = std::to_string(in.tellg());
      break;
    case 4:
      std::getline(in, text);
      break;
    case 5:
      text.resize(static_cast<size_t>(value * value / 3));
      in.read(text.data(), static_cast<std::streamsize>(text.size()));
      text.resize(static_cast<size_t>(in.gcount()));
      unget_fits = in.gcount() > 0 && in.gcount() < 4'096;  // libstdc++ ungets another byte after a larger read
      break;
    default:
      text = std::to_string(in.get());
      unget_fits = in.good();
  }
  return text;
}

void CheckReading(const uint8_t* at, const uint8_t* end) {
  static const File file(20'000);
  StreamFile own(file.path, O_RDONLY);
  std::ifstream standard(file.path);
  bool unget_fits = false, same_fits = false;
  for (; end - at >= 2; at += 2) {
    errno = EINTR;  // of a call before: it tells nothing about these
    Require(ReadStep(own.IStream(), at[0], at[1], unget_fits) == ReadStep(standard, at[0], at[1], same_fits));
    Require(own.IStream().rdstate() == standard.rdstate());
    own.IStream().clear();
    standard.clear();
  }
}

std::string WriteStep(std::ostream& out, int operation, int value) {
  switch (operation % 4) {
    case 0:
      out.seekp(Distance(value), kWays[value % 3]);
      return {};
    case 1:
      return std::to_string(out.flush().tellp());
    case 2:
      out << std::string(static_cast<size_t>(value * value / 3), static_cast<char>(value));
      return {};
    default:
      for (int i = 0; i < value; ++i) out.put(static_cast<char>(value + i));
      return {};
  }
}

void CheckWriting(const uint8_t* at, const uint8_t* end) {
  static const File file(0), same(0);
  {
    StreamFile own(file.path, O_WRONLY | O_TRUNC);
    std::ofstream standard(same.path);
    for (; end - at >= 2; at += 2) {
      errno = EINTR;
      Require(WriteStep(own.OStream(), at[0], at[1]) == WriteStep(standard, at[0], at[1]));
      Require(own.OStream().rdstate() == standard.rdstate());
      if (at[0] % 4 == 1) Require(file.Content() == same.Content());
      own.OStream().clear();
      standard.clear();
    }
  }
  Require(file.Content() == same.Content());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  (data[0] % 2 == 0 ? CheckReading : CheckWriting)(data + 1, data + size);
  return 0;
}
