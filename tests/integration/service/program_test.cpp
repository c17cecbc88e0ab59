// The program itself: its command line, its check of the settings, its signals, its notices.
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <iterator>
#include <set>

#include <gmock/gmock.h>

#include "tests/integration/service/raw_client.h"
#include "tests/integration/service/service_process.h"
#include "tests/unit/support/refused_calls.h"

namespace zn::test {

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

TEST(ServiceProgram, ExplainsItself) {
  ServiceProcess service;
  EXPECT_EQ(service.RunToEnd({"--help"}), 0);
  EXPECT_THAT(service.Output(), AllOf(HasSubstr("--check"), HasSubstr("--foreground --port 0"),
                                      HasSubstr("Exit codes"), HasSubstr("SIGHUP")));
  EXPECT_EQ(service.RunToEnd({"--version"}), 0);
  EXPECT_EQ(service.Output(), "znsvc 3.0.0.0\n");
}

TEST(ServiceProgram, RefusesAWrongCommandLine) {
  ServiceProcess service;
  for (const std::vector<std::string>& arguments : {std::vector<std::string>{"--prot", "1"},
                                                    {"--port", "65536"},
                                                    {"--port", "x"},
                                                    {"--port", "-1"},
                                                    {"--port"},
                                                    {"--settings"},
                                                    {"--check", "word"},
                                                    {"word"}}) {
    EXPECT_EQ(service.RunToEnd(arguments), 2) << arguments[0];
  }
}

TEST(ServiceProgram, EndsWithoutAPortOfItsOwn) {
  ServiceProcess first;
  first.MustStart();
  ServiceProcess second;
  EXPECT_EQ(second.RunToEnd({"--port", std::to_string(first.Port())}), 1);
  EXPECT_THAT(second.Output(), HasSubstr("Address already in use"));
}

// The refusal is inherited by the service: its port is free, but nobody can listen on it.
TEST(ServiceProgram, EndsWhenTheLibraryCannotListenOnThePort) {
  ServiceProcess service;
  int code = -1;
  WithRefusedCalls({SYS_listen}, EADDRINUSE, [&] {
    code = service.RunToEnd({"--port", "0", "--foreground"});
  });
  EXPECT_EQ(code, 1);
  EXPECT_THAT(service.Output(), AllOf(HasSubstr("the start failed: port "),
                                      HasSubstr(" cannot be opened; the trace tells why")));
  EXPECT_THAT(service.Output(), Not(HasSubstr("listening on")));
}

TEST(ServiceProgram, ListensOnTheFreePortThatItTells) {
  ServiceProcess services[4];
  for (ServiceProcess& service : services) service.Begin({});
  std::set<unsigned> told;
  for (ServiceProcess& service : services) {
    ASSERT_TRUE(service.WaitUntilItListens()) << service.Output();
    told.insert(service.Port());
    RawClient client(service.Port());
    EXPECT_EQ(client.LogOn(u"root", u"toor"), ZN_OK);
    EXPECT_THAT(service.Trace(), HasSubstr("ZnSvc:Client connected."));
    EXPECT_THAT(service.Trace(), Not(HasSubstr("Bind failed for BroadcastListener")));
  }
  EXPECT_EQ(told.size(), std::size(services));
}

TEST(ServiceProgram, EndsWhenTheStartFailsAndSaysWhereToLook) {
  ServiceProcess service;
  WriteFile(service.SettingsFile(), "InstallDir = '/nowhere'\nBindAddress = '127.0.0.1'\n");
  EXPECT_EQ(service.RunToEnd({"--port", "0"}), 1);
  EXPECT_THAT(service.Output(), AllOf(HasSubstr("the start failed: 0x"), HasSubstr("--check")));
}

TEST(ServiceProgram, ListensNowhereWhenItsAddressIsNoText) {
  ServiceProcess service;
  for (const char* value : {"7", "['127.0.0.1']", "true", "{ address = '127.0.0.1' }"}) {
    SCOPED_TRACE(value);
    WriteFile(service.SettingsFile(), "InstallDir = '" + service.Folder().Path() +
                                          "'\nBindAddress = " + value +
                                          "\n[ProviderGroup]\n[Providers]\n");
    EXPECT_EQ(service.RunToEnd({"--port", "0"}), 1);
    EXPECT_THAT(service.Output(), HasSubstr("BindAddress must be a text; znsvc --check"));
    EXPECT_EQ(service.RunToEnd({"--check"}), 1);
    EXPECT_THAT(service.Output(), HasSubstr(":2: error: BindAddress must be a text"));
  }
}

TEST(ServiceProgram, ListensNowhereWhenItsAddressIsNotOfThisMachine) {
  ServiceProcess service;
  std::string settings = ReadFile(service.SettingsFile());
  settings.replace(settings.find("127.0.0.1"), 9, "198.51.100.7");
  WriteFile(service.SettingsFile(), settings);
  EXPECT_EQ(service.RunToEnd({"--port", "0"}), 1);
  EXPECT_THAT(service.Output(), HasSubstr("no free port on 198.51.100.7: "));
  EXPECT_EQ(service.RunToEnd({"--port", "2148"}), 1);
  EXPECT_THAT(service.Output(), HasSubstr("TCP 198.51.100.7:2148: "));
}

TEST(ServiceProgram, EndsWithoutASettingsFile) {
  ServiceProcess service;
  std::filesystem::remove(service.SettingsFile());
  EXPECT_EQ(service.RunToEnd({"--port", "0"}), 1);
  EXPECT_THAT(service.Output(), HasSubstr("the start failed: 0x"));
  EXPECT_THAT(service.Output(), HasSubstr(service.SettingsFile() + ": there is no such file"));
}

struct NoSettingsRow {
  std::string file;
  const char* fault;
};
TEST(ServiceProgram, TakesNothingButAFileForItsSettingsAndWaitsForNone) {
  ServiceProcess service;
  const std::string pipe = service.Folder() / "pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  const std::string loop = service.Folder() / "loop";
  ASSERT_EQ(symlink(loop.c_str(), loop.c_str()), 0);
  const NoSettingsRow rows[] = {{service.Folder() / "nowhere", "there is no such file"},
                                {service.Folder().Path(), "it is a folder"},
                                {pipe, "it is not a regular file"},
                                {loop, "it cannot be read: Too many levels of symbolic links"},
                                {"/dev/null", "it is not a regular file"}};
  for (const auto& [file, fault] : rows) {
    SCOPED_TRACE(file);
    EXPECT_EQ(service.RunToEnd({"--check", "--settings", file}), 1);
    EXPECT_EQ(service.Output(),
              file + ": error: " + fault + "\n" + file + ": 1 errors, 0 warnings\n");
    EXPECT_EQ(service.RunToEnd({"--port", "0", "--foreground", "--settings", file}), 1);
    EXPECT_THAT(service.Output(), AllOf(HasSubstr("the start failed: 0x"),
                                        HasSubstr("the settings file is " + file + ": " + fault)));
  }
}

TEST(ServiceProgram, AcceptsAnyPasswordOnlyWhenToldAndOnlyOnALoopbackAddress) {
  {
    ServiceProcess service;
    service.MustStart({"--insecure-accept-any-password"});
    EXPECT_THAT(service.Output(), HasSubstr("WARNING: any password is accepted"));
    RawClient client(service.Port());
    EXPECT_EQ(client.LogOn(u"whoever", u""), ZN_OK);
  }
  ServiceProcess open;
  std::string settings = ReadFile(open.SettingsFile());
  settings.replace(settings.find("BindAddress = '127.0.0.1'"), 25, "");
  WriteFile(open.SettingsFile(), settings);
  EXPECT_EQ(open.RunToEnd({"--port", "0", "--insecure-accept-any-password"}), 2);
  EXPECT_THAT(open.Output(), HasSubstr("--insecure-on-every-address"));
  EXPECT_EQ(open.RunToEnd({"--port", "0", "--insecure-on-every-address"}), 2);
}

TEST(ServiceProgram, ReadsTheTraceFlagsAnewAtSighup) {
  ServiceProcess service;
  service.MustStart();
  RawClient client(service.Port());
  ASSERT_EQ(client.LogOn(u"root", u"toor"), ZN_OK);
  static_cast<void>(client.Objects("KELD_Object"));
  EXPECT_THAT(service.Trace(), Not(HasSubstr("CacheRequest by client")));
  service.AddSettings("[Tracing.znmira]\nTRACEDISPATCH = 1\n");
  service.Signal(SIGHUP);
  while (service.Trace().find("CacheRequest by client") == std::string::npos) {
    static_cast<void>(client.Objects("KELD_Object"));
  }
  service.Signal(SIGINT);
  EXPECT_EQ(service.WaitForEnd(), 0);
}

TEST(ServiceProgram, TellsSystemdWhenItIsReadyAndWhenItStops) {
  ServiceProcess service;
  const std::string path = service.Folder() / "notify";
  const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_un name{};
  name.sun_family = AF_UNIX;
  path.copy(name.sun_path, sizeof name.sun_path - 1);
  ASSERT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&name), sizeof name), 0);
  service.SetNotifySocket(path);
  const auto receive = [fd] {
    char buffer[1024];
    const ssize_t got = recv(fd, buffer, sizeof buffer, 0);
    return std::string(buffer, got < 0 ? 0 : static_cast<size_t>(got));
  };
  service.MustStart();
  EXPECT_EQ(receive(),
            "READY=1\nSTATUS=listening on 127.0.0.1, port " + std::to_string(service.Port()));
  service.Signal(SIGHUP);
  EXPECT_THAT(receive(), HasSubstr("RELOADING=1"));
  EXPECT_THAT(receive(), HasSubstr("READY=1"));
  service.Signal(SIGTERM);
  EXPECT_THAT(receive(), HasSubstr("STOPPING=1"));
  EXPECT_EQ(service.WaitForEnd(), 0);
  close(fd);
}

