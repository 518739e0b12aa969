#include "config/fields.h"

#include <istream>

#include "runtime/numbertext.h"

bool ReadFields(std::istream& in, char separator, std::initializer_list<int*> fields) {
  for (const auto* field = fields.begin(); field != fields.end(); ++field) {
    char c = separator;
    if (field != fields.begin() && in >> c && c != separator) in.setstate(std::ios_base::failbit);
    in >> **field;
  }
  return !in.fail();
}

std::string WrittenFields(char separator, std::initializer_list<Field> fields) {
  std::string text;
  for (const Field& field : fields) {
    if (!text.empty()) text += separator;
    AppendInteger(text, field.value, field.width);
  }
  return text;
}
