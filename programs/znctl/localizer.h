// Messages as text in the language asked for. The bus reports a missing catalog or message as such;
// here the reader gets the text in the home variant of the language, else the message's own name
// with the insertions in it.
#pragma once

#include <optional>
#include <string>

#include "bus.h"

namespace zn::ctl {

class Localizer {
 public:
  Localizer(const Database& bus, u32 locale) : bus_(bus), locale_(locale) {}

  u32 Locale() const { return locale_; }
  // What is in the catalog, without the fallback to the name; `status` tells why there is nothing.
  std::optional<std::string> Find(const Message& message, u32* status = nullptr) const;
  // The text of a message or format string; empty for any other value and for none.
  std::string Text(const Property* property) const;
  // Gives every message in the value its text, in sets and lists too.
  void FillTexts(Value* value) const;
  void FillTexts(PropertyList* list) const;

 private:
  enum class Form { kAsItStands, kExpanded };

  std::string TextOf(u32 type, const Message& message) const;
  std::optional<std::string> FindIn(Form form, const Message& message, u32* status) const;
  u32 Look(const Message& message, Form form, u32 locale, std::string* text) const;
  u32 Ask(const Message& message, Form form, u32 locale, ZnWChar** out) const;

  const Database& bus_;
  u32 locale_;
};

// A message's own name with its insertions put in: what is shown without a catalog.
std::string ExpandName(const Message& message);

}  // namespace zn::ctl
