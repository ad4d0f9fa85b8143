#include "toolkit/storage/BTreeCheck.h"

#include <utility>

#include "lorvale/toolkit/storage/exception.h"
#include "toolkit/storage/BTree.h"

namespace brindle {

namespace {

constexpr std::size_t kMaxViolations = 200;

std::string Number(std::uint64_t value) {
    return std::to_string(value);
}

}  // namespace

BTreeChecker::BTreeChecker(const BTreeHeader& treeHeader, std::uint32_t headerBlock, Source pageSource)
    : header(treeHeader), source(std::move(pageSource)), met{headerBlock} {}

BTreeReport BTreeChecker::Run(const std::function<PageGlance()>& rootSource) {
    report.pageSize = header.pageSize;
    report.depth = header.depth;
    CheckHeader();
    if (!report.Sound()) return std::move(report);
    try {
        met.insert(header.rootId);
        const PageGlance root = rootSource();
        CheckPage(*root.page, 0, {nullptr, nullptr});
        if (report.objects != header.count)
            Violation("The header counts " + Number(header.count) + " objects, the pages hold " +
                      Number(report.objects) + ".");
        if (report.pages != header.pageCount)
            Violation("The header counts " + Number(header.pageCount) + " pages, there are " +
                      Number(report.pages) + ".");
    } catch (const IAException& failure) {
        Violation("Root page " + Number(header.rootId) + " cannot be read: " + failure.what() + ".");
    }
    return std::move(report);
}

void BTreeChecker::CheckHeader() {
    if (header.depth > BTreeHeader::MaxDepth)
        Violation("The header tells a depth of " + Number(header.depth) + ", which no store has room for.");
    if (met.contains(header.rootId)) Violation("The root page is the header block itself.");
}

void BTreeChecker::CheckPage(Page& page, std::uint32_t level, const Bounds& bounds) {
    const std::string name = "Page " + Number(page.Id()) + " at level " + Number(level);
    ++report.pages;
    report.objects += static_cast<std::uint32_t>(page.Count());
    report.pageBytes += page.StoreSize();
    if (page.StoreSize() > header.pageSize)
        Violation(name + " takes " + Number(page.StoreSize()) + " bytes, more than a page may.");
    if (page.Count() == 0 && (level > 0 || !page.IsLeaf())) Violation(name + " has no entries.");

    std::size_t size = BTPageOverhead;
    for (Page::Finger at = 0; at < page.Count(); ++at) {
        CheckEntry(page, at, name);
        size += page.ObjectStoreSize(at) + (page.IsLeaf() ? 0 : BTEntryOverhead);
    }
    if (size != page.StoreSize())
        Violation(name + " takes " + Number(page.StoreSize()) + " bytes, its entries " + Number(size) + ".");
    CheckOrder(page, bounds, name);

    if (page.IsLeaf() != (level == header.depth))
        Violation(name + (page.IsLeaf() ? " is a leaf above the lowest level."
                                        : " has children at the lowest level."));
    else if (!page.IsLeaf())
        CheckChildren(page, level, bounds);
}

void BTreeChecker::CheckEntry(Page& page, Page::Finger at, const std::string& name) {
    const auto object = page.CopyObject(at);
    const std::uint32_t storedSize = page.ObjectStoreSize(at);
    if (!ObjectFits(storedSize, header.pageSize))
        Violation(name + " has an object of " + Number(storedSize) + " bytes, too big for its page size.");
    if (object->StoreSize() != storedSize)
        Violation(name + " has an object of " + Number(object->StoreSize()) + " bytes stored as " +
                  Number(storedSize) + ".");
    if (!page.IsLeaf() && page.ChildId(at) == 0) Violation(name + " has an entry without a child.");
}

void BTreeChecker::CheckOrder(Page& page, const Bounds& bounds, const std::string& name) {
    const IAOrderedStorable* before = bounds.low;
    const auto inOrder = [&before, &name, this](const IAOrderedStorable* object) {
        if (before != nullptr && object != nullptr && !before->LessThan(object))
            Violation(name + " has objects out of order, within it or with the separators above.");
        before = object;
    };
    std::unique_ptr<IAOrderedStorable> kept;
    for (Page::Finger at = 0; at < page.Count(); ++at) {
        auto object = page.CopyObject(at);
        inOrder(object.get());
        kept = std::move(object);  // after the one before it was compared
    }
    inOrder(bounds.high);
}

void BTreeChecker::CheckChildren(Page& page, std::uint32_t level, const Bounds& bounds) {
    std::unique_ptr<IAOrderedStorable> low;
    for (Page::Finger at = 0; at < page.Count(); ++at) {
        auto high = page.CopyObject(at);
        CheckChild(page.ChildId(at), level, {low != nullptr ? low.get() : bounds.low, high.get()});
        low = std::move(high);
    }
    CheckChild(page.RightChildId(), level, {low != nullptr ? low.get() : bounds.low, bounds.high});
}

void BTreeChecker::CheckChild(std::uint32_t id, std::uint32_t level, const Bounds& bounds) {
    if (report.violations.size() > kMaxViolations) return;
    if (!met.insert(id).second) {
        Violation("Block " + Number(id) + " is used more than once.");
        return;
    }
    try {
        const PageGlance glance = source(id, level);
        CheckPage(*glance.page, level + 1, bounds);
    } catch (const IAException& failure) {
        Violation("Page " + Number(id) + " at level " + Number(level + 1) +
                  " cannot be read: " + failure.what() + ".");
    }
}

void BTreeChecker::Violation(std::string sentence) {
    if (report.violations.size() == kMaxViolations) sentence = "There is more that is left out here.";
    if (report.violations.size() <= kMaxViolations) report.violations.push_back(std::move(sentence));
}

BTreeReport BTree::Check() {
    const IALock lock(mutex.get());
    CheckOpen();
    BTreeChecker checker({root->Id(), depth, count, pageCount, pageSize}, headerBlock,
                         [this](std::uint32_t id, std::uint32_t level) { return Peek(id, level); });
    return checker.Run([this] { return PageGlance{root.get(), nullptr}; });
}

BTreeReport VerifyBTree(IAStorage& storage, std::uint32_t headerBlock, const IAOrderedStorable& prototype) {
    const auto read = [&](std::uint32_t id) {
        auto page = std::make_unique<Page>(PageBlocks(storage, nullptr, prototype).Read(id));
        Page* const found = page.get();
        return PageGlance{found, std::move(page)};
    };
    try {
        const BTreeHeader header = BTreeHeader::Read(&storage, headerBlock, nullptr);
        return BTreeChecker(header, headerBlock, [&](std::uint32_t id, std::uint32_t) { return read(id); })
            .Run([&] { return read(header.rootId); });
    } catch (const IAException& failure) {
        BTreeReport report;
        report.violations.push_back(std::string("The header cannot be read: ") + failure.what() + ".");
        return report;
    }
}

}  // namespace brindle
