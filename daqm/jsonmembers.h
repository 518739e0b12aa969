// The members of a JSON object in the order of their names, without copies of them.

#pragma once

#include <jsoncpp/json/value.h>

#include <string_view>

// Calls visit(name, value) for each. Null has none; what is neither null nor an object throws jsoncpp's error.
template <typename Visit>
void ForEachMember(const Json::Value& object, Visit visit) {
  if (!object.isObject()) object.getMemberNames();
  for (auto member = object.begin(); member != object.end(); ++member) {
    const char* end = nullptr;
    const char* const name = member.memberName(&end);
    visit(std::string_view(name, static_cast<size_t>(end - name)), *member);
  }
}
