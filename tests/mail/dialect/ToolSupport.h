#pragma once
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

#include "lorvale/values/data.h"
#include "lorvale/values/format.h"
#include "mail/stores/MboxScan.h"

/// Bytes as the scripts beside the tools read them; "-" for none.
inline std::string hex(std::string_view bytes) {
    std::string all;
    for (const char c : bytes) all += lorvale::formatText("%02x", static_cast<std::uint8_t>(c));
    return all.empty() ? "-" : all;
}

/// Calls `visit(message, offset)` for each message of a mailbox, which has the extension "mbox", or for the one
/// that the file is.
template <class Visit>
void forEachMessage(const std::string& path, Visit visit) {
    std::ifstream in(path, std::ios::binary);
    const lorvale::Data bytes(std::string{std::istreambuf_iterator<char>(in), {}});
    if (!path.ends_with(".mbox")) return visit(bytes, std::size_t{0});
    for (const auto& entry : lorvale::mboxEntries(bytes.view()))
        visit(bytes.subdata(lorvale::Range{entry.range.location, entry.range.length}),
              std::size_t{entry.range.location});
}
