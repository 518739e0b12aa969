// For calls of the system that a stand-in can't do without.

#pragma once

#include "runtime/errnoexcept.h"

// Throws ErrnoError, "Unable to " and the texts joined, where the call has failed. Its errno is still that of the call.
template <class... Text>
void Must(bool succeeded, const Text&... what) {
  if (!succeeded) ThrowErrno("Unable to ", what...);
}
