// Runs a fuzz target over every file of its seed corpus, as a plain test.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int count, char** arguments) {
  if (count != 2) {
    std::fprintf(stderr, "usage: %s CORPUS_FOLDER\n", arguments[0]);
    return 2;
  }
  int files = 0;
  for (const auto& entry : std::filesystem::directory_iterator(arguments[1])) {
    std::ifstream in(entry.path(), std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(in)), {});
    // Every prefix too: what parses a stream has to bear its end at any byte.
    for (std::size_t length = 0; length < bytes.size() && length < 512; ++length) {
      LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), length);
    }
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    ++files;
  }
  std::printf("%d seeds\n", files);
  return files > 0 ? 0 : 1;
}
