#include "runtime/superuser.h"

#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>

SuperUser::SuperUser() : _user(Gain()) {}

uid_t SuperUser::Gain() {
  const uid_t user = geteuid();
  if (seteuid(0) != 0)
    throw std::runtime_error("Unable to gain super user priviledges: " + std::generic_category().message(errno));
  return user;
}

SuperUser::~SuperUser() {
  const int error = errno;
  // Root may take back any identity, so there is nothing to be told here.
  [[maybe_unused]] const int result = seteuid(_user);
  errno = error;
}
