#include "lorvale/search/index_check.h"

#include "base/files/PathUtils.h"
#include "lorvale/platform/paths.h"
#include "lorvale/toolkit/index/inverted_index.h"
#include "lorvale/toolkit/index/verify_index.h"
#include "lorvale/toolkit/storage/storage.h"
#include "lorvale/toolkit/storage/verify.h"
#include "lorvale/values/format.h"
#include "mail/search/IndexAnalysis.h"
#include "mail/search/MboxCorpus.h"
#include "mail/search/MboxIndexFile.h"
#include "mail/search/ToolkitHooks.h"

namespace lorvale {

namespace {

void addFinding(MailboxReport& report, std::string_view text) {
    report.findings.push_back(
        {MailboxFinding::Severity::warning, "index", 0, 0, formatText("the search index: %@", text)});
}

void checkFile(const std::string& path, MailboxReport& report) {
    const auto storage = brindle::MakeFileStorage(path.c_str());
    storage->Open(/*writable=*/false);
    for (const auto& violation : brindle::VerifyStorage(*storage->GetStoreStream()).violations)
        addFinding(report, violation);
    brindle::IAIndexTypes types;
    brindle::IAReadIndexTypes(storage.get(), storage->TOC_Get(brindle::IADefaultIndexName), &types);
    const auto* const analysis = indexAnalysisWithTag(types.analysisType);
    if (analysis == nullptr) return addFinding(report, "made with an analysis that nobody knows here");
    brindle::InvertedIndex index(storage.get(), std::make_unique<MboxCorpus>(nullptr, analysis->form),
                                 analysis->make());
    index.Open();
    const auto found = brindle::VerifyIndex(index);
    for (const auto& violation : found.violations) addFinding(report, violation);
    report.messages = found.documents;
}

}  // namespace

MailboxReport checkIndex(std::string_view mailboxPath) {
    installToolkitHooks();
    MailboxReport report;
    const auto path = stringByAppendingPathComponent(standardizePath(mailboxPath), kIndexName);
    const auto file = FileSystem::current().attributes(path);
    if (!file) return report;
    report.size = static_cast<std::uint64_t>(file->size);
    try {
        checkFile(path, report);
    } catch (const brindle::IAException& exception) {
        addFinding(report, formatText("%@ (%@)", exception.What(), exception.GetLocation()));
    }
    return report;
}

}  // namespace lorvale
