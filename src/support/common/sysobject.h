// Named objects of the system behind a handle of kind 8: named mutexes and shared memory.
#pragma once

namespace zn {

// Closing the handle destroys it.
class SystemObject {
 public:
  SystemObject() = default;
  SystemObject(const SystemObject&) = delete;
  SystemObject& operator=(const SystemObject&) = delete;
  virtual ~SystemObject() = default;
};

}  // namespace zn
