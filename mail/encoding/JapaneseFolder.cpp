#include <algorithm>

#include "base/text/TextScanner.h"
#include "lorvale/mime.h"
#include "lorvale/values/text.h"
#include "mail/encoding/HeaderWords.h"

namespace lorvale {

namespace {

/// Folds Japanese text into plain runs and encoded words on lines of about 78 columns.  How the columns are
/// counted is odd in places and stays so, since the same value must always fold the same way: messages are told
/// apart by their headers.
class JapaneseFolder {
public:
    std::string fold(std::string_view text) {
        static const auto ascii = CharacterSet::nonASCIISet().inverted();
        TextScanner scanner(text);  // white space before a run is skipped and lost
        while (!scanner.isAtEnd()) {
            std::string_view run;
            if (!scanner.scanUpToCharactersFromSet(CharacterSet::nonASCIISet(), &run)) run = {};
            appendPlainRun(run);
            if (!scanner.scanUpToCharactersFromSet(ascii, &run)) run = {};
            appendJapaneseRun(run);
        }
        return std::move(_out);
    }

private:
    static constexpr std::size_t kWidth = 78;
    static constexpr std::size_t kMarks = 18;  // "=?ISO-2022-JP?B?" and "?="
    static constexpr std::string_view kFold = "\n ";

    void appendPlainRun(std::string_view run) {
        startRun(0);
        while (_column + run.size() > kWidth) {
            const auto piece = run.substr(0, kWidth - _column);
            appendPiece(piece);
            run.remove_prefix(piece.size());
            continueOnNextLine();
        }
        if (run.empty()) return;
        appendPiece(run);
        _column = run.size() + 1;  // counted from the start of the run, not of the line
    }

    void appendJapaneseRun(std::string_view run) {
        startRun(kMarks);
        auto word = base64(run);
        while (word.size() + _column + kMarks > kWidth) {
            const auto piece = pieceThatFits(run);
            if (!piece.empty()) appendWord(base64(piece));
            run.remove_prefix(piece.size());
            word = base64(run);
            continueOnNextLine();
        }
        if (word.empty()) return;
        appendWord(word);
        _column = word.size() + kMarks + 1;
        if (_column > kWidth) _column = 1;
    }

    /// A run whose first `needed` columns do not fit begins on a new line.  Its first piece then brings the
    /// fold text once more: a line with a blank alone, which unfolds to nothing.
    void startRun(std::size_t needed) {
        _isFirstPiece = true;
        if (_column + needed <= kWidth) return;
        _out += kFold;
        continueOnNextLine();
    }

    void continueOnNextLine() {
        _isFirstPiece = false;
        _column = 1;
    }

    void appendPiece(std::string_view piece) {
        if (!_isFirstPiece) _out += kFold;
        _out += piece;
    }

    /// `word` ends in the line end of encodeBase64(), which is left out here, though it counts as a column.
    void appendWord(std::string_view word) {
        appendPiece("=?ISO-2022-JP?B?");
        _out += word.substr(0, word.size() - 1);
        _out += "?=";
    }

    /// As much of a run as is worth looking at: this many characters are too long for a line in any case, and
    /// work must not grow with the square of the run.
    static std::string_view beginning(std::string_view run) { return run.substr(0, byteOffset(run, kWidth)); }

    static std::string base64(std::string_view run) {
        const auto bytes = encode(beginning(run), StringEncoding::iso2022JP, Lossy::yes);
        return encodeBase64(bytes.value_or(Data())).toString();
    }

    /// As many characters as the line may take, leaving at least one over.  Empty where no room is left on it.
    std::string_view pieceThatFits(std::string_view run) const {
        // A character takes two bytes; the four are the escapes before and after, measured in characters.
        const auto room = (60 - static_cast<int>(_column)) / 2 - 4;
        const auto all = static_cast<int>(characterCount(beginning(run)));
        for (auto count = std::min(all - 1, room); count > 0; --count) {
            const auto piece = run.substr(0, byteOffset(run, static_cast<std::size_t>(count)));
            if (base64(piece).size() + kMarks <= kWidth) return piece;
        }
        return {};
    }

    std::string _out;
    std::size_t _column = 10;  // leaves room for the name of the header
    bool _isFirstPiece = true;
};

}  // namespace

std::string foldJapaneseText(std::string_view text) {
    return JapaneseFolder().fold(text);
}

}  // namespace lorvale
