// A server of the test: a folder of its own with settings, copies of the plug-in and the log that
// they write, and the calls that look at the result. Everything goes through the exports.
#pragma once

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "plugin.h"
#include "zn/znmira.h"

namespace test {

inline constexpr GUID kRefreshInterface = {
    0xE89E2FD0, 0x07FB, 0x11D2, {0xA7, 0xC4, 0x00, 0xA0, 0xC9, 0x24, 0x90, 0x29}};
inline constexpr u32 kPatienceMs = 60000;  // no test waits it out unless it fails

[[nodiscard]] inline std::string Narrow(const ZnWChar* text) {
  std::string narrow;
  for (; *text != 0; ++text) narrow.push_back(static_cast<char>(*text));
  return narrow;
}
[[nodiscard]] inline bool Same(const ObjectId& a, const ObjectId& b) {
  return std::memcmp(&a, &b, sizeof(a)) == 0;
}

// A wait event of the test.
class Signal {
 public:
  Signal() : event_(ZnCreateEvent(0, 0)) {}
  ~Signal() { ZnCloseEvent(event_); }
  Signal(const Signal&) = delete;
  Signal& operator=(const Signal&) = delete;
  void Set() { ZnSetEvent(event_); }
  [[nodiscard]] bool Wait() { return ZnWaitForEvent(event_, kPatienceMs) == 0; }
  [[nodiscard]] u64 Address() const { return reinterpret_cast<u64>(event_); }

 private:
  ZnHandle event_;
};

// An owned property set.
class Propset {
 public:
  Propset() { EXPECT_EQ(PsCreatePropset(&handle_), ZN_OK); }
  explicit Propset(ZnHandle handle) : handle_(handle) {}
  ~Propset() { static_cast<void>(PsDestroyPropset(handle_)); }
  Propset(const Propset&) = delete;
  Propset& operator=(const Propset&) = delete;
  [[nodiscard]] ZnHandle Get() const { return handle_; }
  void Put(std::string name, u64 value) {
    const Property2 property{name.data(), ZN_TYPE_UINT64, 0, sizeof(value), &value};
    EXPECT_EQ(PsSetProperty(handle_, &property), ZN_OK);
  }

 private:
  ZnHandle handle_ = nullptr;
};

// The topics that the event callback of the server heard.
class HeardTopics {
 public:
  void Add(const char* topic) {
    const std::lock_guard lock(mutex_);
    topics_.emplace_back(topic);
  }
  [[nodiscard]] std::vector<std::string> Get() const {
    const std::lock_guard lock(mutex_);
    return topics_;
  }

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> topics_;
};
inline HeardTopics heardTopics;

class ServerTest : public testing::Test {
 protected:
  ServerTest() {
    char folder[] = "/tmp/zn_providers_XXXXXX";
    if (mkdtemp(folder) == nullptr) std::abort();
    folder_ = folder;
    std::filesystem::create_directory(folder_ / "providers");
    setenv("ZN_SETTINGS", (folder_ / "settings.toml").c_str(), 1);
    setenv("ZN_TEST_LOG", (folder_ / "log").c_str(), 1);
    root_ = "InstallDir = \"" + folder_.string() + "\"\n";
  }
  ~ServerTest() override {
    if (isStarted_) static_cast<void>(ShutdownServer());
    std::filesystem::remove_all(folder_);
  }

  // A provider with a copy of the plug-in of its own name, which is also its default image.
  void AddProvider(const std::string& name, const std::string& settings = "") {
    std::filesystem::copy_file(ZN_TEST_PLUGIN, Image(name));
    AddEntry(name, settings);
  }
  void AddEntry(const std::string& name, const std::string& settings) {
    providers_ += "[Providers.\"" + name + "\"]\n" + settings + "\n";
  }
  void AddGroup(const std::string& name, const std::string& settings = "") {
    groups_ += "[ProviderGroup.\"" + name + "\"]\n" + settings + "\n";
  }
  [[nodiscard]] std::filesystem::path Image(const std::string& name) const {
    return folder_ / "providers" / ("lib" + name + ".so");
  }

  // Starts with the settings so far, traced from level 1 on.
  [[nodiscard]] u32 Start() {
    WriteSettings();
    isStarted_ = true;
    EXPECT_EQ(ZnTraceInit(u"znmira", 0, nullptr), ZN_OK);
    return ZnInitialize(1, &IgnoreChange, &Hear, &database_);
  }
  void WriteSettings() const {
    std::ofstream(folder_ / "settings.toml")
        << root_ << "[Tracing.znmira]\nTRACELEVEL = 1\nTraceFile = \"" << TracePath().string()
        << "\"\n"
        << groups_ << providers_;
  }
  static void IgnoreChange(ZnHandle) {}
  static bool Hear(const EventRecord* event, u32) {
    heardTopics.Add(event->topic);
    return true;
  }
  [[nodiscard]] std::filesystem::path TracePath() const { return folder_ / "trace"; }

