#include "Terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cwchar>

#include "lorvale/values/format.h"
#include "lorvale/values/text.h"

namespace mailhost {

namespace {

constexpr int kColumnsOfAFile = 100;
bool barIsDrawn = false;  // the main thread's
int pagedColumns = 0;     // of the terminal behind a pager; 0 without one; the main thread's

std::string escaped(char32_t character) {
    if (lorvale::isBadByte(character)) character -= lorvale::kBadByte;
    return character < 0x100 ? lorvale::formatText("\\x%02X", static_cast<std::uint32_t>(character))
                             : lorvale::formatText("\\u{%X}", static_cast<std::uint32_t>(character));
}

/// The C library's width; 1 for what it does not know, as terminals show such a character in one column.
int characterWidth(char32_t character) {
    const int width = ::wcwidth(static_cast<wchar_t>(character));
    return width < 0 ? 1 : width;
}

}  // namespace

void prepareLocale() {
    std::setlocale(LC_MESSAGES, "");
    // Not the user's: also under LANG=C, mail is UTF-8 here and columns should line up.
    if (std::setlocale(LC_CTYPE, "C.UTF-8") == nullptr) std::setlocale(LC_CTYPE, "");
}

bool isTerminal(int descriptor) {
    return ::isatty(descriptor) == 1;
}

bool outputIsTerminal() {
    return pagedColumns > 0 || isTerminal(STDOUT_FILENO);
}

void setOutputIsPaged(bool paged) {
    pagedColumns = 0;
    if (paged) pagedColumns = outputColumns();
}

int outputColumns() {
    if (const char* const wanted = std::getenv("COLUMNS")) {
        constexpr int kMost = 10'000;
        if (const int columns = std::atoi(wanted); columns > 0) return std::min(columns, kMost);
    }
    if (pagedColumns > 0) return pagedColumns;
    winsize size = {};
    if (!isTerminal(STDOUT_FILENO) || ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0) return kColumnsOfAFile;
    return size.ws_col == 0 ? kColumnsOfAFile : size.ws_col;
}

bool outputIsStyled() {
    const char* const noColour = std::getenv("NO_COLOR");
    const char* const terminal = std::getenv("TERM");
    return outputIsTerminal() && (noColour == nullptr || *noColour == '\0') &&
           (terminal == nullptr || std::string_view(terminal) != "dumb");
}

bool isUnsafe(char32_t character) {
    return character < 0x20 || (character >= 0x7F && character < 0xA0) || character == 0x61C ||
           (character >= 0x200E && character <= 0x200F) || (character >= 0x2028 && character <= 0x202E) ||
           (character >= 0x2066 && character <= 0x2069);
}

bool isPlain(std::string_view text) {
    return std::ranges::all_of(text, [](char c) { return c >= ' ' && c <= '~'; });
}

std::string printableLine(std::string_view text) {
    if (isPlain(text)) return std::string(text);
    std::string line;
    line.reserve(text.size());
    bool blankDue = false;
    while (!text.empty()) {
        const char32_t character = lorvale::nextCodePoint(text);
        if (character == '\t' || character == '\n' || character == '\r') {
            blankDue = true;
            continue;
        }
        if (blankDue && character != ' ') line += ' ';
        blankDue = false;
        if (isUnsafe(character) || lorvale::isBadByte(character)) {
            line += escaped(character);
        } else {
            lorvale::appendUtf8(line, character);
        }
    }
    return line;
}

std::string printableText(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    while (!text.empty()) {
        const char32_t character = lorvale::nextCodePoint(text);
        if (character == '\r' && text.starts_with('\n')) continue;
        const bool layout = character == '\n' || character == '\t';
        if (!layout && (isUnsafe(character) || lorvale::isBadByte(character))) {
            result += escaped(character);
        } else {
            lorvale::appendUtf8(result, character);
        }
    }
    return result;
}

int displayWidth(std::string_view printable) {
    if (isPlain(printable)) return static_cast<int>(printable.size());
    int width = 0;
    while (!printable.empty()) width += characterWidth(lorvale::nextCodePoint(printable));
    return width;
}

std::string cutToWidth(std::string_view printable, int columns) {
    if (columns <= 0) return {};
    int width = 0;
    std::string_view rest = printable;
    std::size_t keep = 0;  // bytes that fit with one column to spare for the mark
    while (!rest.empty()) {
        width += characterWidth(lorvale::nextCodePoint(rest));
        if (width > columns) return std::string(printable.substr(0, keep)) + "…";
        if (width < columns) keep = printable.size() - rest.size();
    }
    return std::string(printable);
}

ProgressBar::ProgressBar(std::string title, std::size_t total)
    : _title(std::move(title)), _total(total), _nextDraw(Clock::now() + std::chrono::milliseconds(400)) {}

ProgressBar::~ProgressBar() {
    clear();
}

void ProgressBar::advanceTo(std::size_t done) {
    _done = done;
    if (!isTerminal(STDERR_FILENO)) return;
    const auto now = Clock::now();
    if (now < _nextDraw) return;
    _nextDraw = now + std::chrono::milliseconds(50);
    draw();
}

void ProgressBar::draw() const {
    constexpr std::size_t kWidth = 30;
    const std::size_t filled = _total == 0 ? kWidth : std::min(kWidth, kWidth * _done / _total);
    std::string bar(filled, '#');
    bar.append(kWidth - filled, '-');
    std::fprintf(stderr, "\r\033[K%s [%s] %zu of %zu", _title.c_str(), bar.c_str(), _done, _total);
    std::fflush(stderr);
    barIsDrawn = true;
}

void ProgressBar::drawLine(std::string_view text, double share) {
    constexpr int kWidth = 30;
    if (!isTerminal(STDERR_FILENO)) return;
    std::string bar;
    if (share >= 0) {
        const auto filled = static_cast<std::size_t>(std::min(share, 1.0) * kWidth);
        bar = " [" + std::string(filled, '#') + std::string(kWidth - filled, '-') + "]";
    }
    const auto room = outputColumns() - static_cast<int>(bar.size()) - 1;
    std::fprintf(stderr, "\r\033[K%s%s", cutToWidth(printableLine(text), std::max(room, 10)).c_str(),
                 bar.c_str());
    std::fflush(stderr);
    barIsDrawn = true;
}

void ProgressBar::clear() {
    if (!barIsDrawn) return;
    std::fputs("\r\033[K", stderr);
    std::fflush(stderr);
    barIsDrawn = false;
}

std::string groupedNumber(std::size_t number) {
    std::string digits = std::to_string(number);
    for (std::size_t i = digits.size(); i > 3;) digits.insert(i -= 3, 1, ',');
    return digits;
}

}  // namespace mailhost
