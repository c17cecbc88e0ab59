// The merge table of an update sequence, and the question whether any client listens.
#include "framework/common/zncore/changerecord.h"

#include <atomic>
#include <string_view>
#include <utility>

namespace zn {

namespace {

bool Contains(const std::string& topic, std::string_view part) noexcept {
  return topic.find(part) != std::string::npos;
}

std::atomic<ClientsPresentTest> clientsPresentTest{nullptr};

}  // namespace

void UpdateQueue::Clear() noexcept {
  addedIds_.clear();
  dataChangedIds_.clear();
  childChangedIds_.clear();
  parentChangedIds_.clear();
  interfaceChangedIds_.clear();
  records_.clear();
}

std::vector<std::unique_ptr<ChangeRecord>> UpdateQueue::Take() {
  std::vector<std::unique_ptr<ChangeRecord>> records = std::move(records_);
  Clear();
  return records;
}

// What becomes of a record whose object has one of its kind queued already.
enum class UpdateQueue::OnRepeat { kReplace, kDrop };

// One row of the table: the kind of change by its topic, where its records are remembered, and what
// a repeated one does. The rows are tried in this order.
struct UpdateQueue::MergeRow {
  std::string_view topicPart;
  RecordMap UpdateQueue::*queued;
  OnRepeat onRepeat;
};

const UpdateQueue::MergeRow* UpdateQueue::FindRow(const ChangeRecord& record) noexcept {
  static constexpr MergeRow kRows[] = {
      {".data.change.", &UpdateQueue::dataChangedIds_, OnRepeat::kReplace},
      // The lists of relations are read when the record is sent: one record says it all.
      {".relation.parent.", &UpdateQueue::parentChangedIds_, OnRepeat::kDrop},
      {".relation.child.", &UpdateQueue::childChangedIds_, OnRepeat::kDrop},
      {".interface.change.", &UpdateQueue::interfaceChangedIds_, OnRepeat::kReplace},
      {".object.add.", &UpdateQueue::addedIds_, OnRepeat::kReplace},
  };
  // A task's changes are progress, and progress is told step by step.
  if ((record.flags & EVENT_TASK) != 0) return nullptr;
  for (const MergeRow& row : kRows) {
    if (Contains(record.topic, row.topicPart)) return &row;
  }
  return nullptr;
}

void UpdateQueue::Merge(ChangeRecord&& record) {
  const MergeRow* row = FindRow(record);
  if (row == nullptr) {
    records_.push_back(std::make_unique<ChangeRecord>(std::move(record)));
    return;
  }
  RecordMap& queued = this->*row->queued;
  const bool isAdd = &queued == &addedIds_;
  // The record of an object's creation is made afresh at the end and carries its final state.
  if (!isAdd && addedIds_.contains(record.objectId)) return;
  const auto earlier = queued.find(record.objectId);
  if (!isAdd && earlier != queued.end()) {
    if (row->onRepeat == OnRepeat::kDrop) return;
    earlier->second->topic = std::move(record.topic);
    earlier->second->data = std::move(record.data);
    return;
  }
  records_.push_back(std::make_unique<ChangeRecord>(std::move(record)));
  queued[records_.back()->objectId] = records_.back().get();
}

void SetClientsPresentTest(ClientsPresentTest test) noexcept {
  clientsPresentTest.store(test, std::memory_order_relaxed);
}

bool ClientsPresent() noexcept {
  const ClientsPresentTest test = clientsPresentTest.load(std::memory_order_relaxed);
  return test != nullptr && test();
}

}  // namespace zn
