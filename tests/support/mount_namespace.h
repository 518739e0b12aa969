// Fixed paths, met by a mount namespace of the test's own: a child sees other files there, the machine doesn't.
//
// Needs the right to mount. A test asks first:
//   if (!MountNamespaceAvailable()) GTEST_SKIP() << "needs the right to mount";

#pragma once

#include <functional>
#include <string>

#include "tests/support/child_process.h"

bool MountNamespaceAvailable();

// RunInChild in a new mount namespace, out of which no mount gets.
ChildResult RunInMountNamespace(const std::function<void()>& body);

// For the body; each throws ErrnoError.

// Puts the file or directory `source` over `target`, which exists. A symbolic link in `target` is followed.
void MountOver(const std::string& source, const std::string& target);
// Puts an empty, writable directory over the directory `target`, a disk of its own: `options` are those of tmpfs(5),
// such as "size=64k".
void MountEmpty(const std::string& target, const std::string& options = "");
// Puts a writable copy of the directory `target` over it, for paths that don't exist or are symbolic links, as
// /sys/class/gpio and /etc/localtime may be: copy the directory above them. Links stay links; what can't be read is
// left out.
void MountCopy(const std::string& target);
