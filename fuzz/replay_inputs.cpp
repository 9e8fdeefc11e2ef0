// replay_inputs.cpp - main() of a fuzz target outside the fuzzer: runs every file of the directories given.
// Also runs each file cut at every length up to 512 bytes, so that a kept input guards its neighbours too;
// `--whole` leaves that out, for the thousands of inputs of a corpus.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string_view>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

// In a heap block of exactly its size, so that the address sanitizer sees every read behind it.
void Run(const std::vector<uint8_t>& input, size_t size) {
  const auto exact = std::make_unique<uint8_t[]>(size);
  std::copy_n(input.begin(), size, exact.get());
  LLVMFuzzerTestOneInput(exact.get(), size);
}

size_t RunFile(const std::filesystem::path& path, bool whole) {
  std::ifstream file(path, std::ios::binary);
  const std::vector<uint8_t> input{std::istreambuf_iterator<char>(file), {}};
  const size_t cuts = whole ? 0 : std::min<size_t>(input.size(), 512);
  for (size_t size = 0; size < cuts; ++size) Run(input, size);
  Run(input, input.size());
  return cuts + 1;
}

}  // namespace

int main(int argc, char** argv) {
  size_t files = 0;
  size_t runs = 0;
  const bool whole = argc > 1 && std::string_view(argv[1]) == "--whole";
  for (int i = whole ? 2 : 1; i < argc; ++i) {
    if (!std::filesystem::is_directory(argv[i])) continue;
    for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
      if (!entry.is_regular_file()) continue;
      runs += RunFile(entry.path(), whole);
      ++files;
    }
  }
  std::printf("%zu inputs, %zu runs\n", files, runs);
  return files == 0 ? 1 : 0;
}
