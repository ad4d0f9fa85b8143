/// The directions in which the folders may look at each other, kept by reading every source.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "lorvale/values/text.h"
#include "tests/support/TestSupport.h"

namespace lorvale::testing {
namespace {

namespace fs = std::filesystem;
using Texts = std::vector<std::string>;

/// What the sources below a folder may include in quotes: paths that begin with one of these.
struct Layer {
    std::string folder;
    Texts mayInclude;
    bool mayUseLibraries = false;  // those of docs/dependencies.md
};

/// A folder, the public headers (or families of them) that come with it, and what else it may see.
struct Folder {
    std::string name;
    Texts headers = {};
    Texts more = {};
};

/// Folders by rank, lower ones first; those of one rank do not know each other.
using Ranks = std::vector<std::vector<Folder>>;

const Ranks kBase = {
    {{"base/core",
      {"lorvale/export.h", "lorvale/platform/exception.h", "lorvale/platform/localization.h",
       "lorvale/platform/log.h", "lorvale/platform/mutex.h", "lorvale/values/format.h",
       "lorvale/values/range.h"}}},
    {{"base/text",
      {"lorvale/values/data.h", "lorvale/values/encoding.h", "lorvale/values/regular_expression.h",
       "lorvale/values/text.h"}}},
    {{"base/values", {"lorvale/values/date.h", "lorvale/values/property_list.h"}}},
    {{"base/files"}},
    {{"base/platform",
      {"lorvale/platform/inter_thread.h", "lorvale/platform/notification.h", "lorvale/platform/paths.h",
       "lorvale/platform/progressor.h", "lorvale/platform/run_loop.h", "lorvale/platform/socket.h",
       "lorvale/platform/subprocess.h", "lorvale/platform/thread.h", "lorvale/platform/tls.h",
       "lorvale/platform/user_"}},
     {"base/richtext",
      {"lorvale/values/attributed_text.h", "lorvale/values/file_wrapper.h", "lorvale/values/rich_text.h"}}},
};

const Ranks kToolkit = {{{"toolkit/storage"}},
                        {{"toolkit/analysis"}, {"toolkit/corpus"}},
                        {{"toolkit/index"}},
                        {{"toolkit/retrieval"}}};

// No mail folder below the stores can name a store.
const Ranks kMail = {
    {{"mail/encoding", {"lorvale/mime"}}},
    {{"mail/settings", {"lorvale/defaults"}}},
    {{"mail/model", {"lorvale/message"}}},
    {{"mail/mime", {"lorvale/body"}}},
    {{"mail/stores", {"lorvale/store"}}},
    {{"mail/delivery", {"lorvale/delivery"}},
     {"mail/fetch", {"lorvale/fetch"}},
     {"mail/imap", {"lorvale/imap"}},
     {"mail/search", {"lorvale/search"}, {"toolkit/", "lorvale/toolkit"}}},
    {{"mail/accounts", {"lorvale/account"}}},
};

Texts joined(Texts texts, const Texts& more) {
    texts.insert(texts.end(), more.begin(), more.end());
    return texts;
}

/// Adds what each folder may include: what all of these may, lower ones, itself, and the public headers of
/// both; and what its own public headers may, which is none but such.
void addLayers(std::vector<Layer>& layers, const Ranks& ranks, Texts lower, bool mayUseLibraries = false) {
    for (const auto& rank : ranks) {
        Texts ofThisRank;
        for (const auto& folder : rank) {
            const Texts own = joined(folder.headers, {folder.name + "/"});
            Texts allowed = joined(joined(lower, own), folder.more);
            layers.push_back({folder.name, allowed, mayUseLibraries});
            std::erase_if(allowed, [](const auto& path) { return !path.starts_with("lorvale/"); });
            for (const auto& header : folder.headers) layers.push_back({"include/" + header, allowed});
            ofThisRank = joined(ofThisRank, own);
        }
        lower = joined(lower, ofThisRank);
    }
}

std::vector<Layer> layers() {
    // The most telling folder stands first: the first match counts.
    const Texts services = {"lorvale/export.h", "lorvale/values", "lorvale/platform"};
    const Texts toolkit = {"lorvale/export.h", "lorvale/toolkit"};
    std::vector<Layer> all = {
        {"include/lorvale/export", {}},
        {"include/lorvale/values", {"lorvale/export.h", "lorvale/values"}},
        {"include/lorvale/platform", services},
        {"include/lorvale/toolkit", toolkit},
        {"examples", {"lorvale/"}},
    };
    addLayers(all, kBase, {}, true);
    addLayers(all, kToolkit, toolkit);
    addLayers(all, kMail, joined(services, {"base/"}));
    return all;
}

struct Include {
    bool quoted;
    std::string path;
};

std::vector<Include> includesOf(const fs::path& file) {
    std::vector<Include> includes;
    std::ifstream lines(file);
    for (std::string line; std::getline(lines, line);) {
        auto rest = trimmed(line);
        for (const std::string_view word : {"#", "include"}) {
            rest = rest.starts_with(word) ? trimmed(rest.substr(word.size())) : std::string_view();
        }
        if (rest.empty()) continue;
        const bool quoted = rest[0] == '"';
        const auto end = rest.find(quoted ? '"' : '>', 1);
        if (end != std::string_view::npos) includes.push_back({quoted, std::string(rest.substr(1, end - 1))});
    }
    return includes;
}

/// All sources below a folder of the project, by their paths in it.
Texts sourcesBelow(const std::string& folder) {
    Texts sources;
    const fs::path root = sourceFolder();
    if (!fs::exists(root / folder)) return sources;
    for (const auto& entry : fs::recursive_directory_iterator(root / folder)) {
        const auto extension = entry.path().extension();
        if (extension == ".h" || extension == ".cpp")
            sources.push_back(fs::relative(entry.path(), root).string());
    }
    std::ranges::sort(sources);
    return sources;
}

bool startsWithOneOf(const std::string& path, const Texts& starts) {
    return std::ranges::any_of(starts, [&](const auto& start) { return path.starts_with(start); });
}

bool isOfALibrary(const std::string& path) {
    return startsWithOneOf(
        path, {"fmt/", "plist/", "utf8proc", "libxml/", "openssl/", "gtest", "gmock", "benchmark"});
}

TEST(Layers, IncludesRunDownwards) {
    const fs::path root = sourceFolder();
    const auto table = layers();
    std::size_t seen = 0;
    for (const auto* folder : {"include", "base", "toolkit", "mail", "examples"}) {
        for (const auto& source : sourcesBelow(folder)) {
            const auto layer = std::ranges::find_if(table, [&](const Layer& l) {
                return source.starts_with(l.folder + "/") || source == l.folder + ".h";
            });
            ASSERT_NE(layer, table.end()) << source << " lies in a folder that no layer knows";
            for (const auto& include : includesOf(root / source)) {
                ++seen;
                if (!include.quoted) {
                    EXPECT_TRUE(layer->mayUseLibraries || !isOfALibrary(include.path))
                        << source << " includes <" << include.path << ">, a library for base/ only";
                    continue;
                }
                // An example names its own headers without a folder.
                const bool own =
                    layer->folder == "examples" && fs::exists((root / source).parent_path() / include.path);
                EXPECT_TRUE(own || startsWithOneOf(include.path, layer->mayInclude))
                    << source << " includes \"" << include.path << "\"";
                EXPECT_TRUE(own || fs::exists(root / include.path) ||
                            fs::exists(root / "include" / include.path))
                    << source << " includes \"" << include.path << "\", which is not there from the root";
            }
        }
    }
    EXPECT_GT(seen, 100u);
}

TEST(Layers, PublicHeadersNeedNothingButTheStandardLibrary) {
    for (const auto& source : sourcesBelow("include")) {
        for (const auto& include : includesOf(sourceFolder() / source)) {
            if (include.quoted) continue;
            EXPECT_EQ(include.path.find_first_of("./"), std::string::npos)
                << source << " includes <" << include.path << ">";
        }
        EXPECT_TRUE(readFile(sourceFolder() / source).starts_with("#pragma once\n")) << source;
    }
}

TEST(Layers, EveryPublicHeaderIsInstalled) {
    Texts listed;
    std::ifstream lines(sourceFolder() / "cmake/PublicHeaders.cmake");
    for (std::string line; std::getline(lines, line);) {
        const auto start = line.find("include/");
        if (start != std::string::npos && line.find('#') == std::string::npos)
            listed.push_back(line.substr(start));
    }
    EXPECT_TRUE(std::ranges::is_sorted(listed));
    EXPECT_EQ(Texts(listed), sourcesBelow("include"));
}

// All sources are compiled: a file that no CMakeLists.txt names is dead.
TEST(Layers, EverySourceIsBuilt) {
    for (const auto* folder : {"base", "toolkit", "mail", "examples", "tests", "fuzz", "bench"}) {
        for (const auto& source : sourcesBelow(folder)) {
            if (!source.ends_with(".cpp")) continue;
            const fs::path file = sourceFolder() / source;
            bool named = false;
            for (auto up = file.parent_path(); !named && up != sourceFolder().parent_path();
                 up = up.parent_path()) {
                const auto list = up / "CMakeLists.txt";
                named = fs::exists(list) &&
                        readFile(list).find(fs::relative(file, up).string()) != std::string::npos;
            }
            if (source == "fuzz/ReplayMain.cpp" || source.starts_with("tests/package/")) continue;
            EXPECT_TRUE(named) << source << " is in no CMakeLists.txt";
        }
    }
}

}  // namespace
}  // namespace lorvale::testing
