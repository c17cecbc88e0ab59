// The secret behind the hashes.
#include "support/common/flat_table.h"

#include "support/common/platform.h"

namespace zn {

u64 MakeHashSeed() noexcept {
  u64 seed = 0;
  if (RandomBytes(&seed, sizeof seed)) return seed;
  return reinterpret_cast<std::uintptr_t>(&seed);  // the system moves stacks about; better than 0
}

}  // namespace zn
