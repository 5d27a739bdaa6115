// The suite's own run of a fuzzer: every input of its corpus, and every beginning of the small ones.
//
//   NAME_corpus tests/corpus/NAME      NAME.hex, where that is: an input a line; NAME/, where that is: a file is an input

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

namespace fs = std::filesystem;

constexpr size_t kSmall = 200;

unsigned run_count = 0;

/// As a fuzzer does it: in memory of their own, so that a byte beside them is seen.
void run(const std::string& where, const std::vector<uint8_t>& bytes) {
  std::fprintf(stderr, "%s\n", where.c_str());
  for (size_t size = bytes.size() <= kSmall ? 0 : bytes.size(); size <= bytes.size(); ++size) {
    const std::vector<uint8_t> input(bytes.begin(), bytes.begin() + static_cast<long>(size));
    LLVMFuzzerTestOneInput(input.data(), input.size());
  }
  ++run_count;
}

void run_lines(const fs::path& path) {
  std::ifstream file(path);
  std::string line;
  for (unsigned number = 1; std::getline(file, line); ++number) {
    if (line.starts_with('#')) continue;
    std::vector<uint8_t> bytes;
    for (size_t i = 0; i + 1 < line.size(); i += 2) {
      bytes.push_back(static_cast<uint8_t>(std::stoi(line.substr(i, 2), nullptr, 16)));
    }
    run(path.string() + ":" + std::to_string(number), bytes);
  }
}

void run_files(const fs::path& folder) {
  std::vector<fs::path> paths;
  for (const auto& entry : fs::directory_iterator(folder)) paths.push_back(entry.path());
  std::sort(paths.begin(), paths.end());
  for (const fs::path& path : paths) {
    std::ifstream file(path, std::ios::binary);
    run(path.string(), {std::istreambuf_iterator<char>(file), {}});
  }
}

}  // namespace

int main(int argc, char** argv) {
  const std::string corpus = argc == 2 ? argv[1] : "";
  run_lines(corpus + ".hex");
  if (fs::is_directory(corpus)) run_files(corpus);
  std::printf("%u inputs\n", run_count);
  return run_count > 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
