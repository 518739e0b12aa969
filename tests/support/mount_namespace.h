// Fixed paths, met by a mount namespace of the test's own: a child sees other files there, the machine doesn't.
//
// Needs the right to mount, and a "/" that is a mount point: in a chroot it may be none.

#pragma once

#include <functional>
#include <string>

#include "emulators/own_host.h"
#include "tests/support/child_process.h"

bool MountNamespaceAvailable();

// ExpectInChild in a new mount namespace. Where that can't be had the test is skipped, and goes on behind this.
void ExpectInMountNamespace(const std::function<void()>& body);

// RunInChild in a new mount namespace, out of which no mount gets.
ChildResult RunInMountNamespace(const std::function<void()>& body);
