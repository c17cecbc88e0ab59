// Messages as text; see the header.
#include "localizer.h"

#include <fmt/format.h>

#include "failure.h"
#include "language.h"
#include "text.h"
#include "zn/i18n.h"
#include "zn/status.h"

namespace zn::ctl {
namespace {

// The digits at `at`, which moves behind them.
std::string TakeDigits(const std::string& text, size_t* at) {
  const size_t from = *at;
  while (*at < text.size() && text[*at] >= '0' && text[*at] <= '9') ++*at;
  return text.substr(from, *at - from);
}

// The number of the place at `percent`; `end` is where the text goes on. Empty for no place.
std::string PlaceAt(const std::string& text, size_t percent, size_t* end) {
  size_t at = percent + 1;
  const bool hasBraces = at < text.size() && text[at] == '{';
  if (hasBraces) ++at;
  std::string digits = TakeDigits(text, &at);
  if (hasBraces && (at >= text.size() || text[at++] != '}')) return {};
  *end = at;
  return digits;
}

std::string InsertionText(const Message& message, const std::string& number) {
  const Property* insertion = FindProperty(message.insertions, "i" + number);
  if (insertion == nullptr) return "%" + number;
  const auto* nested = std::get_if<Message>(&insertion->value.data);
  return nested != nullptr ? nested->name : FormatValue(insertion->value);
}

}  // namespace

std::string ExpandName(const Message& message) {
  const std::string& name = message.name;
  std::string out;
  for (size_t at = 0; at < name.size();) {
    if (name.compare(at, 2, "%%") == 0) {
      out += '%';
      at += 2;
      continue;
    }
    size_t end = at + 1;
    const std::string number = name[at] == '%' ? PlaceAt(name, at, &end) : std::string();
    out += number.empty() ? name.substr(at, 1) : InsertionText(message, number);
    at = number.empty() ? at + 1 : end;
  }
  return out;
}

u32 Localizer::Look(const Message& message, Form form, u32 locale, std::string* text) const {
  ZnWChar* out = nullptr;
  const u32 status = Ask(message, form, locale, &out);
  if (ZN_FAILED(status)) return status;
  if (out == nullptr) return ZNE_UNEXPECTED;  // a warning, which is no failure and brings no text
  const Block<ZnWChar> owner(out);
  *text = ToUtf8(out);
  return ZN_OK;
}

u32 Localizer::Ask(const Message& message, Form form, u32 locale, ZnWChar** out) const {
  std::string name = message.name;
  if (form == Form::kAsItStands) {
    const I18nString record{message.catalog.guid, message.number, name.data()};
    return i18nGetLocalizedStringFromi18n(bus_.Handle(), record, locale, nullptr, 0, out);
  }
  try {
    const Propset insertions(message.insertions);
    const I18nFormatString record{message.catalog.guid, message.number, name.data(),
                                  insertions.Handle()};
    return ZnMakeLocalizedFormattedString(bus_.Handle(), record, locale, nullptr, 0, out);
  } catch (const Failure& failure) {
    return failure.status;  // anybody may raise insertions that the bus does not take back
  }
}

std::optional<std::string> Localizer::Find(const Message& message, u32* status) const {
  return FindIn(Form::kAsItStands, message, status);
}

std::optional<std::string> Localizer::FindIn(Form form, const Message& message, u32* status) const {
  std::string text;
  u32 result = Look(message, form, locale_, &text);
  if (ZN_FAILED(result) && HomeLocale(locale_) != locale_ &&
      !ZN_FAILED(Look(message, form, HomeLocale(locale_), &text))) {
    result = ZN_OK;
  }
  if (status != nullptr) *status = result;
  if (ZN_FAILED(result)) return std::nullopt;
  return text;
}

std::string Localizer::Text(const Property* property) const {
  if (property == nullptr) return {};
  const auto* message = std::get_if<Message>(&property->value.data);
  return message == nullptr ? std::string() : TextOf(property->value.type, *message);
}

std::string Localizer::TextOf(u32 type, const Message& message) const {
  // A published text is shown as it stands, with its places. One that is raised is a template even
  // without insertions: its "%%" is a percent sign.
  if (type != ZN_TYPE_I18N_FORMAT_STRING) return Find(message).value_or(message.name);
  return FindIn(Form::kExpanded, message, nullptr).value_or(ExpandName(message));
}

void Localizer::FillTexts(Value* value) const {
  if (auto* message = std::get_if<Message>(&value->data)) {
    message->text = TextOf(value->type, *message);
  } else if (auto* set = std::get_if<PropertyList>(&value->data)) {
    FillTexts(set);
  } else if (auto* list = std::get_if<Value::List>(&value->data)) {
    for (Value& element : *list) FillTexts(&element);
  }
}

void Localizer::FillTexts(PropertyList* list) const {
  for (Property& property : *list) FillTexts(&property.value);
}

}  // namespace zn::ctl
