#pragma once
#include <deque>
#include <string>
#include <string_view>

#include "lorvale/platform/socket.h"

namespace lorvale::testing {

/// A peer that lies in memory: each read gives one of the pieces, or what fits of it, and each write takes a
/// few bytes.  The logs stay with whoever made it.
class MemoryTransport final : public SocketTransport {
public:
    struct Log {
        std::string written;
        int reads = 0, writes = 0, closes = 0;
    };
    MemoryTransport(std::deque<std::string> pieces, Log& log, std::size_t writesAtOnce = 4)
        : _pieces(std::move(pieces)), _log(log), _writesAtOnce(writesAtOnce) {}

    std::size_t readSome(std::span<std::uint8_t> into) override {
        ++_log.reads;
        while (!_pieces.empty() && _pieces.front().empty()) _pieces.pop_front();
        if (_pieces.empty()) return 0;
        const std::size_t count = std::min(into.size(), _pieces.front().size());
        std::copy_n(_pieces.front().begin(), count, into.begin());
        _pieces.front().erase(0, count);
        return count;
    }
    std::size_t writeSome(std::span<const std::string_view> pieces) override {
        ++_log.writes;
        std::size_t left = _writesAtOnce;
        for (const auto piece : pieces) {
            const auto part = piece.substr(0, left);
            _log.written += part;
            left -= part.size();
        }
        return _writesAtOnce - left;
    }
    std::size_t pending() const override { return _pieces.empty() ? 0 : _pieces.front().size(); }
    void close() noexcept override { ++_log.closes; }

private:
    std::deque<std::string> _pieces;
    Log& _log;
    const std::size_t _writesAtOnce;
};

/// The text in pieces of that size.
inline std::deque<std::string> inPieces(std::string_view text, std::size_t size) {
    std::deque<std::string> pieces;
    for (; !text.empty(); text.remove_prefix(std::min(size, text.size())))
        pieces.emplace_back(text.substr(0, size));
    return pieces;
}

}  // namespace lorvale::testing
