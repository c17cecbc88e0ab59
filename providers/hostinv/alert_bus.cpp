// The alerts on the bus; see the header.
#include "alert_bus.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <string>

#include "bus.h"
#include "text.h"
#include "zn/znmira.h"

namespace hostinv {
namespace {

constexpr u32 kAlertFlag = 3;
constexpr u32 kSevere = 1;
constexpr u32 kSerious = 2;
constexpr u32 kMild = 4;

constexpr AlertText kStorage = {0x1003, "Storage"};
constexpr AlertText kNetwork = {0x1023, "Network"};
constexpr AlertText kNothing = {0x1015, "None"};

constexpr AlertRow kRows[] = {
    {AlertKind::kFileSystemFull,
     "event.alert.hostinv.filesystem.full",
     kSerious,
     {0x1001, "The file system %1 is %2 percent full; the limit is %3 percent."},
     {0x1002, "File system nearly full"},
     kStorage,
     {0x1004, "The space used on a file system has reached the limit that the settings give."},
     {0x1005, "Delete what is no longer needed on %1, or enlarge the file system."},
     1},
    {AlertKind::kFileSystemNormal,
     "event.alert.hostinv.filesystem.normal",
     kMild,
     {0x1011, "The file system %1 has space again: %2 percent are used."},
     {0x1012, "File system has space"},
     kStorage,
     {0x1014, "The space used on a file system is well below the limit again."},
     kNothing,
     0},
    {AlertKind::kLinkLost,
     "event.alert.hostinv.interface.linklost",
     kSerious,
     {0x1021, "The network interface %1 has lost its link."},
     {0x1022, "Link lost"},
     kNetwork,
     {0x1024, "An interface that had a link has none now, or was switched off."},
     {0x1025, "Check the cable of %1 and the device at its other end."},
     1},
    {AlertKind::kLinkBack,
     "event.alert.hostinv.interface.linkback",
     kMild,
     {0x1031, "The network interface %1 has its link back."},
     {0x1032, "Link back"},
     kNetwork,
     {0x1034, "An interface that had lost its link has one again."},
     kNothing,
     0},
    {AlertKind::kDiskGone,
     "event.alert.hostinv.disk.gone",
     kSevere,
     {0x1041, "The disk %1 (%2) is gone."},
     {0x1042, "Disk gone"},
     kStorage,
     {0x1044, "A disk that is not removable has disappeared from the machine."},
     {0x1045, "Check the disk %1 and its cables. Do not write to file systems that lay on it."},
     1},
};

// A row stands where its kind counts to.
constexpr bool AreRowsInOrder() {
  for (std::size_t i = 0; i < std::size(kRows); ++i) {
    if (static_cast<std::size_t>(kRows[i].kind) != i) return false;
  }
  return true;
}
static_assert(std::size(kRows) == kAlertKinds && AreRowsInOrder(), "a row for each AlertKind");

// The record is read only; its text is not const because it also carries results.
I18nString RecordOf(const AlertText& text) {
  return {kMessageCatalog, text.message, const_cast<char*>(text.text)};
}

// The user properties of every alert, here without values.
u32 FillUserProperties(ZnHandle set, const std::string& key, const ObjectId& id) {
  const u32 status = PutProperty(set, "Key", CleanUtf8(key));
  return ZN_FAILED(status) ? status : PutId(set, "ObjectId", id);
}

u32 PublishAlert(ZnHandle database, ZnHandle provider, const AlertRow& row) {
  const I18nString message = RecordOf(row.message);
  const I18nString classification = RecordOf(row.classification);
  const I18nString friendlyName = RecordOf(row.friendlyName);
  const I18nString description = RecordOf(row.description);
  const I18nString action = RecordOf(row.action);
  const PropertySet user;
  const u32 status = FillUserProperties(user.Handle(), {}, {});
  if (ZN_FAILED(status)) return status;
  const AlertDescriptor alert = {row.topic,    kAlertFlag,      row.severity,
                                 &message,     &classification, &friendlyName,
                                 &description, &action,         user.Handle()};
  return ObPublishAlert(database, provider, &alert);
}

u32 FillInsertions(ZnHandle set, const AlertRow& row, const Occurrence& occurrence) {
  u32 number = 0;
  for (const std::string& insertion : occurrence.insertions) {
    const std::string suffix = std::to_string(++number);
    const std::u16string text = ToUtf16(insertion);
    u32 status = PutProperty(set, ("AlertMsg" + suffix).c_str(), text);
    if (ZN_SUCCEEDED(status) && number <= row.actionInsertions) {
      status = PutProperty(set, ("RecommendedAction" + suffix).c_str(), text);
    }
    if (ZN_FAILED(status)) return status;
  }
  return 0;
}

}  // namespace

std::span<const AlertRow> AlertRows() {
  return kRows;
}

u32 PublishAlerts(ZnHandle database, ZnHandle provider) {
  for (const AlertRow& row : kRows) {
    const u32 status = PublishAlert(database, provider, row);
    if (ZN_FAILED(status) && status != ZNE_ALERT_REREGISTER) return status;
  }
  return 0;
}

u32 RaiseOccurrence(ZnHandle database, ZnHandle provider, const Occurrence& occurrence) {
  const AlertRow& row = kRows[static_cast<std::size_t>(occurrence.kind)];
  const PropertySet insertions;
  const PropertySet user;
  ObjectId id{};
  ObGetObjectIdByKey(database, provider, occurrence.key.data(),
                     static_cast<u32>(occurrence.key.size()), &id);  // zero for what is gone
  u32 status = FillInsertions(insertions.Handle(), row, occurrence);
  if (ZN_SUCCEEDED(status)) status = FillUserProperties(user.Handle(), occurrence.key, id);
  if (ZN_FAILED(status)) return status;
  return ObRaiseAlert(database, provider, row.topic, insertions.Handle(), user.Handle());
}

}  // namespace hostinv
