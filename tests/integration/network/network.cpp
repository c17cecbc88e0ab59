#include "tests/integration/network/network.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <random>
#include <sstream>
#include <thread>

extern char** environ;

namespace zn::test {

void Measured(const char* format, ...) {
  char line[512];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(line, sizeof line, format, arguments);
  va_end(arguments);
  const testing::TestInfo* test = testing::UnitTest::GetInstance()->current_test_info();
  std::printf("measured: %s.%s: %s\n", test->test_suite_name(), test->name(), line);
  std::fflush(stdout);
}

u64 Seed() {
  const char* given = std::getenv("ZN_SOAK_SEED");
  const u64 seed = given != nullptr ? std::strtoull(given, nullptr, 10) : std::random_device{}();
  Measured("seed %lu", seed);
  return seed;
}

bool Eventually(const std::function<bool()>& holds, std::chrono::milliseconds most) {
  const auto end = Clock::now() + most;
  while (!holds()) {
    if (Clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

i64 MonotonicNs() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now().time_since_epoch())
      .count();
}

double Milliseconds(Clock::duration duration) {
  return std::chrono::duration<double, std::milli>(duration).count();
}

double Percentile(std::vector<double> values, double percent) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  const auto last = static_cast<double>(values.size() - 1);
  return values[static_cast<size_t>(last * percent / 100)];
}

ProcessFacts FactsOf(pid_t pid) {
  const std::string folder = "/proc/" + std::to_string(pid);
  const auto entries = [](const std::string& path) {
    std::error_code ignored;
    const std::filesystem::directory_iterator all(path, ignored);
    return static_cast<size_t>(std::distance(begin(all), end(all)));
  };
  ProcessFacts facts;
  const std::string status = ReadFile(folder + "/status");
  const size_t resident = status.find("VmRSS:");
  EXPECT_NE(resident, std::string::npos);
  if (resident != std::string::npos) facts.residentKiB = std::stoul(status.substr(resident + 6));
  facts.descriptors = entries(folder + "/fd");
  facts.threads = entries(folder + "/task");
  return facts;
}

unsigned FreeLoopbackPort() {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int on = 1;
  EXPECT_EQ(setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on), 0);
  sockaddr_in name{};
  name.sin_family = AF_INET;
  name.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof name;
  EXPECT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&name), sizeof name), 0);
  EXPECT_EQ(getsockname(fd, reinterpret_cast<sockaddr*>(&name), &length), 0);
  // It stays open to the end of the test: a server may listen on the port, and connects are refused
  // while none does, but the host gives it to nobody else.
  return ntohs(name.sin_port);
}

bool AllowDescriptors(size_t count) {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return false;
  if (limit.rlim_cur >= count) return true;
  limit.rlim_cur = count;
  limit.rlim_max = std::max<rlim_t>(limit.rlim_max, count);
  return setrlimit(RLIMIT_NOFILE, &limit) == 0;
}

Gate::Gate(const char* variable) : path_(folder_ / "gate"), environment_(variable, path_) {
  EXPECT_EQ(mkfifo(path_.c_str(), 0600), 0);
}

bool Gate::WaitUntilReached() const {
  return Eventually([&] { return std::filesystem::exists(path_ + ledger::kWaitsSuffix); });
}

void Gate::Open() const {
  const int fd = open(path_.c_str(), O_WRONLY | O_CLOEXEC);
  EXPECT_EQ(write(fd, "o", 1), 1);
  close(fd);
}

size_t ClientProgram::Told::Count(char kind) const {
  return static_cast<size_t>(std::count_if(
      events.begin(), events.end(), [kind](const Event& event) { return event.kind == kind; }));
}

ClientProgram::ClientProgram(const std::vector<std::string>& arguments) {
  std::vector<std::string> words = {ZN_NETWORK_CLIENT};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, (folder_ / "told").c_str(),
                                   O_CREAT | O_WRONLY | O_APPEND, 0600);
  EXPECT_EQ(posix_spawn(&pid_, ZN_NETWORK_CLIENT, &actions, nullptr, argv.data(), environ), 0);
  posix_spawn_file_actions_destroy(&actions);
}

ClientProgram::~ClientProgram() {
  if (pid_ <= 0) return;
  kill(pid_, SIGKILL);
  static_cast<void>(waitpid(pid_, nullptr, 0));
}

std::unique_ptr<ClientProgram> ClientProgram::Append(unsigned port, u64 client, u64 count,
                                                     u64 every, unsigned patienceMs) {
  return std::make_unique<ClientProgram>(std::vector<std::string>{
      "append", std::to_string(port), std::to_string(client), std::to_string(count),
      std::to_string(every), std::to_string(patienceMs)});
}

