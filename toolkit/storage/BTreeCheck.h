#pragma once
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <unordered_set>

#include "lorvale/toolkit/storage/verify_btree.h"
#include "toolkit/storage/BTreeHeader.h"
#include "toolkit/storage/Page.h"

namespace brindle {

/// A page to look at: somebody's, or one read for the purpose.
struct PageGlance {
    Page* page;
    std::unique_ptr<Page> own;  ///< set when it was read for the purpose
};

/// Walks a tree, in its storage or in memory, and reports every broken rule.  It enters each page once, however
/// the pages lead to each other, and nothing below the depth that the header tells.
class BTreeChecker {
public:
    /// Gives the page `id`, a child of a page at `level`.
    using Source = std::function<PageGlance(std::uint32_t id, std::uint32_t level)>;

    BTreeChecker(const BTreeHeader& treeHeader, std::uint32_t headerBlock, Source pageSource);

    /// Checks the tree from its root page, which must be the one that the header names.
    BTreeReport Run(const std::function<PageGlance()>& rootSource);

private:
    /// The objects around a page, both excluded; null where there is none.
    struct Bounds {
        const IAOrderedStorable* low;
        const IAOrderedStorable* high;
    };

    void CheckHeader();
    void CheckPage(Page& page, std::uint32_t level, const Bounds& bounds);
    void CheckEntry(Page& page, Page::Finger at, const std::string& name);
    void CheckOrder(Page& page, const Bounds& bounds, const std::string& name);
    void CheckChildren(Page& page, std::uint32_t level, const Bounds& bounds);
    void CheckChild(std::uint32_t id, std::uint32_t level, const Bounds& bounds);
    void Violation(std::string sentence);

    const BTreeHeader header;
    const Source source;
    std::unordered_set<std::uint32_t> met;  // blocks in use
    BTreeReport report;
};

}  // namespace brindle
