// Runs other programs. All but RunProgramAsDaemon block the calling thread until the program has ended, the thread of
// the poll loop too if they are called there.
//
// The command is split by SplitCmdLine; the first word is the program's path (PATH isn't searched) and at most 127
// words, path included, are passed. The environment is passed as it stands; of the descriptors, those from 3 on are
// not, and no signal is blocked. The program is the effective user's, who is its real one as well, so that it can't
// take back rights that this one has laid down. Other threads may run meanwhile, and any thread may call.
//
// The status is the program's exit status, or -1 when a signal ended it. A program that can't be executed is no error
// here: its status is 127, and what went wrong is printed on its standard output. ErrnoError is thrown when there is
// no pipe or no process to be had, or when waiting fails.
//
// Wiring: there is one pipe, on purpose. The program's standard output is its write end and its standard input is its
// read end. So a captured program that reads its standard input gets its own output, one that is sent data gets what it
// prints behind them, and neither ever meets the end of its input. Without a pipe both are closed.

#pragma once

#include <iosfwd>
#include <string>

int RunProgram(const std::string& command);

// Copies the program's standard output to `out`, when the program has ended, and flushes it.
int RunProgram(const std::string& command, std::ostream& out);

// Replaces `out` by the program's standard output.
int RunProgramCaptureStdout(const std::string& command, std::string& out);

// Sends the data in one write, without looking whether they got through. Data beyond the pipe's capacity (pipe(7))
// block until the program reads; if it has ended by then, SIGPIPE follows.
int RunProgramWriteStdin(const std::string& command, const std::string& data);

// Returns as soon as the program is on its way. It runs in a session of its own, ignores SIGHUP, and is nobody's
// child here: its end is not noticed.
void RunProgramAsDaemon(const std::string& command);
