#include "tests/support/mount_namespace.h"

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <filesystem>

#include "runtime/errnoexcept.h"
#include "tests/support/temp_directory.h"

namespace {

bool Enter() {
  return unshare(CLONE_NEWNS) == 0 && mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

}  // namespace

bool MountNamespaceAvailable() {
  static const bool available = RunInChild([] { _exit(Enter() ? 0 : 1); }).exit_status == 0;
  return available;
}

ChildResult RunInMountNamespace(const std::function<void()>& body) {
  return RunInChild([&body] {
    if (!Enter()) throw ErrnoError("mount namespace");
    body();
  });
}

void MountOver(const std::string& source, const std::string& target) {
  if (mount(source.c_str(), target.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0) throw ErrnoError(target);
}

void MountEmpty(const std::string& target, const std::string& options) {
  if (mount("tmpfs", target.c_str(), "tmpfs", 0, options.c_str()) != 0) throw ErrnoError(target);
}

// The copy is made aside and then put in place: the original never stands where a TempDirectory would remove it.
void MountCopy(const std::string& target) {
  namespace fs = std::filesystem;
  const TempDirectory aside;
  MountEmpty(aside.Path());
  constexpr auto kAll = fs::copy_options::recursive | fs::copy_options::copy_symlinks;
  std::error_code left_out;
  for (const auto& entry : fs::directory_iterator(target))
    fs::copy(entry.path(), aside / entry.path().filename(), kAll, left_out);
  MountOver(aside.Path(), target);
  umount2(aside.Path().c_str(), MNT_DETACH);
}
