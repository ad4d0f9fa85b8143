#pragma once
#include <gtest/gtest.h>

#include <ctime>
#include <string>
#include <string_view>

namespace lorvale::testing {

/// Runs `work` on a text of so many bytes made of a piece, and on one four times as long, which may take at
/// most some nine times as much of this thread's processor: in proportion it is four, with the square sixteen.
template <class Work>
void expectTimeInProportion(std::string_view piece, std::size_t size, Work work) {
    const auto seconds = [&](std::size_t length) {
        std::string text;
        while (text.size() < length) text += piece;
        const auto now = [] {
            struct timespec time {};
            ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
            return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
        };
        const auto start = now();
        work(text);
        return now() - start;
    };
    const auto once = seconds(size);
    EXPECT_LE(seconds(4 * size), 9 * once + 0.03) << ::testing::PrintToString(piece);
}

}  // namespace lorvale::testing
