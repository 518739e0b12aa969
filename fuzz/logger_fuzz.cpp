// The station's files, against a second form that keeps them in memory, after any calls in any order: what is in each
// file, what is told, what is packed, and that whoever kills the program finds whole lines.
//
// Two bytes are one step: what is called, and with what. zip itself isn't run: the files it is asked for appear, or
// there is no process to be had for it.

#include "logging/logger.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "emulators/temp_directory.h"

namespace fs = std::filesystem;

namespace {

using Files = std::map<std::string, std::string>;  // what each path holds

bool asked_here = false, no_process = false;

}  // namespace

#define RUN_DAEMON "_Z18RunProgramAsDaemonRKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE"
void RealDaemon(const std::string& command) __asm__("__real_" RUN_DAEMON);
void Daemon(const std::string& command) __asm__("__wrap_" RUN_DAEMON);
void Daemon(const std::string& command) {
  if (!asked_here) return RealDaemon(command);
  if (no_process) throw std::runtime_error("none left");
  std::istringstream words(command);
  std::string word, options, archive, text;
  while (words >> word && word != "/usr/bin/zip") options += word + ' ';
  while (words >> word && word[0] == '-') options += word + ' ';
  words >> text;
  if (options != "/bin/nice -n 10 -T -m -j " || words >> archive) std::abort();
  fs::rename(text, word);
}

namespace {

// What a logger should do, in memory and without a bound.
struct SecondForm {
  void Write(const std::string& line) {
    if (split > 0 && seconds >= next) {
      Close(true);
      SetSplit(split);
    }
    if (base.empty()) Open();
    if (!base.empty()) files[base + ".txt.part"] += line;
  }
  void Open() {
    if (!logging || mount.empty() || texts[0].empty() || date.empty() || time.empty() || mount.ends_with("none"))
      return;
    base = mount + '/' + texts[0] + '-' + date + 'T';
    for (const char c : time) base += c == ':' ? "" : std::string(1, c);
    output += "Logging to file: " + base + ".txt.part\n";
    files[base + ".txt.part"] += "Model:\tGPS Logger\nFile Type:\t2\nInstrument:\t" + texts[0] + "\nSerial Number:\t" +
                                 texts[1] + "\nSoftware Version:\t" + texts[2] + "\nTimestamp:\t" + date + ' ' + time +
                                 "\nTimezone:\t" + texts[3] + '\n' + columns;
  }
  void Close(bool pack) {
    if (base.empty()) return;
    const std::string text = base + ".txt";
    files[pack && !no_process ? base + ".zip" : text] = files[text + ".part"];
    files.erase(text + ".part");
    if (pack && !no_process) files.erase(text);
    output += "Stopped logging to file: " + text + ".part\n";
    if (pack) output += "Zipping up file: " + text + '\n';
    if (pack && no_process) output += "ERROR: Unable to zip " + text + ": none left\n";
    base.clear();
  }
  void SetText(size_t which, const std::string& text) {
    if (std::exchange(texts[which], text) != text) Close(true);
  }
  void SetSplit(int length) {
    split = length;
    if (split > 0) next = seconds - seconds % split + split;
  }
  int State() {
    const int now = mount.empty() ? 0 : base.empty() ? 2 : 1;
    const char* const words[] = {"none\n", "logging\n", "not logging\n"};
    if (std::exchange(state, now) != now) output += std::string("Logger::USBState: ") + words[now];
    return now;
  }

  Files files;
  std::string output, mount, date, time, columns, base;  // `base` of the open file
  std::string texts[4] = {"", "", "", "UTC"};
  int seconds = 0, split = 0, next = 0, state = -1;
  bool logging = true;
};

std::string Content(const std::string& path) {
  std::string text(fs::exists(path) ? fs::file_size(path) : 0, ' ');
  std::ifstream(path, std::ios::binary).read(text.data(), static_cast<std::streamsize>(text.size()));
  return text;
}

void Check(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "not so: %s\n", what);
  std::abort();
}

