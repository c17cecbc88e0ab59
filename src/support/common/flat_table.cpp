// The secret behind the hashes.
#include "support/common/flat_table.h"

#include "support/common/platform.h"

namespace zn {

u64 MakeHashSeed() noexcept {
  u64 seed = 0;
  if (RandomBytes(&seed, sizeof seed)) return seed;
  // The system moves stacks about; better than 0.
  seed = reinterpret_cast<std::uintptr_t>(&seed);
  return seed;
}

}  // namespace zn
