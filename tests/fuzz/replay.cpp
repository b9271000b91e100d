/// Runs the fuzz target over the files of a folder: inputs that once showed something new or wrong.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv) {
  int files = 0;
  for (int k = 1; k < argc; ++k)
    for (const auto& entry : std::filesystem::directory_iterator(argv[k])) {
      std::ifstream in(entry.path(), std::ios::binary);
      const std::string text{std::istreambuf_iterator<char>(in), {}};
      LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
      ++files;
    }
  std::printf("%d files\n", files);
  return files > 0 ? 0 : 1;
}
