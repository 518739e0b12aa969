// The logger's document on the board's own disk: as XML, so that it can be read, and mended, by hand.
//
// Every version on the disk is a whole one (ReplaceFile of runtime/filesystem.h). A file that holds no document, for
// whatever reason, is put aside under ".damaged", for somebody to look at, and told on standard output.

#pragma once

#include <string>

#include "config/docmoorlog.h"

// All values that a document can set.
void Copy(const DocMoorlog& from, DocMoorlog& to);

class DocumentFile {
 public:
  explicit DocumentFile(std::string path) : _path(std::move(path)) {}

  // The document as it was stored. Without a file, or with a damaged one, it is as it was. Commands, date and time are
  // never stored. Afterwards nothing is marked as changed. A zone that isn't among the choices is told and left out.
  // Throws ErrnoError where a damaged file can't be put aside.
  void Load(DocMoorlog& document);

  // Nothing where the file holds the same already. Throws ErrnoError, or std::runtime_error, with the old file as it
  // was.
  void Save(const DocMoorlog& document);

 private:
  const std::string _path;
  std::string _stored;  // what the file holds
};