// Whoever kills it finds whole lines, and nearly all of them.
void CheckOpenFile(const SecondForm& expected) {
  if (expected.base.empty()) return;
  const std::string part = expected.base + ".txt.part", written = Content(part), &all = expected.files.at(part);
  Check(all.starts_with(written) && ('\n' + written).ends_with('\n') && written.size() + 8'192 >= all.size(), "lines");
}

void Step(Logger& logger, SecondForm& expected, const TempDirectory& disk, unsigned int what, unsigned int with) {
  static constexpr decltype(&Logger::SetSN) kSetters[] = {&Logger::SetHostname, &Logger::SetSN, &Logger::SetVersion,
                                                          &Logger::SetTimezone};
  const auto any = [with](const std::vector<std::string>& texts) { return texts[with / 4 % texts.size()]; };
  what %= 32;
  if (what == 31) {
    logger.SetMountPath(expected.mount = any({disk.Path(), disk / "none", disk / "b", "", disk.Path()}));
  } else if (what == 30) {
    (logger.*kSetters[with % 4])(any({"a", "b", "b", ""}));
    expected.SetText(with % 4, any({"a", "b", "b", ""}));
  } else if (what == 29) {
    expected.date = any({"2025", "2024", "", "2025"});
    logger.SetDateTime(expected.date, expected.time = with % 4 == 0 ? "1:2" : any({":3:4:5", "7", "", "7"}));
  } else if (what == 28) {
    logger.SetDATAH(expected.columns = any({"DATAH\tX\n", ""}));
    if (!expected.base.empty()) expected.files[expected.base + ".txt.part"] += expected.columns;
  } else if (what == 27) {
    expected.logging = with % 4 != 0;
    expected.logging ? logger.StartLogging() : logger.StopLogging();
    if (!expected.logging) expected.Close(false);
  } else if (what == 26) {
    logger.SetSplitSeconds(static_cast<int>(with % 60) - 10);
    expected.SetSplit(static_cast<int>(with % 60) - 10);
  } else if (what == 25) {
    no_process = with % 4 == 0;
  } else if (what >= 22) {
    logger.SetSeconds(expected.seconds += static_cast<int>(with % 8));
  } else if (what >= 18) {
    Check(expected.State() == logger.USBState(), "its state");
    CheckOpenFile(expected);
  } else {
    const std::string line = std::to_string(expected.seconds) + std::string(what < 2 ? with * 80 : with, '.') + '\n';
    logger.WriteDATA(line, 0);
    expected.Write(line);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const TempDirectory disk("/dev/shm");
  for (const auto& entry : fs::directory_iterator(disk.Path())) fs::remove_all(entry.path());
  disk.Write("b/a-2024T12.txt.part", "before a power cut\n");
  std::ostringstream output;
  std::streambuf* const before = std::cout.rdbuf(output.rdbuf());
  asked_here = true, no_process = false;
  SecondForm expected;
  expected.files[disk / "b/a-2024T12.txt.part"] = "before a power cut\n";
  {
    Logger logger("device", "UTC", false);
    const int64_t expiry = logger.Expiry();
    Check(logger.IsActive() && expiry > PollTimer::Now() + 30'000'000'000, "its first minute");
    logger.HandleTimeout();
    Check(logger.IsActive() && expiry + 60'000'000'000 == logger.Expiry(), "its minutes");
    for (size_t i = 0; i + 1 < size; i += 2) Step(logger, expected, disk, data[i], data[i + 1]);
    expected.Close(false);
  }
  asked_here = false;
  std::cout.rdbuf(before);
  Check(expected.output == output.str(), "what is told");
  Files found;
  for (const auto& entry : fs::recursive_directory_iterator(disk.Path()))
    if (entry.is_regular_file()) found[entry.path()] = Content(entry.path());
  Check(expected.files == found, "the files");
  return 0;
}
