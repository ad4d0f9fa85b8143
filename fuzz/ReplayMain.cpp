// replay TARGET PATH...: runs a fuzz target once over each file of the folders and files.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string_view>
#include <vector>

#include "Targets.h"  // made by the build: the list of all targets

using FuzzTarget = int (*)(const std::uint8_t*, std::size_t);

#define LORVALE_DECLARE_TARGET(name) extern "C" int replay_##name(const std::uint8_t*, std::size_t);
LORVALE_FUZZ_TARGETS(LORVALE_DECLARE_TARGET)

namespace {

FuzzTarget targetNamed(std::string_view name) {
#define LORVALE_ANSWER_TARGET(candidate) \
    if (name == #candidate) return replay_##candidate;
    LORVALE_FUZZ_TARGETS(LORVALE_ANSWER_TARGET)
    return nullptr;
}

void replay(FuzzTarget target, const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> read{std::istreambuf_iterator<char>(file), {}};
    // A heap block of just that size, so that the sanitizer sees one byte too many.
    const auto exact = std::make_unique<std::uint8_t[]>(read.size());
    std::copy(read.begin(), read.end(), exact.get());
    target(exact.get(), read.size());
}

}  // namespace

int main(int argc, char** argv) {
    const auto target = argc > 1 ? targetNamed(argv[1]) : nullptr;
    if (target == nullptr) {
        std::fprintf(stderr, "usage: replay TARGET PATH...\n");
        return 2;
    }
    int count = 0;
    for (int i = 2; i < argc; ++i) {
        if (!std::filesystem::is_directory(argv[i])) {
            replay(target, argv[i]);
            ++count;
            continue;
        }
        for (const auto& entry : std::filesystem::recursive_directory_iterator(argv[i])) {
            if (!entry.is_regular_file()) continue;
            replay(target, entry.path());
            ++count;
        }
    }
    std::printf("%d inputs\n", count);
    return count > 0 ? 0 : 1;  // a target without seeds proves nothing
}