// --- The check of the settings -----------------------------------------------------------------

TEST(ServiceCheck, FindsNothingWrongWithGoodSettings) {
  ServiceProcess service;
  EXPECT_EQ(service.RunToEnd({"--check"}), 0);
  EXPECT_THAT(service.Output(), HasSubstr(": 0 errors, "));
}

struct FaultCase {
  const char* why;
  const char* settings;  // the whole file; $D is the test's folder
  const char* told;
};
constexpr FaultCase kFaults[] = {
    {"no TOML", "InstallDir = \n", ":1: error: column 14: "},
    {"nothing", "", "error: InstallDir is missing"},
    {"no providers", "InstallDir = '$D'\n[ProviderGroup]\n", "error: Providers is missing"},
    {"no folder", "InstallDir = '$D/gone'\n",
     ":1: error: InstallDir: there is no folder '$D/gone'"},
    {"another type", "LogonTimeout = 'soon'\n",
     ":1: error: LogonTimeout must be a number from 0 to 4294967295"},
    {"out of range", "MaxClients = -1\n", ":1: error: MaxClients must be a number"},
    {"an unknown value", "InstalDir = '$D'\n",
     ":1: warning: InstalDir is not known to the service"},
    {"an address of nobody", "BindAddress = '198.51.100.7'\n",
     ":1: error: BindAddress: '198.51.100.7' is no IPv4 address of this machine"},
    {"no address", "BindAddress = 'here'\n", ":1: error: BindAddress: 'here' is no IPv4 address"},
    {"a library that is not there", "[Providers.gone]\nImageFile = 'gone'\n",
     ":1: error: Providers.gone: the library 'gone' cannot be loaded"},
    {"another entry point", "[Providers.example]\nImageFile = '$P'\nProviderEntry = 'Enter'\n",
     "has no entry point 'Enter'"},
    {"a strict dependency", "[Providers.example]\nImageFile = '$P'\nStrictDependsOn = 'gone'\n",
     ":1: error: Providers.example: it depends strictly on 'gone', which does not exist"},
    {"a dependency", "[Providers.example]\nImageFile = '$P'\nDependsOn = 'gone'\n",
     ":1: warning: Providers.example: DependsOn: there is no 'gone'"},
    {"a group", "[ProviderGroup]\n[Providers.example]\nImageFile = '$P'\nProviderGroup = 'late'\n",
     ":2: warning: Providers.example: there is no group 'late'"},
    {"a circle of groups",
     "[ProviderGroup.a]\nDependsOn = 'b'\n[ProviderGroup.b]\nDependsOn = 'a'\n",
     ":1: error: ProviderGroup.a: it depends on itself"},
    {"a user of nowhere", "[Security]\nAccessUsers = 'no-such-user'\n",
     ":2: warning: AccessUsers: 'no-such-user': this machine knows no user 'no-such-user'"},
    {"a group of nowhere", "[Security]\nAccessGroups = 'no-such-group'\n",
     "this machine knows no group 'no-such-group'"},
    {"another machine", "[Security]\nAccessUsers = 'elsewhere\\root'\n",
     "'elsewhere' is not this machine, so nobody is meant"},
    {"a list of another type", "[Security]\nAccessUsers = ['root']\n",
     ":2: error: AccessUsers must be a text, joined by ';'"},
    {"a document that is not there", "ObjectTypeFile = '$D/gone.xml'\n",
     ":1: error: ObjectTypeFile: the file '$D/gone.xml' cannot be read"},
    {"a document that is none", "AlertTypeFile = '$D/settings.toml'\n",
     ":1: error: AlertTypeFile: $D/settings.toml:1: "},
    {"a catalog that is not there",
     "[MessageCatalogs.'{id}'.MiraSkin.1]\n1033 = { ImageFile = '$D/gone' }\n",
     ":2: error: MessageCatalogs.{id}.MiraSkin.1.1033: the file '$D/gone' cannot be read"},
    {"a catalog that is none",
     "[MessageCatalogs.'{id}'.MiraSkin.1]\n1033 = { ImageFile = '$D/settings.toml' }\n",
     ", line 1: no '=' behind the number"},
};

