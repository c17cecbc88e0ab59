// Messages as text; see the header.
#include "localizer.h"

#include <fmt/format.h>

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
    size_t end = at;
    if (name[at] != '%') {
      out += name[at++];
    } else if (name.compare(at, 2, "%%") == 0) {
      out += '%';
      at += 2;
    } else if (const std::string number = PlaceAt(name, at, &end); !number.empty()) {
      out += InsertionText(message, number);
      at = end;
    } else {
      out += name[at++];
    }
  }
  return out;
}

u32 Localizer::Look(const Message& message, u32 locale, std::string* text) const {
  ZnWChar* out = nullptr;
  u32 status = ZN_OK;
  std::string name = message.name;
  if (message.insertions.empty()) {
    const I18nString record{message.catalog.guid, message.number, name.data()};
    status = i18nGetLocalizedStringFromi18n(bus_.Handle(), record, locale, nullptr, 0, &out);
  } else {
    const Propset insertions(message.insertions);
    const I18nFormatString record{message.catalog.guid, message.number, name.data(),
                                  insertions.Handle()};
    status = ZnMakeLocalizedFormattedString(bus_.Handle(), record, locale, nullptr, 0, &out);
  }
  if (ZN_FAILED(status)) return status;
  const Block<ZnWChar> owner(out);
  *text = ToUtf8(out);
  return ZN_OK;
}

std::optional<std::string> Localizer::Find(const Message& message, u32* status) const {
  std::string text;
  u32 result = Look(message, locale_, &text);
  if (ZN_FAILED(result) && HomeLocale(locale_) != locale_ &&
      !ZN_FAILED(Look(message, HomeLocale(locale_), &text))) {
    result = ZN_OK;
  }
  if (status != nullptr) *status = result;
  if (ZN_FAILED(result)) return std::nullopt;
  return text;
}

std::string Localizer::Text(const Message& message) const {
  return Find(message).value_or(ExpandName(message));
}

std::string Localizer::Text(const Property* property) const {
  if (property == nullptr) return {};
  const auto* message = std::get_if<Message>(&property->value.data);
  if (message == nullptr) return {};
  const bool isFormat = property->value.type == ZN_TYPE_I18N_FORMAT_STRING;
  // A published text is shown as it stands, with its places.
  return isFormat ? Text(*message) : Find(*message).value_or(message->name);
}

}  // namespace zn::ctl
