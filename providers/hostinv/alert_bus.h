// The alerts of this provider on the bus: their topics and texts, and the raising of an Occurrence.
// The texts here are the defaults, for whoever has no catalog; catalogs/ has them in each language.
#pragma once

#include <span>

#include "alerts.h"
#include "zn/types.h"

namespace hostinv {

inline constexpr GUID kMessageCatalog = {
    0x5E0A1C74u, 0x93B2u, 0x4D6Fu, {0x8Au, 0x17u, 0xC2u, 0xD4u, 0x0Bu, 0xE9u, 0x5Fu, 0x63u}};

// A text with its number in the catalog.
struct AlertText {
  u32 message;
  const char* text;
};

struct AlertRow {
  AlertKind kind;
  const char* topic;
  u32 severity;
  AlertText message;
  AlertText friendlyName;
  AlertText classification;
  AlertText description;
  AlertText action;
  u32 actionInsertions;  // as many of the message's first ones
};

// One row per kind, in the order of the kinds.
std::span<const AlertRow> AlertRows();

// Publishes every alert; one that is published already is left alone.
u32 PublishAlerts(ZnHandle database, ZnHandle provider);

// Raises what has happened. The object's key and id go along as user properties.
u32 RaiseOccurrence(ZnHandle database, ZnHandle provider, const Occurrence& occurrence);

}  // namespace hostinv