std::string Fill(std::string text, const std::string& folder) {
  for (const auto& [mark, value] :
       {std::pair<std::string, std::string>{"$D", folder}, {"$P", ZN_EXAMPLE_PROVIDER}}) {
    for (size_t at = text.find(mark); at != std::string::npos; at = text.find(mark)) {
      text.replace(at, mark.size(), value);
    }
  }
  return text;
}

TEST(ServiceCheck, SaysWhatIsWrongAndWhere) {
  ServiceProcess service;
  for (const FaultCase& row : kFaults) {
    SCOPED_TRACE(row.why);
    WriteFile(service.SettingsFile(), Fill(row.settings, service.Folder().Path()));
    EXPECT_EQ(service.RunToEnd({"--check"}), 1);
    EXPECT_THAT(service.Output(), HasSubstr(Fill(row.told, service.Folder().Path())));
  }
}

TEST(ServiceCheck, TakesAWarningForNoError) {
  ServiceProcess service("Unheard = 1\n");
  EXPECT_EQ(service.RunToEnd({"--check"}), 0);
  EXPECT_THAT(service.Output(), AllOf(HasSubstr(":3: warning: Unheard is not known to the service"),
                                      HasSubstr(": 0 errors, ")));
}

TEST(ServiceCheck, FindsADamagedCatalog) {
  ServiceProcess service;
  WriteFile(service.Folder() / "cat", "# texts\n1A = good\nnonsense = bad\n");
  service.AddSettings("[MessageCatalogs.'{id}'.MiraSkin.1]\n1033 = { ImageFile = '" +
                      (service.Folder() / "cat") + "' }\n");
  EXPECT_EQ(service.RunToEnd({"--check"}), 1);
  EXPECT_THAT(service.Output(), HasSubstr("cat, line 3: the number is not hexadecimal"));
}

}  // namespace

}  // namespace zn::test
