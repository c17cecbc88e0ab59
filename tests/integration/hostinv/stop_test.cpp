// The end of the library while the provider works: its threads end, and nobody is left waiting. One
// test, for the library stops once in a process.
#include <filesystem>
#include <future>

#include <gtest/gtest.h>

#include "hostinv.h"
#include "loaded_bus.h"

namespace hostinv {
namespace {

constexpr GUID kFilesInterface = HOSTINV_FILES_INTERFACE;

bool OnReport(TaskReport* report) {
  auto* finished = static_cast<std::promise<u32>*>(report->context);
  if (report->state == TASK_STATE_FINISHED) finished->set_value(report->result);
  return true;
}

TEST(Stop, EndsARunningChecksum) {
  const TemporaryFolder tree;
  tree.Write("proc/self/mountinfo", "28 1 8:1 / /data rw - ext4 /dev/sda1 rw\n");
  tree.Write("data/endless", "");
  std::filesystem::resize_file(tree.Path() + "/data/endless", std::uintmax_t{1} << 42U);
  LoadedBus& bus = LoadedBus::Start("Root = \"" + tree.Path() + "\"\nPeriod = 100\n");
  ASSERT_EQ(bus.StartStatus(), 0U);

  ZnHandle in = nullptr;
  ZnHandle out = nullptr;
  ASSERT_EQ(PsCreatePropset(&in), 0U);
  ASSERT_EQ(PsCreatePropset(&out), 0U);
  std::string name = "Path";
  std::string path = "endless";
  const Property2 property{name.data(), ZN_TYPE_STRING, 0, static_cast<u32>(path.size() + 1),
                           path.data()};
  ASSERT_EQ(PsAddProperty(in, &property), 0U);
  std::promise<u32> finished;
  std::future<u32> result = finished.get_future();
  ObjectId answering{};
  ObjectId task{};
  ASSERT_EQ(PrCallDispatch(bus.Database(), bus.Find("fs:/data"), &kFilesInterface,
                           HOSTINV_FILES_MAJOR, HOSTINV_CHECKSUM, in, out, ZN_CALL_ASYNCHRONOUS, 0,
                           &finished, OnReport, &answering, &task),
            0U);
  EXPECT_EQ(PsDestroyPropset(in), 0U);
  EXPECT_EQ(PsDestroyPropset(out), 0U);
  bus.Stop();
  ASSERT_EQ(result.wait_for(std::chrono::seconds(0)), std::future_status::ready)
      << "the task was still running when the library had stopped";
  EXPECT_EQ(result.get(), ZNE_TASK_STOPPED);
}

}  // namespace
}  // namespace hostinv
