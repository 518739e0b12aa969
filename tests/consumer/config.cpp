#include <iostream>

#include "config/docmoorlog.h"

int main() {
  DocMoorlog().configuration(std::cout);
}
