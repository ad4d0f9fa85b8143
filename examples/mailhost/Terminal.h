#pragma once
#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>

/// What a console program has to know about the terminal: how wide text is there, which characters must not
/// reach it, and where a line of progress may be drawn.

namespace mailhost {

/// Character classes and widths as UTF-8 has them, messages in the user's language.  Called first in main().
void prepareLocale();

bool isTerminal(int descriptor);
/// Whether standard output is one, or leads to a pager on one.
bool outputIsTerminal();
/// Told by the pager, before standard output, still the terminal, becomes a pipe to it; and behind its end.
void setOutputIsPaged(bool paged);
/// $COLUMNS, else the columns of the terminal that standard output is; 100 for a file or a pipe.
int outputColumns();
/// Whether standard output may be given bold text and colours: a terminal that has them, and no $NO_COLOR.
bool outputIsStyled();

/// Control characters, and those that turn the direction of the text or break its line: in mail from a
/// stranger they could rewrite what stands on the screen.
bool isUnsafe(char32_t character);

/// Whether every byte is a visible character of ASCII or a blank, so that bytes are columns and nothing needs
/// an escape.  Most text is, and is quickly done with.
bool isPlain(std::string_view text);

/// The text on one line: unsafe characters and bytes that are not UTF-8 escaped ("\x1B", "\u{202E}"), runs
/// of tabs and line ends made one blank.
std::string printableLine(std::string_view text);
/// The same, but tabs and line ends stay; CRLF becomes a line end.
std::string printableText(std::string_view text);

/// Columns that a printable text takes: 2 for the wide characters of East Asia, 0 for combining marks.
int displayWidth(std::string_view printable);
/// The text cut to so many columns, with "…" where something is missing.
std::string cutToWidth(std::string_view printable, int columns);

/// A bar on the terminal while something takes long; silent where standard error is none.  It appears only
/// after a moment, so that quick work does not flicker.
class ProgressBar {
public:
    ProgressBar(std::string title, std::size_t total);
    ~ProgressBar();
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    void advance() { advanceTo(_done + 1); }
    void advanceTo(std::size_t done);
    /// Takes the bar of the moment off the terminal, for a line that is to stand there; it comes back by
    /// itself.
    static void clear();
    /// Draws a line with a bar of that share, from 0 to 1; below 0 there is none.  For work that is counted
    /// elsewhere.
    static void drawLine(std::string_view text, double share);

private:
    using Clock = std::chrono::steady_clock;
    void draw() const;

    const std::string _title;
    const std::size_t _total;
    std::size_t _done = 0;
    Clock::time_point _nextDraw;
};

/// "27,322" for 27322.
std::string groupedNumber(std::size_t number);

}  // namespace mailhost
