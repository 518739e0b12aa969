#include "station/errands.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <exception>
#include <iostream>

#include "runtime/errnoexcept.h"
#include "runtime/superuser.h"

namespace {

// Only this thread comes through the fork. What others may have locked, memory and streams, the C library unlocks in
// the child.
[[noreturn]] void DoInChild(const std::function<void()>& deed, int words) {
  constexpr int kFirst = STDERR_FILENO + 1;
  if (words != kFirst) dup3(words, kFirst, O_CLOEXEC);
  closefrom(kFirst + 1);
  try {
    deed();
  } catch (const std::exception& error) {
    const std::string text = error.what();
    [[maybe_unused]] const ssize_t written = write(kFirst, text.data(), text.size());
  }
  _exit(0);
}

}  // namespace

void Errands::Do(const std::string& name, std::function<void()> deed) {
  { const SuperUser rights; }
  _lines.try_emplace(name, name).first->second.Do(std::move(deed));
}

void Errands::_Line::Do(std::function<void()> deed) {
  _waiting.push_back(std::move(deed));
  if (!_words.IsOpen()) _Begin();
}

void Errands::_Line::_Begin() {
  if (_waiting.empty()) return;
  int ends[2];
  if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) throw ErrnoError("Unable to create pipe");
  _words._set_fileno(ends[0]);
  const StreamFileBase childs(ends[1]);
  PollProcessor::Instance().EventChange();
  _child = fork();
  if (_child == 0) DoInChild(_waiting.front(), ends[1]);
  if (_child < 0) _error = "no process can be had";  // and the pipe ends at once
}

void Errands::_Line::_Listen() {
  char text[1024];
  const ssize_t size = read(_words.Fileno(), text, sizeof text);
  if (size > 0) return void(_error.append(text, static_cast<size_t>(size)));
  if (size < 0) return;  // nothing yet
  _words._close();
  PollProcessor::Instance().EventChange();
  int status = 0;
  if (_child > 0 && waitpid(_child, &status, 0) == _child && status != 0) _error += "it was cut short";
  if (!_error.empty()) std::cout << "ERROR: " << _name << ": " << _error << std::endl;
  _error.clear();
  _waiting.pop_front();
  _Begin();
}
