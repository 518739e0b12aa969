// moorlog-verify: checks the data files of a station, in whatever form they are: texts, those that are being written,
// archives, day files.
//
//   moorlog-verify FILE|DIRECTORY...        of a directory the files in it
//   moorlog-verify --gap 60 ...             a minute without a record is a finding, too
//
// A line for each finding, "FILE:LINE: what"; in the end a summary. Exit status: 0 without findings, 1 with, 2 for a
// command line that can't be taken. What isn't a data file (soil reports, rows for the upload) is counted and left
// alone.

#include <unistd.h>
#include <zip.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <memory>
#include <regex>
#include <string>
#include <vector>

#include "station/verify.h"

namespace {

namespace fs = std::filesystem;

class Run {
 public:
  explicit Run(double gap) : _gap(gap) {}

  void Add(const fs::path& path) {
    std::error_code ignored;
    if (!fs::is_directory(path, ignored)) return _files.push_back(path);
    std::vector<fs::path> files;
    try {
      for (const fs::directory_entry& entry : fs::directory_iterator(path))
        if (entry.is_regular_file(ignored)) files.push_back(entry.path());
    } catch (const fs::filesystem_error&) {
      _Find(path, 0, "can't be read");
    }
    std::sort(files.begin(), files.end());
    _files.insert(_files.end(), files.begin(), files.end());
  }

  int All() {
    for (const fs::path& path : _files) {
      std::error_code ignored;
      const auto size = fs::file_size(path, ignored);
      _total += ignored ? 0 : size;
    }
    for (const fs::path& path : _files) _Check(path);
    if (_terminal) std::cerr << "\r\x1b[K";
    std::cout << _checked << " files, " << _records << " records, " << _findings << " findings, " << _passed
              << " files left alone" << std::endl;
    return _findings > 0 || !std::cout ? 1 : 0;
  }

 private:
  // A name without the moment in it, or its ending.
  static std::string Family(const std::string& name) {
    static const std::regex moment("-?[0-9]{4}-[0-9]{2}-[0-9]{2}[-T][0-9]{6}|(-2)*\\.(txt|txt\\.part|zip)$");
    return std::regex_replace(name, moment, "");
  }

  static bool IsDataFile(const std::string& name) {
    return !Family(name).ends_with("-soil") && (name.ends_with(".txt") || name.ends_with(".txt.part"));
  }

  void _Check(const fs::path& path) {
    std::error_code gone;
    if (!fs::is_regular_file(path, gone)) return _Find(path, 0, "can't be read");  // a pipe would keep it waiting
    _path = path;
    const std::string name = path.filename();
    if (name.ends_with(".zip"))
      _CheckArchive(path);
    else if (IsDataFile(name))
      _CheckText(path);
    else
      ++_passed;
  }

  template <class Read>
  void _CheckBytes(const std::string& name, Read read) {
    Verifier verifier(_gap, [&](int64_t line, const std::string& what) { _Find(name, line, what); });
    int64_t& last = _last.try_emplace(Family(_path), INT64_MIN).first->second;
    verifier.Follow(last);
    for (int64_t size; (size = read(_buffer.data(), _buffer.size())) > 0;) {
      verifier.Feed({_buffer.data(), static_cast<size_t>(size)});
      _Progress(static_cast<uintmax_t>(size));
    }
    verifier.End();
    last = verifier.Last();
    ++_checked;
    _records += verifier.Records();
  }

  // A file that is being written has nothing in it until its first block is full.
  void _CheckText(const fs::path& path) {
    std::error_code error;
    if (path.extension() == ".part" && fs::file_size(path, error) == 0) return void(++_passed);
    std::ifstream file(path, std::ios::binary);
    if (!file) return _Find(path, 0, "can't be read");
    _CheckBytes(path, [&](char* data, size_t size) {
      file.read(data, static_cast<std::streamsize>(size));
      return int64_t{file.gcount()};
    });
    if (file.bad()) _Find(path, 0, "can't be read to its end");
  }

  void _CheckArchive(const fs::path& path) {
    int error = 0;
    const std::unique_ptr<zip_t, void (*)(zip_t*)> archive(zip_open(path.c_str(), ZIP_RDONLY, &error), zip_discard);
    if (!archive) return _Find(path, 0, "is no archive that can be read");
    for (zip_int64_t i = 0; i < zip_get_num_entries(archive.get(), 0); ++i) {
      const std::string name = path.string() + '/' + zip_get_name(archive.get(), static_cast<zip_uint64_t>(i), 0);
      const std::unique_ptr<zip_file_t, int (*)(zip_file_t*)> file(
          zip_fopen_index(archive.get(), static_cast<zip_uint64_t>(i), 0), zip_fclose);
      if (!file) {
        _Find(name, 0, "can't be read");
        continue;
      }
      bool failed = false;
      _CheckBytes(name, [&](char* data, size_t size) {
        const int64_t read = zip_fread(file.get(), data, size);
        failed |= read < 0;
        return read;
      });
      if (failed) _Find(name, 0, "can't be read to its end");
    }
  }

  void _Find(const std::string& file, int64_t line, const std::string& what) {
    if (_terminal) std::cerr << "\r\x1b[K";
    std::cout << file << ':' << line << ": " << what << '\n';
    ++_findings;
  }

  // What an archive unpacks to counts as well, so it may come to more than there is.
  void _Progress(uintmax_t bytes) {
    constexpr uintmax_t kStep = 100'000'000;
    const uintmax_t before = _bytes / kStep;
    _bytes += bytes;
    if (_terminal && _bytes / kStep != before)
      std::cerr << "\r\x1b[K" << _bytes / 1'000'000 << " of " << _total / 1'000'000 << " MB" << std::flush;
  }

  const double _gap;
  const bool _terminal = isatty(STDERR_FILENO) == 1;
  std::vector<fs::path> _files;
  std::string _path;                     // of the one that is looked at
  std::map<std::string, int64_t> _last;  // its last record's time, by family
  std::vector<char> _buffer = std::vector<char>(1 << 20);
  uintmax_t _bytes = 0, _total = 0;
  int64_t _records = 0, _findings = 0, _checked = 0, _passed = 0;
};

}  // namespace

int main(int argc, char** argv) try {
  CLI::App app("Checks the data files of a station: sums, columns, times.");
  std::vector<std::string> paths;
  double gap = 0;
  app.set_version_flag("--version", MOORLOG_VERSION);
  app.add_option("files", paths, "files, and directories of them")->required()->check(CLI::ExistingPath)->type_name("");
  app.add_option("--gap", gap, "tell each time without a record that is longer than so many seconds")
      ->check(CLI::Range(0.001, 1e9))
      ->type_name("SECONDS");
  try {
    app.parse(argc, argv);
    if (std::isnan(gap)) throw CLI::ValidationError("--gap", "that is no number");  // it is in every range
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : 2;
  }
  Run run(gap);
  for (const std::string& path : paths) run.Add(path);
  return run.All();
} catch (const std::exception& error) {
  std::cerr << "ERROR: " << error.what() << std::endl;
  return 1;
}
