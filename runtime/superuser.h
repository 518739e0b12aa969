// Root rights for the length of a scope: for a program that runs as an ordinary user and has kept root as its saved
// identity (seteuid(2)).
//
//   {
//     const SuperUser rights;
//     ...  // may throw
//   }
//
// The identity is that of the whole process: whatever other files are opened meanwhile are opened as root too. Keep the
// scope short, on the poll thread, and let no callback run in it. Scopes may be nested.

#pragma once

#include <sys/types.h>

class SuperUser {
 public:
  // Throws std::runtime_error where the rights can't be had; the identity is then what it was.
  SuperUser();
  SuperUser(const SuperUser&) = delete;
  SuperUser& operator=(const SuperUser&) = delete;
  // Restores the effective user that was there before, and leaves errno alone.
  ~SuperUser();

  // For rights that outlive a scope: takes them and returns the effective user that was there before, whom the caller
  // has to restore. Throws as the constructor does.
  static uid_t Gain();

 private:
  const uid_t _user;
};
