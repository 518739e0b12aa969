// A tree of GPIO lines for the body of RunInMountNamespace: /sys/class/gpio on a disk of its own, where a line appears
// when it is exported, and every write is noted. Plain files don't forget their tails, so what counts is what was
// written.
//
// The test program has gpio_tree.cpp among its sources, and links with -Wl,--wrap=write.

#pragma once

#include <filesystem>
#include <fstream>
#include <string>
#include <utility>

#include "tests/support/mount_namespace.h"

class GpioTree {
 public:
  GpioTree() {
    MountEmpty("/sys/class");
    Make("export");
    current = this;
  }
  GpioTree(const GpioTree&) = delete;
  GpioTree& operator=(const GpioTree&) = delete;
  ~GpioTree() { current = nullptr; }

  // Since the last call, as "export=13 gpio13/value=1 ".
  std::string Writes() { return std::exchange(_writes, {}); }

  static void Make(const std::string& name, const std::string& content = {}) {
    std::filesystem::create_directories((kRoot + name).substr(0, (kRoot + name).rfind('/')));
    std::ofstream(kRoot + name) << content;
  }
  static void Export(const std::string& line) {
    for (const char* file : {"/active_low", "/direction", "/value"}) Make("gpio" + line + file);
  }
  void Note(int fd, const std::string& text) {
    std::error_code ignored;
    const std::string path = std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd), ignored);
    if (!path.starts_with(kRoot)) return;
    const std::string name = path.substr(kRoot.size());
    _writes += name + '=' + text + ' ';
    if (name == "export") Export(text);
  }

  static inline GpioTree* current = nullptr;

 private:
  static inline const std::string kRoot = "/sys/class/gpio/";
  std::string _writes;
};
