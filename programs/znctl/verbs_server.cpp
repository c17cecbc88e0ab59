// hosts, ping, logon, download: what concerns a server and not its objects.
#include <arpa/inet.h>
#include <fmt/format.h>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <set>
#include <system_error>

#include "console.h"
#include "failure.h"
#include "inbox.h"
#include "json_form.h"
#include "text.h"
#include "zn/status.h"

namespace zn::ctl {
namespace {

constexpr u32 kStandardPort = 2148;

double MillisecondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
      .count();
}

sockaddr_in AddressOf(const RemoteTarget& target) {
  addrinfo hints{};
  hints.ai_family = AF_INET;
  hints.ai_socktype = SOCK_DGRAM;
  addrinfo* found = nullptr;
  const int error = getaddrinfo(target.host.c_str(), nullptr, &hints, &found);
  if (error != 0) {
    throw Failure(0xFFFFFFFFu, "cannot find the host " + Printable(target.host),
                  {gai_strerror(error)});
  }
  sockaddr_in address{};
  std::memcpy(&address, found->ai_addr, sizeof(address));
  freeaddrinfo(found);
  address.sin_port = htons(static_cast<u16>(target.port == 0 ? kStandardPort : target.port));
  return address;
}

// ---- hosts ----

struct HostsArguments {
  u32 seconds = 1;
  std::vector<std::string> places;
};

std::vector<ClHostInfo> AskHosts(u32 flagMask) {
  u32 count = 0;
  ClHostInfo* hosts = nullptr;
  Check(ClEnumHosts(flagMask, &count, &hosts), "list the hosts");
  const Block<ClHostInfo> owner(hosts);
  return std::vector<ClHostInfo>(hosts, hosts + count);
}

std::string AddressesOf(const ClHostInfo& host) {
  std::string text;
  for (u32 i = 0; i < host.addressCount; ++i) {
    const u32 a = host.addresses[i];
    text += fmt::format("{}{}.{}.{}.{}", i == 0 ? "" : " ", a >> 24, (a >> 16) & 255,
                        (a >> 8) & 255, a & 255);
  }
  return text;
}

Json JsonOfHost(const ClHostInfo& host) {
  Json protocols = Json::array();
  for (u32 i = 0; i < host.protocolCount; ++i) {
    protocols.push_back({{"name", host.protocols[i].name}, {"version", host.protocols[i].version}});
  }
  Json addresses = Json::array();
  for (u32 i = 0; i < host.addressCount; ++i) {
    ClHostInfo one{};
    one.addressCount = 1;
    one.addresses[0] = host.addresses[i];
    addresses.push_back(AddressesOf(one));
  }
  return {{"name", Printable(host.hostname)},
          {"addresses", std::move(addresses)},
          {"version", host.miraVersion},
          {"flags", host.serverFlags},
          {"database", IdText(Id{host.databaseId})},
          {"protocols", std::move(protocols)}};
}

// "2149" asks by broadcast on that port, "host" and "host:port" ask there.
std::string PlaceText(const std::string& place) {
  const bool isPort = !place.empty() && place.find_first_not_of("0123456789") == std::string::npos;
  const RemoteTarget target = ParseRemoteTarget((isPort ? "255.255.255.255:" : "") + place);
  const sockaddr_in address = AddressOf(target);
  std::array<char, INET_ADDRSTRLEN> text{};
  inet_ntop(AF_INET, &address.sin_addr, text.data(), text.size());
  return fmt::format("{}:{}", text.data(), ntohs(address.sin_port));
}

int RunHosts(Console& console, const HostsArguments& arguments) {
  if (!arguments.places.empty()) {
    std::string list;
    for (const std::string& place : arguments.places) list += PlaceText(place) + ",";
    setenv("ZN_DISCOVERY", list.c_str(), 1);
  }
  const ClientSide clientSide;
  Inbox::Get().SetBusyNotice("\nwaiting for the answers; a second Ctrl-C ends at once\n");
  ClEnableHostDiscovery(arguments.seconds, 1);
  Inbox::Get().SetBusyNotice(nullptr);
  std::vector<ClHostInfo> hosts = AskHosts(0);
  for (const ClHostInfo& host : AskHosts(0xFFFFFFFFu)) hosts.push_back(host);
  ClDisableHostDiscovery();
  Inbox::Get().ThrowIfInterrupted();
  if (console.json) {
    Json document = JsonDocument("hosts");
    document["hosts"] = Json::array();
    for (const ClHostInfo& host : hosts) document["hosts"].push_back(JsonOfHost(host));
    WriteOut(JsonPretty(document));
    return kExitOk;
  }
  if (hosts.empty()) {
    WriteError("no host has answered\n");
    return kExitOk;
  }
  size_t width = 0;
  for (const ClHostInfo& host : hosts)
    width = std::max(width, DisplayWidth(Printable(host.hostname)));
  std::string out;
  for (const ClHostInfo& host : hosts) {
    out += fmt::format(
        "{}  {:<4}  {}\n",
        Styled(console.Screen(), Style::kName, PadToWidth(Printable(host.hostname), width)),
        fmt::format("{}.{}", host.miraVersion / 10, host.miraVersion % 10), AddressesOf(host));
  }
  WriteOut(out);
  return kExitOk;
}

// ---- ping ----

struct PingArguments {
  u32 count = 4;
  double seconds = 1;
};

struct Descriptor {
  explicit Descriptor(int number) : fd(number) {}
  ~Descriptor() {
    if (fd >= 0) close(fd);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int fd;
};

// The milliseconds to the answer, negative without one.
double PingOnce(int fd, int timeoutMs) {
  const std::array<u8, 4> command = {0, 0, 0, 2};
  const auto start = std::chrono::steady_clock::now();
  if (send(fd, command.data(), command.size(), 0) != 4) return -1;
  std::array<u8, 16> answer{};
  for (;;) {
    const int left = timeoutMs - static_cast<int>(MillisecondsSince(start));
    pollfd waiting{fd, POLLIN, 0};
    if (left <= 0 || poll(&waiting, 1, left) != 1) return -1;
    const ssize_t length = recv(fd, answer.data(), answer.size(), 0);
    if (length == 4) return MillisecondsSince(start);
    if (length < 0) return -1;
  }
}

int RunPing(Console& console, const PingArguments& arguments) {
  if (!console.IsRemote()) throw UsageError("ping works with a server: -H HOST");
  const RemoteTarget& target = *console.remote;
  const sockaddr_in address = AddressOf(target);
  const Descriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (socket.fd < 0 ||
      connect(socket.fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
    throw Failure(ZNE_UNEXPECTED, "cannot reach " + target.Text(),
                  {std::generic_category().message(errno)});
  }
  constexpr double kMostSeconds = 86400;
  const int timeoutMs = static_cast<int>(std::min(arguments.seconds, kMostSeconds) * 1000);
  Json times = Json::array();
  u32 answered = 0;
  for (u32 i = 0; i < arguments.count && Inbox::Get().Signal() == 0; ++i) {
    const double ms = PingOnce(socket.fd, timeoutMs);
    answered += ms < 0 ? 0 : 1;
    times.push_back(ms < 0 ? Json() : Json(ms));
    if (console.json) continue;
    WriteOut(ms < 0 ? fmt::format("{}: no answer in {} s\n", target.Text(), arguments.seconds)
                    : fmt::format("{}: {:.2f} ms\n", target.Text(), ms));
  }
  if (console.json) {
    Json document = JsonDocument("ping");
    document["host"] = target.Text();
    document["milliseconds"] = std::move(times);
    WriteOut(JsonPretty(document));
  }
  return answered == 0 ? kExitFailed : kExitOk;
}

// ---- logon ----

int RunLogon(Console& console) {
  const auto start = std::chrono::steady_clock::now();
  console.Client("logon");
  const double ms = MillisecondsSince(start);
  const RemoteTarget& target = *console.remote;
  if (console.json) {
    Json document = JsonDocument("logon");
    document["host"] = target.Text();
    document["user"] = target.user.empty() ? Json() : Json(target.user);
    document["milliseconds"] = ms;
    WriteOut(JsonPretty(document));
    return kExitOk;
  }
  WriteOut(fmt::format(
      "logged on to {} {} in {:.1f} ms\n", target.Text(),
      target.user.empty() ? "through shared memory" : "as " + Printable(target.user), ms));
  return kExitOk;
}

// ---- download ----

struct DownloadArguments {
  std::string name;
  std::string path;
};

// What cannot be written is not reported by the library, so it is looked at first.
void EnsureWritable(const std::string& path) {
  struct stat info {};
  const bool isThere = stat(path.c_str(), &info) == 0;
  std::FILE* file = std::fopen(path.c_str(), "ab");
  if (file == nullptr) {
    throw UsageError(fmt::format("{} cannot be written: {}", Printable(path),
                                 std::generic_category().message(errno)));
  }
  std::fclose(file);
  if (!isThere) std::remove(path.c_str());
}

int RunDownload(Console& console, const DownloadArguments& arguments) {
  std::string path = arguments.path;
  if (path.empty()) path = arguments.name.substr(arguments.name.find_last_of("/\\") + 1);
  if (path.empty()) throw UsageError("where to? name a local file");
  ClientHandle* const client = console.Client("download");
  EnsureWritable(path);
  Check(ClDownloadFile(client, ToUtf16(arguments.name).c_str(), ToUtf16(path).c_str()),
        fmt::format("fetch \"{}\"", Printable(arguments.name)));
  struct stat info {};
  if (stat(path.c_str(), &info) != 0) {
    throw Failure(ZNE_UNEXPECTED, fmt::format("cannot write {}", Printable(path)));
  }
  if (console.json) {
    Json document = JsonDocument("download");
    document["name"] = arguments.name;
    document["path"] = path;
    document["bytes"] = static_cast<u64>(info.st_size);
    WriteOut(JsonPretty(document));
  } else {
    WriteOut(fmt::format("{}  {} bytes\n", Printable(path), info.st_size));
  }
  return kExitOk;
}

constexpr char kHostsHelp[] =
    "Asks by broadcast on the standard port, or at the places named: a port number\n"
    "(by broadcast), a host, or host:port.\n\n"
    "Examples:\n"
    "  znctl hosts\n"
    "  znctl hosts --at 127.0.0.1:2149 --wait 3\n";
constexpr char kDownloadHelp[] =
    "A server gives out the files of its extension objects and its own logs. The name\n"
    "is the property ImageFile of such an object (znctl -H HOST list KELD_Extension).\n\n"
    "Examples:\n"
    "  znctl -H myhost --user me download /opt/znmira/catalogs/english.mc\n"
    "  znctl -H myhost --user me download /opt/znmira/logs/znmira.log now.log\n";

}  // namespace

void AddServerVerbs(CLI::App& app, Command* command) {
  {
    auto arguments = std::make_shared<HostsArguments>();
    CLI::App* verb = app.add_subcommand("hosts", "Show the servers that answer");
    verb->add_option("-w,--wait", arguments->seconds, "Until nothing comes for so many seconds")
        ->type_name("SECONDS");
    verb->add_option("--at", arguments->places, "Where to ask, instead of everywhere")
        ->type_name("PLACE");
    verb->footer(kHostsHelp);
    verb->callback([=] { *command = [=](Console& c) { return RunHosts(c, *arguments); }; });
  }
  {
    auto arguments = std::make_shared<PingArguments>();
    CLI::App* verb = app.add_subcommand("ping", "Ask a server for a sign of life");
    verb->add_option("-n,--count", arguments->count, "So many times")->check(CLI::PositiveNumber);
    verb->add_option("-w,--wait", arguments->seconds, "Seconds to wait for each")
        ->type_name("SECONDS")
        ->check(CLI::PositiveNumber);
    verb->callback([=] { *command = [=](Console& c) { return RunPing(c, *arguments); }; });
  }
  {
    CLI::App* verb = app.add_subcommand("logon", "Log on to a server, and off again");
    verb->callback([=] { *command = [](Console& c) { return RunLogon(c); }; });
  }
  {
    auto arguments = std::make_shared<DownloadArguments>();
    CLI::App* verb = app.add_subcommand("download", "Fetch a file that a server gives out");
    verb->add_option("name", arguments->name, "The file's name on the server")->required();
    verb->add_option("path", arguments->path, "Where to (else its last part, here)");
    verb->footer(kDownloadHelp);
    verb->callback([=] { *command = [=](Console& c) { return RunDownload(c, *arguments); }; });
  }
}

}  // namespace zn::ctl
