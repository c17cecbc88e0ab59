// Feeds every file of a kept corpus to a fuzz target once, in builds without libFuzzer. An empty or
// missing folder is an error: a target without inputs would test nothing.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv) {
  if (argc != 2 || !std::filesystem::is_directory(argv[1])) {
    std::fprintf(stderr, "usage: %s CORPUS-FOLDER\n", argv[0]);
    return 2;
  }
  int replayed = 0;
  for (const auto& entry : std::filesystem::directory_iterator(argv[1])) {
    std::ifstream file(entry.path(), std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    ++replayed;
  }
  std::printf("%d inputs replayed\n", replayed);
  return replayed > 0 ? 0 : 1;
}
