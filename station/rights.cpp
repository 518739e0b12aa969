#include "station/rights.h"

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>

#include "runtime/errnoexcept.h"

bool IsRootsProcess() {
  return getuid() == 0;
}

void WorkAs(const std::string& user) {
  if (!IsRootsProcess()) return;
  const passwd* const entry = getpwnam(user.c_str());
  if (entry == nullptr) throw std::runtime_error("There is no user '" + user + "'");
  if (entry->pw_uid == geteuid()) return;
  if (initgroups(user.c_str(), entry->pw_gid) != 0 || setegid(entry->pw_gid) != 0 || seteuid(entry->pw_uid) != 0)
    ThrowErrno("Unable to work as ", user);
}

EffectiveUser::EffectiveUser() : _user(geteuid()) {}

EffectiveUser::~EffectiveUser() {
  if (geteuid() != _user && seteuid(_user) != 0) std::abort();
}
