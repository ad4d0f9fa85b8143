/// What the documents show is true.  Each fenced block of the Markdown files says behind its language what is
/// to be done with it:
///
///     sh run        the commands succeed
///     sh slow       too long for a test: the scripts and presets that the commands name exist
///     console run   each line behind "$ " is a command, the lines below it are what it prints
///     cpp run ARGS  a program, which is built against the library and run with these arguments
/// Blocks in other languages, or in none, are not run.

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "RunProgram.h"
#include "lorvale/values/text.h"
#include "tests/support/TestSupport.h"

namespace lorvale::testing {
namespace {

namespace fs = std::filesystem;

struct Block {
    std::string where;  // file:line
    std::string language, order, arguments;
    std::string text;
};

bool startsWithOneOf(std::string_view text, std::initializer_list<std::string_view> starts) {
    return std::ranges::any_of(starts, [&](auto start) { return text.starts_with(start); });
}

std::vector<fs::path> documents() {
    const fs::path root = sourceFolder();
    std::vector<fs::path> files;
    for (const auto& entry : fs::directory_iterator(root)) files.push_back(entry.path());
    for (const auto* folder : {"docs", "examples", "base", "mail", "tests", "fuzz", "bench", "toolkit"}) {
        if (!fs::exists(root / folder)) continue;
        for (const auto& entry : fs::recursive_directory_iterator(root / folder)) files.push_back(entry.path());
    }
    std::erase_if(files, [](const fs::path& file) { return file.extension() != ".md"; });
    std::ranges::sort(files);
    return files;
}

/// "```sh run a b" is {"sh", "run", "a b"}.
Block openedBy(std::string_view fence, std::string where) {
    const auto takeWord = [&fence] {
        const auto end = std::min(fence.find(' '), fence.size());
        const std::string word(fence.substr(0, end));
        fence = trimmed(fence.substr(end));
        return word;
    };
    fence.remove_prefix(3);
    Block block;
    block.where = std::move(where);
    block.language = takeWord();
    block.order = takeWord();
    block.arguments = std::string(fence);
    return block;
}

std::vector<Block> blocks() {
    std::vector<Block> all;
    for (const auto& file : documents()) {
        const auto name = fs::relative(file, sourceFolder()).string();
        std::ifstream lines(file);
        bool inside = false;
        int number = 0;
        for (std::string line; std::getline(lines, line);) {
            ++number;
            const bool fence = trimmed(line).starts_with("```");
            if (fence && !inside) {
                all.push_back(openedBy(trimmed(line), name + ":" + std::to_string(number)));
            } else if (!fence && inside) {
                all.back().text += line + "\n";
            }
            inside = inside != fence;
        }
    }
    return all;
}

void runCommands(const Block& block) {
    const auto outcome = runShell("set -e\n" + block.text);
    EXPECT_EQ(outcome.status, 0) << outcome.output << outcome.errors;
}

/// The scripts and presets that the words of the commands name are there.
void checkCommands(const Block& block) {
    const fs::path root = sourceFolder();
    EXPECT_EQ(runShell("sh -n <<'EOF'\n" + block.text + "EOF").status, 0);
    const std::string presets = readFile(root / "CMakePresets.json");
    std::istringstream words(block.text);
    std::string before;
    for (std::string word; words >> word; before = word) {
        if (startsWithOneOf(word, {"./", ".ci/", "scripts/", "fuzz/", "bench/", "tests/"})) {
            EXPECT_TRUE(fs::exists(root / word)) << word << " is not there";
        }
        if ((before == "--preset" || before == "./test.sh") &&
            std::isalpha(static_cast<unsigned char>(word[0]))) {
            EXPECT_NE(presets.find("\"name\": \"" + word + "\""), std::string::npos) << word << " is no preset";
        }
    }
}

/// Runs the commands of a dialogue; the lines between them are what is printed, errors included.
void holdDialogue(const Block& block) {
    std::string printed, command;
    const auto run = [&] {
        if (command.empty()) return;
        const auto outcome = runShell(command);
        printed += "$ " + command + "\n" + outcome.output + outcome.errors;
    };
    for (std::size_t at = 0; at < block.text.size();) {
        const auto end = block.text.find('\n', at);
        const auto line = block.text.substr(at, end - at);
        at = end + 1;
        if (!line.starts_with("$ ")) continue;
        run();
        command = line.substr(2);
    }
    run();
    EXPECT_FALSE(command.empty());
    EXPECT_EQ(printed, block.text);
}

void buildAndRun(const Block& block) {
    const TemporaryFolder folder;
    writeFile(folder / "sample.cpp", block.text);
    const auto program = shellWord((folder / "sample").string());
    const std::string library = LORVALE_LIBRARY_DIR;
    const auto build =
        runShell(std::string(LORVALE_COMPILER) + " -std=c++20 -Wall -Wextra -Werror -I include " +
                 shellWord((folder / "sample.cpp").string()) + " -L " + shellWord(library) +
                 " -llorvale -Wl,-rpath," + shellWord(library) + " -o " + program);
    ASSERT_EQ(build.status, 0) << build.errors;
    const auto outcome = runShell(program + " " + block.arguments);
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_FALSE(outcome.output.empty());
}

TEST(Documentation, EveryBlockIsTrue) {
    std::size_t run = 0;
    for (const auto& block : blocks()) {
        SCOPED_TRACE(block.where);
        ++run;
        if (block.language == "sh" && block.order == "run")
            runCommands(block);
        else if (block.language == "sh" && block.order == "slow")
            checkCommands(block);
        else if (block.language == "console" && block.order == "run")
            holdDialogue(block);
        else if (block.language == "cpp" && block.order == "run")
            buildAndRun(block);
        else {
            --run;
            EXPECT_TRUE(block.language != "sh" && block.language != "console") << "run or slow?";
        }
    }
    EXPECT_GT(run, 5u);
}

/// What stands in `backquotes` and in the target of a link.
std::vector<std::string> namesIn(const std::string& text) {
    std::vector<std::string> names;
    const auto collect = [&](std::string_view open, char close) {
        for (std::size_t at = 0; (at = text.find(open, at)) != std::string::npos;) {
            at += open.size();
            const auto end = text.find(close, at);
            if (end == std::string::npos) break;
            names.push_back(text.substr(at, end - at));
            at = end + 1;
        }
    };
    collect("`", '`');
    collect("](", ')');
    return names;
}

// One that looks like a path of ours is there.
TEST(Documentation, NamesFilesThatExist) {
    const fs::path root = sourceFolder();
    std::size_t seen = 0;
    for (const auto& file : documents()) {
        for (const auto& name : namesIn(readFile(file))) {
            const bool path =
                startsWithOneOf(name, {"base/", "toolkit/", "mail/", "include/", "examples/", "tests/", "fuzz/",
                                       "bench/", "docs/", "cmake/", "scripts/", ".ci/"});
            if (!path || name.find_first_of(" *<>:{}()\n") != std::string::npos) continue;
            ++seen;
            EXPECT_TRUE(fs::exists(root / name) || fs::exists(file.parent_path() / name))
                << file.string() << " names " << name;
        }
    }
    EXPECT_GT(seen, 10u);
}

/// All identifiers of the sources that a "(" follows.
std::set<std::string> functionsOfSources() {
    std::set<std::string> functions;
    for (const auto* folder : {"include", "base", "toolkit", "mail", "examples"}) {
        for (const auto& entry : fs::recursive_directory_iterator(sourceFolder() / folder)) {
            if (!entry.is_regular_file() || entry.path().extension() == ".md") continue;
            const auto text = readFile(entry.path());
            for (auto at = text.find('('); at != std::string::npos; at = text.find('(', at + 1)) {
                auto start = at;
                while (start > 0 &&
                       (std::isalnum(static_cast<unsigned char>(text[start - 1])) || text[start - 1] == '_'))
                    --start;
                functions.insert(text.substr(start, at - start));
            }
        }
    }
    return functions;
}

// A walk through the code that names what is not there leads astray.
TEST(Documentation, NamesFunctionsThatExist) {
    const auto functions = functionsOfSources();
    std::size_t seen = 0;
    for (const auto& file : documents()) {
        for (const auto& name : namesIn(readFile(file))) {
            if (!name.ends_with("()") || name.find_first_of(" .<>\n") != std::string::npos) continue;
            const auto scope = name.rfind(':');
            const auto start = scope == std::string::npos ? 0 : scope + 1;
            ++seen;
            EXPECT_TRUE(functions.contains(name.substr(start, name.size() - start - 2)))
                << file.string() << " names " << name;
        }
    }
    EXPECT_GT(seen, 10u);
}

}  // namespace
}  // namespace lorvale::testing