  [[nodiscard]] std::vector<std::string> Log() const { return Lines(folder_ / "log"); }
  [[nodiscard]] bool HasLogged(const std::string& line) const {
    const std::vector<std::string> log = Log();
    return std::find(log.begin(), log.end(), line) != log.end();
  }
  // The names whose line has that text, in their order.
  [[nodiscard]] std::vector<std::string> WhoLogged(const std::string& what) const {
    std::vector<std::string> names;
    for (const std::string& line : Log()) {
      const size_t blank = line.find(' ');
      if (line.substr(blank + 1) == what) names.push_back(line.substr(0, blank));
    }
    return names;
  }
  [[nodiscard]] bool HasTraced(const std::string& text) const {
    const std::vector<std::string> lines = Lines(TracePath());
    return std::any_of(lines.begin(), lines.end(), [&](const std::string& line) {
      return line.find(text) != std::string::npos;
    });
  }

  [[nodiscard]] static ZnHandle ProviderNamed(const char16_t* name) {
    ZnHandle provider = nullptr;
    return ZN_FAILED(PrGetProviderByName(nullptr, name, &provider)) ? nullptr : provider;
  }
  // A text or number of a provider, or "none".
  [[nodiscard]] static std::string PropertyOf(const char16_t* provider, const char* name) {
    Property2* property = nullptr;
    if (ZN_FAILED(PrGetProperty(ProviderNamed(provider), name, &property))) return "none";
    std::string text = TextOf(*property);
    EXPECT_EQ(PsFreeProperty(property), ZN_OK);
    return text;
  }
  [[nodiscard]] static std::string PropertyOf(const ObjectId& id, const char* name) {
    Property2* property = nullptr;
    if (ZN_FAILED(ObGetProperty(nullptr, id, name, &property))) return "none";
    std::string text = TextOf(*property);
    EXPECT_EQ(PsFreeProperty(property), ZN_OK);
    return text;
  }
  // "6:text", "7:wide text", "3:number", or the tag alone.
  [[nodiscard]] static std::string TextOf(const Property2& property) {
    const std::string tag = std::to_string(property.Type) + ":";
    if (property.Type == ZN_TYPE_STRING) return tag + static_cast<char*>(property.Value);
    if (property.Type == ZN_TYPE_WIDESTRING) {
      return tag + Narrow(static_cast<ZnWChar*>(property.Value));
    }
    if (property.Type != ZN_TYPE_UINT32) return tag;
    u32 number = 0;
    std::memcpy(&number, property.Value, sizeof(number));
    return tag + std::to_string(number);
  }
  [[nodiscard]] static std::string Loaded() { return PropertyOf(u"system", "LOADED_PROVIDERS"); }
  [[nodiscard]] static std::string Failed() { return PropertyOf(u"system", "FAILED_PROVIDERS"); }

  [[nodiscard]] static std::vector<ObjectId> ObjectsOfType(const char* type) {
    u32 count = 0;
    ObjectId* ids = nullptr;
    EXPECT_EQ(DbGetObjects(nullptr, type, &count, &ids), ZN_OK);
    std::vector<ObjectId> objects(ids, ids + count);
    ZnFree(ids);
    return objects;
  }
  // The object that a plug-in made.
  [[nodiscard]] static ObjectId ObjectOf(const char16_t* provider) {
    ObjectId id{};
    EXPECT_EQ(ObGetObjectIdByKey(nullptr, ProviderNamed(provider), "object", 6, &id), ZN_OK);
    return id;
  }
  [[nodiscard]] static ObjectId IdOf(const char16_t* provider) {
    ObjectId id{};
    EXPECT_EQ(PrGetProviderId(ProviderNamed(provider), &id), ZN_OK);
    return id;
  }
  // Runs an action and returns when the event that it raises has been delivered everywhere.
  static void DeliverWith(const std::function<void()>& act, std::string topic) {
    ZnHandle wait = nullptr;
    ASSERT_EQ(EvCreateWaitEvent(
                  nullptr,
                  [](const EventRecord* event, void* context) {
                    return std::strstr(event->topic, static_cast<std::string*>(context)->c_str()) !=
                           nullptr;
                  },
                  &topic, &wait),
              ZN_OK);
    act();
    EXPECT_EQ(EvWaitForEvent(nullptr, wait, kPatienceMs), ZN_OK);
  }
  // Every event raised so far has reached all its receivers when this returns: the second of two
  // events is looked at only when the first is done.
  static void DeliverAll() {
    const ZnHandle system = ProviderNamed(u"system");
    DeliverWith(
        [&] {
          const Propset data;
          EXPECT_EQ(EvRaiseEvent(nullptr, system, "event.first", data.Get()), ZN_OK);
          EXPECT_EQ(EvRaiseEvent(nullptr, system, "event.second", data.Get()), ZN_OK);
        },
        "event.second");
  }

  std::filesystem::path folder_;
  std::string root_;
  std::string groups_ = "[ProviderGroup]\n";
  std::string providers_ = "[Providers]\n";
  ZnHandle database_ = nullptr;
  bool isStarted_ = false;

 private:
  [[nodiscard]] static std::vector<std::string> Lines(const std::filesystem::path& path) {
    std::vector<std::string> lines;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) lines.push_back(line);
    return lines;
  }
};

}  // namespace test
