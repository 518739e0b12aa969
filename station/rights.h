// The rights that the station works with: an ordinary user's, and root's only where a step says so.
//
// Started as root, it keeps root as its real and saved identity, as the services of the precision time protocol and the
// modules' power need it (runtime/superuser.h), and works with the rights of a user: files, ports and children are
// theirs. Started as anybody else it works with what it has.

#pragma once

#include <sys/types.h>

#include <string>

// Whether root's rights can be had at all.
bool IsRootsProcess();

// Takes the user's identity and groups as effective ones. Nothing for a process that isn't root's, or is that user's
// already. Throws std::runtime_error for a user that there isn't, ErrnoError where the system refuses.
void WorkAs(const std::string& user);

// Puts the effective user back at the end of a scope, for parts that may leave it raised.
class EffectiveUser {
 public:
  EffectiveUser();
  EffectiveUser(const EffectiveUser&) = delete;
  EffectiveUser& operator=(const EffectiveUser&) = delete;
  // A user that can't be put back ends the process: it would go on with rights that it mustn't have.
  ~EffectiveUser();

 private:
  const uid_t _user;
};
