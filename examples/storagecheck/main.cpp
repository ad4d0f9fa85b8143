// Checks storage files, such as the search index of a mailbox, and names what is wrong with them.
//
//   storagecheck FILE...
//
// Exit status: 0 all are sound, 1 at least one is not, 2 wrong use.
#include <lorvale/toolkit.h>

#include <cstdio>
#include <string>

namespace {

void printAll(const char* kind, const std::vector<std::string>& findings) {
    for (const std::string& finding : findings) std::printf("  %s: %s\n", kind, finding.c_str());
}

/// A doubt is a reason to look too: it is what a file looks like of which the end is missing.
bool check(const char* path) {
    const auto report = brindle::VerifyStorageFile(path);
    const bool good = report.Sound() && report.doubts.empty();
    std::printf("%s: %s\n", path, good ? "sound" : report.Sound() ? "doubtful" : "damaged");
    printAll("broken", report.violations);
    printAll("doubt", report.doubts);
    if (report.maxID > 0)
        std::printf("  %u blocks in %llu of %u bytes, %u names, %u of %u IDs free\n", report.writtenBlocks,
                    static_cast<unsigned long long>(report.usedBytes), report.fileBytes, report.names,
                    report.freeIDs, report.maxID);
    return good;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "use: %s FILE...\n", argv[0]);
        return 2;
    }
    bool good = true;
    for (int i = 1; i < argc; ++i) {
        try {
            good &= check(argv[i]);
        } catch (const brindle::IAException& failure) {
            std::printf("%s: %s\n", argv[i], failure.What());
            good = false;
        }
    }
    return good ? 0 : 1;
}
