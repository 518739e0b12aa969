#include "runtime/errnoexcept.h"

#include <system_error>

ErrnoError::ErrnoError(const std::string& text) : ErrnoError(text, errno) {}

ErrnoError::ErrnoError(const std::string& text, int error)
    : std::runtime_error(text + ": " + std::generic_category().message(error)) {}

StreamFileBaseError::StreamFileBaseError(const std::string& text) : std::runtime_error(text) {}