std::unique_ptr<ClientProgram> ClientProgram::AppendInSteps(unsigned port, u64 client) {
  return std::make_unique<ClientProgram>(
      std::vector<std::string>{"steps", std::to_string(port), std::to_string(client), "0", "3"});
}

std::unique_ptr<ClientProgram> ClientProgram::Listen(unsigned port) {
  return std::make_unique<ClientProgram>(std::vector<std::string>{"listen", std::to_string(port)});
}

void ClientProgram::Signal(int number) const {
  EXPECT_EQ(kill(pid_, number), 0);
}

int ClientProgram::WaitForEnd() {
  int status = 0;
  if (waitpid(pid_, &status, 0) != pid_) return -1;
  pid_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

ClientProgram::Told ClientProgram::WhatItTold() const {
  Told told;
  std::istringstream lines(ReadFile(folder_ / "told"));
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line.substr(std::min<size_t>(2, line.size())));
    if (line[0] == 'A') {
      words >> told.acknowledged.emplace_back();
    } else if (line[0] == 'X') {
      told.violations.push_back(line);
    } else {
      Event& event = told.events.emplace_back();
      event.kind = line[0];
      words >> event.time >> event.status;
    }
  }
  return told;
}

bool ClientProgram::WaitUntilReady(size_t times) const {
  return Eventually([&] { return WhatItTold().Count('R') >= times; });
}

void Network::Prepare(const std::string& settings) {
  service_ = std::make_unique<ServiceProcess>(settings + "\n[Providers.ledger]\nImageFile = '" +
                                              ZN_LEDGER_PROVIDER + "'\n");
}

void Network::Start(const std::string& settings, std::vector<std::string> arguments) {
  Prepare(settings);
  service_->MustStart(std::move(arguments));
}

void Network::StopService() {
  {
    RawClient client(Port());
    EXPECT_EQ(client.LogOn(u"root", u"toor"), ZN_OK);
  }
  service_->Signal(SIGTERM);
  EXPECT_EQ(service_->WaitForEnd(), 0) << service_->RestOfOutput();
}

void Network::TearDown() {
  if (service_ != nullptr && service_->Pid() > 0) StopService();
}

size_t Network::Traced(const std::string& text) const {
  const std::string trace = service_->Trace();
  size_t count = 0;
  for (size_t at = trace.find(text); at != std::string::npos; at = trace.find(text, at + 1)) {
    ++count;
  }
  return count;
}

std::vector<u64> Network::Ledger() const {
  const std::string bytes = ReadFile(folder_ / "ledger");
  std::vector<u64> numbers(bytes.size() / sizeof(u64));
  std::memcpy(numbers.data(), bytes.data(), numbers.size() * sizeof(u64));
  return numbers;
}

void Network::ExpectNothingLostOrDoubled(const std::vector<ClientProgram::Told>& clients) const {
  std::vector<u64> noted = Ledger();
  std::sort(noted.begin(), noted.end());
  EXPECT_EQ(std::adjacent_find(noted.begin(), noted.end()), noted.end()) << "doubled";
  size_t acknowledged = 0;
  size_t lost = 0;
  for (const ClientProgram::Told& told : clients) {
    acknowledged += told.acknowledged.size();
    for (const u64 number : told.acknowledged) {
      if (!std::binary_search(noted.begin(), noted.end(), number)) ++lost;
    }
    EXPECT_THAT(told.violations, testing::IsEmpty());
  }
  EXPECT_EQ(lost, 0u) << "of " << acknowledged;
  EXPECT_GE(noted.size(), acknowledged);
}

std::unique_ptr<RawClient> Network::RawSession(bool listens) const {
  auto client = std::make_unique<RawClient>(Port());
  EXPECT_EQ(client->LogOn(u"root", u"toor"), ZN_OK);
  if (listens) static_cast<void>(client->Objects(ledger::kLeafType));
  return client;
}

ObjectId Network::LedgerOf(RawClient& client) {
  const PropertySet set = client.Objects(ledger::kType);
  const Value* objects = set.FindValue("Objects", ZN_TYPE_OBJECT | ZN_TYPE_ARRAY);
  EXPECT_NE(objects, nullptr);
  if (objects == nullptr || objects->AsArray().size() != 1) return {};
  return objects->AsArray()[0].AsSet().FindValue("ObjectId", ZN_TYPE_OBJECT_ID)->AsGuid();
}

PropertySet Network::LedgerCall(const ObjectId& ledger, u32 minorCode, PropertySet data) {
  return CallOf(ledger, ledger::kInterface, ledger::kMajor, minorCode, std::move(data));
}

}  // namespace zn::test
