#pragma once
#include <cstdio>
#include <cstdlib>
#include <string>

namespace lorvale::fuzz {

/// Gives each header of a tar archive the checksum that belongs to it: hardly one made by chance has it.
inline void mendChecksums(std::string& archive) {
    constexpr std::size_t kBlock = 512, kSize = 124, kSum = 148;
    for (std::size_t at = 0; at + kBlock <= archive.size();) {
        if (archive[at] == '\0') return;
        archive.replace(at + kSum, 8, 8, ' ');
        unsigned sum = 0;
        for (std::size_t i = at; i < at + kBlock; ++i) sum += static_cast<unsigned char>(archive[i]);
        char digits[8];
        std::snprintf(digits, sizeof digits, "%06o", sum);
        archive.replace(at + kSum, sizeof digits - 1, digits, sizeof digits - 1);
        const auto size = std::strtoul(archive.substr(at + kSize, 12).c_str(), nullptr, 8);
        if (size > archive.size()) return;
        at += kBlock + (size + kBlock - 1) / kBlock * kBlock;
    }
}

}  // namespace lorvale::fuzz
