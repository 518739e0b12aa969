// Small state that survives restarts and power cuts: one JSON object (RFC 8259) in a file of its own.
//
// A reader finds the last state that was written as a whole, whenever the program or the power went. Both functions go
// to the disk each time and keep nothing. One writer for each path; any thread.

#pragma once

#include <jsoncpp/json/value.h>

#include <string>

// The object in the file; an empty one where there is no regular file, no JSON, or another value than an object. Never
// throws for what the file holds.
Json::Value ReadStateFile(const std::string& path);

// Replaces the file: the text goes into a file beside it, with ".new" behind its name, which takes its place when it
// has reached the disk. Makes the directory, one level, if it is missing. Throws std::runtime_error, ErrnoError where
// the system failed; the old file is left as it was then, and the one beside it may stay.
void WriteStateFile(const std::string& path, const Json::Value& state);
