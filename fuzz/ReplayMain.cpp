// Runs a fuzz target once over each file of the folders and files named on the command line.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size);

namespace {

void replay(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> read{std::istreambuf_iterator<char>(file), {}};
    // A heap block of just that size, so that the sanitizer sees one byte too many.
    const auto exact = std::make_unique<std::uint8_t[]>(read.size());
    std::copy(read.begin(), read.end(), exact.get());
    LLVMFuzzerTestOneInput(exact.get(), read.size());
}

}  // namespace

int main(int argc, char** argv) {
    int count = 0;
    for (int i = 1; i < argc; ++i) {
        if (!std::filesystem::is_directory(argv[i])) {
            replay(argv[i]);
            ++count;
            continue;
        }
        for (const auto& entry : std::filesystem::recursive_directory_iterator(argv[i]))
            if (entry.is_regular_file()) {
                replay(entry.path());
                ++count;
            }
    }
    std::printf("%d inputs\n", count);
    return count > 0 ? 0 : 1;  // a target without seeds proves nothing
}
