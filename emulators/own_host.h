// What of the machine a process can have for itself: for programs that need user 0, a port that somebody else may have,
// or other files at a fixed path. To be called by a process of one thread; there is no way back.

#pragma once

#include <string>

// User 0: as it is, as its saved identity allows, or in a user namespace of its own, where all files belong to whom
// they did before. False where none of that can be had.
bool BecomeRoot();

// A network with nothing in it but the loopback interface, which is up. False where that can't be had.
bool EnterOwnNetwork();

// Mounts of its own, none of which gets out. False where that can't be had: it takes the right to mount, and a "/" that
// is a mount point, as it may not be in a chroot.
bool EnterOwnMounts();

// Among them, an empty and writable directory over the directory `target`, a disk of its own. `options` are those of
// tmpfs(5), such as "size=64k". Throws ErrnoError.
void MountEmpty(const std::string& target, const std::string& options = "");

// Among them, /sys/class with nothing in it but the GPIO line of that number, exported. Throws ErrnoError.
void MountGpio(int line);
