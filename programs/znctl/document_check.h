// Checks a formalization document and names what is wrong with it, without loading it. What the
// library would say no to is found by asking the library about the document piece by piece; a
// scratch database of this process's own stands for the one that the types would go to.
#pragma once

#include <string>
#include <vector>

#include "zn/types.h"

namespace zn::ctl {

struct DocumentFault {
  bool isWarning;  // read as it stands, and probably not what is meant
  std::string file;
  u32 line;
  std::string rule;  // a word that stays, for programs
  std::string text;
};

struct DocumentReport {
  std::size_t objectTypes = 0;
  std::size_t alertTypes = 0;
  std::vector<DocumentFault> faults;  // by line

  std::size_t Errors() const;
};

DocumentReport CheckDocument(const std::string& path);

}  // namespace zn::ctl
