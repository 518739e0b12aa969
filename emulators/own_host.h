// What of the machine a process can have for itself: for programs that need user 0, or a port that somebody else may
// have. To be called by a process of one thread; there is no way back.

#pragma once

// User 0: as it is, as its saved identity allows, or in a user namespace of its own, where all files belong to whom
// they did before. False where none of that can be had.
bool BecomeRoot();

// A network with nothing in it but the loopback interface, which is up. False where that can't be had.
bool EnterOwnNetwork();
