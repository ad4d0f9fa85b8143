#pragma once
#include <string>
#include <vector>

#include "Output.h"

namespace mailhost {

/// Rows of text under titles, in columns that line up on the screen whatever the width of their characters.
/// Cells may hold any text from mail; they are made printable here.
///
/// The first rows settle the widths.  From then on rows are written as they come, so that a table of any length
/// starts at once and takes no memory.
class Table {
public:
    struct Column {
        std::string title;
        bool numeric = false;    ///< set to the right
        int widest = 0;          ///< columns of the screen at most; 0: as wide as its widest cell
        int narrowest = 0;       ///< may shrink so far where the screen is narrow; 0: not at all
        bool takesRest = false;  ///< one column may: it gets what the others leave, and is cut there
        int dispensable = 0;     ///< on a narrow screen it goes; the highest number first; 0: never
        int expected = 0;        ///< width known beforehand of cells that are yet to come
    };

    /// `screenColumns` are kept unless the columns that cannot shrink need more.
    Table(std::vector<Column> columns, int screenColumns, bool styled);
    /// One cell a column.  A bright row catches the eye where the table is styled.
    void addRow(std::vector<std::string> cells, bool bright = false);
    /// Writes what is still held back; without any row nothing, not even the titles.
    void finish();
    bool empty() const { return _rowCount == 0; }

private:
    struct Row {
        std::vector<std::string> cells;  // printable
        bool bright;
    };

    void settle(bool moreToCome);
    std::vector<int> naturalWidths(bool moreToCome) const;
    void fit(std::vector<int>& natural) const;
    void write(const Row& row);
    std::string line(const std::vector<std::string>& cells) const;

    const std::vector<Column> _columns;
    const int _screen;
    const bool _styled;
    LineOutput _output;
    std::size_t _rowCount = 0;
    std::vector<Row> _held;    // until the widths are settled
    std::vector<int> _widths;  // empty until then; 0 for a column that is left out
};

}  // namespace mailhost
