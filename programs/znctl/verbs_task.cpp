// tasks: the asynchronous calls that are under way, and following one of them to its end.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <memory>

#include "console.h"
#include "failure.h"
#include "inbox.h"
#include "json_form.h"
#include "listener.h"
#include "render.h"
#include "status_names.h"
#include "text.h"
#include "zn/ob.h"
#include "zn/pr.h"
#include "zn/status.h"

namespace zn::ctl {
namespace {

constexpr char kTaskType[] = "KELD_Task";
constexpr char kTaskTopics[] = "event.keld.dom.object.KELD_Task";

struct TaskInfo {
  Id id;
  std::string name;
  u32 state = 0;
  u32 percent = 0;
  u32 result = 0;
};

u32 Number(const PropertyList& properties, const char* name) {
  const Property* property = FindProperty(properties, name);
  const auto* number = property == nullptr ? nullptr : std::get_if<u64>(&property->value.data);
  return number == nullptr ? 0 : static_cast<u32>(*number);
}

TaskInfo InfoOf(const Id& id, const PropertyList& properties) {
  return {id, NameFrom(kTaskType, properties), Number(properties, "State"),
          Number(properties, "PercentComplete"), Number(properties, "Result")};
}

const char* StateText(u32 state) {
  switch (state) {
    case TASK_STATE_CREATED:
      return "created";
    case TASK_STATE_FINISHED:
      return "finished";
    case TASK_STATE_RUNNING:
      return "running";
    default:
      return "unknown";
  }
}

Json JsonOfTask(const TaskInfo& task) {
  return {{"id", IdText(task.id)},
          {"name", task.name},
          {"state", StateText(task.state)},
          {"percent", task.percent},
          {"result", task.result}};
}

std::vector<TaskInfo> ReadTasks(const Database& bus) {
  std::vector<TaskInfo> tasks;
  for (const Id& id : bus.Objects(kTaskType)) {
    const std::optional<PropertyList> properties = bus.Properties(id);
    if (properties) tasks.push_back(InfoOf(id, *properties));
  }
  return tasks;
}

int RunTasks(Console& console) {
  const std::vector<TaskInfo> tasks = ReadTasks(console.Bus());
  if (console.json) {
    Json document = JsonDocument("tasks");
    document["tasks"] = Json::array();
    for (const TaskInfo& task : tasks) document["tasks"].push_back(JsonOfTask(task));
    WriteOut(JsonPretty(document));
    return kExitOk;
  }
  if (tasks.empty()) WriteError("no task is under way\n");
  std::string out;
  for (const TaskInfo& task : tasks) {
    out += fmt::format("{}  {:>3} %  {:<8}  {}\n", IdText(task.id), task.percent,
                       StateText(task.state), Printable(task.name));
  }
  WriteOut(out);
  return kExitOk;
}

// To the end of the task, which is the deletion of its object.
int RunFollow(Console& console, const std::string& text) {
  Listener listener(console.Bus(), kTaskTopics);
  const Id id = console.Resolve(text);
  TaskInfo task = InfoOf(id, console.Bus().Properties(id).value_or(PropertyList()));
  ProgressBar bar(console.Screen(), Printable(task.name));
  bool isGone = !console.Bus().Exists(id);
  while (!isGone) {
    bar.Update(task.percent);
    const std::optional<InboxItem> item = Inbox::Get().Wait(std::nullopt);
    if (!item) throw Interrupted(Inbox::Get().Signal());
    if (std::holds_alternative<ConnectionLost>(*item)) {
      bar.Clear();
      throw Failure(UCLW_SOCKET_DISCONNECTED, "lost the connection to " + console.remote->Text(),
                    {fmt::format("the task {} may go on", IdText(id))});
    }
    const auto* event = std::get_if<BusEvent>(&*item);
    if (event == nullptr || !(event->object == id)) continue;
    isGone = event->topic.find(".object.delete.") != std::string::npos;
    if (isGone && event->hasData) task = InfoOf(id, event->data);
    if (isGone) break;
    const std::optional<PropertyList> properties = console.Bus().Properties(id);
    if (properties) task = InfoOf(id, *properties);
  }
  bar.Clear();
  if (console.json) {
    Json document = JsonDocument("tasks");
    document["task"] = JsonOfTask(task);
    WriteOut(JsonPretty(document));
  }
  Check(task.result, fmt::format("finish the task {}", IdText(id)));
  if (!console.json) WriteOut("finished\n");
  return kExitOk;
}

// A task stops when its object is gone at its next report. That works where the object is.
int RunStop(Console& console, const std::string& text) {
  if (console.IsRemote()) {
    throw UsageError(
        "a server stops a task only when its provider offers a call for that; "
        "what a client deletes is its own copy");
  }
  const Id id = console.Resolve(text);
  if (console.Bus().TypeOf(id).value_or("") != kTaskType) {
    throw UsageError(fmt::format("{} is no task", console.Describe(id)));
  }
  console.Bus().Delete(id);
  WriteOut("told to stop\n");
  return kExitOk;
}

}  // namespace

void AddTaskVerbs(CLI::App& app, Command* command) {
  CLI::App* verb = app.add_subcommand("tasks", "Show the tasks that are under way");
  verb->require_subcommand(0, 1);
  const auto add = [&](const char* name, const char* about,
                       int (*run)(Console&, const std::string&)) {
    auto text = std::make_shared<std::string>();
    CLI::App* one = verb->add_subcommand(name, about);
    one->add_option("task", *text, "Id or start of an id")->required();
    one->callback([=] { *command = [=](Console& c) { return run(c, *text); }; });
  };
  add("follow", "Follow one to its end", &RunFollow);
  add("stop", "Tell one to stop", &RunStop);
  verb->callback([=] {
    if (verb->get_subcommands().empty()) *command = [](Console& c) { return RunTasks(c); };
  });
}

}  // namespace zn::ctl
