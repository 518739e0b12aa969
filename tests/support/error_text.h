// The text of the exception that a call throws, for tables that hold texts; "nothing thrown" when it throws none.

#pragma once

#include <exception>
#include <string>

template <typename Call>
std::string ErrorText(const Call& call) {
  try {
    call();
  } catch (const std::exception& error) {
    return error.what();
  }
  return "nothing thrown";
}
