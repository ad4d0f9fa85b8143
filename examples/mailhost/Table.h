#pragma once
#include <string>
#include <vector>

namespace mailhost {

/// Rows of text under titles, in columns that line up on the screen whatever the width of their characters.
/// Cells may hold any text from mail; they are made printable here.
class Table {
public:
    struct Column {
        std::string title;
        bool numeric = false;    ///< set to the right
        int widest = 0;          ///< columns of the screen at most; 0: as wide as its widest cell
        bool takesRest = false;  ///< one column may: it gets what the others leave, and is cut there
    };

    explicit Table(std::vector<Column> columns);
    /// One cell a column.
    void addRow(std::vector<std::string> cells);
    bool empty() const { return _rows.empty(); }
    /// To standard output, in so many columns of the screen, which are kept unless the table needs more.
    void print(int screenColumns, bool styled) const;

private:
    std::vector<int> widths(int screenColumns) const;
    std::string line(const std::vector<std::string>& cells, const std::vector<int>& widths) const;

    const std::vector<Column> _columns;
    std::vector<std::vector<std::string>> _rows;  // printable
};

}  // namespace mailhost
