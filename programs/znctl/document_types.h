// Checks that concern the object types of a document together: circles, the rules of creation.
#pragma once

#include <functional>
#include <string>

#include "zn/formalization.h"

namespace zn::ctl {

// Asks a scratch database whether it would take a name for a type's.
class TypeNames {
 public:
  TypeNames();
  ~TypeNames();
  TypeNames(const TypeNames&) = delete;
  TypeNames& operator=(const TypeNames&) = delete;

  bool IsTaken(const std::string& name);

 private:
  ZnHandle database_ = nullptr;
  ZnHandle noProperties_ = nullptr;
};

// Called for each fault of a type.
using TypeFault = std::function<void(const OTInfo& type, bool isWarning, const std::string& rule,
                                     const std::string& text)>;

// The records are well formed and their names differ.
void CheckTypesTogether(const OTInfoVector& types, const TypeFault& report);

}  // namespace zn::ctl
