// The name of this host.

#pragma once

#include <string>

// At most 127 characters of the host's name; empty if it can't be read.
std::string Hostname();

// Until the next start only. False without the right to, or for a name that the system refuses.
bool SetHostname(const std::string& name);
