#include "Table.h"

#include <algorithm>
#include <cstdio>

#include "Terminal.h"

namespace mailhost {

namespace {
constexpr int kGap = 2;         // between columns
constexpr int kLeastRest = 20;  // a subject narrower than this tells nothing
}  // namespace

Table::Table(std::vector<Column> columns) : _columns(std::move(columns)) {}

void Table::addRow(std::vector<std::string> cells) {
    cells.resize(_columns.size());
    for (auto& cell : cells) cell = printableLine(cell);
    _rows.push_back(std::move(cells));
}

std::vector<int> Table::widths(int screenColumns) const {
    std::vector<int> widths(_columns.size());
    int others = 0;
    std::size_t rest = _columns.size();
    for (std::size_t i = 0; i < _columns.size(); ++i) {
        widths[i] = displayWidth(_columns[i].title);
        for (const auto& row : _rows) widths[i] = std::max(widths[i], displayWidth(row[i]));
        if (_columns[i].widest > 0) widths[i] = std::min(widths[i], _columns[i].widest);
        if (_columns[i].takesRest) {
            rest = i;
        } else {
            others += widths[i] + kGap;
        }
    }
    if (rest < widths.size())
        widths[rest] = std::min(widths[rest], std::max(kLeastRest, screenColumns - others));
    return widths;
}

std::string Table::line(const std::vector<std::string>& cells, const std::vector<int>& widths) const {
    std::string line;
    for (std::size_t i = 0; i < cells.size(); ++i) {
        const std::string cell = cutToWidth(cells[i], widths[i]);
        const auto padding = static_cast<std::size_t>(std::max(0, widths[i] - displayWidth(cell)));
        if (i > 0) line.append(kGap, ' ');
        if (_columns[i].numeric) line.append(padding, ' ');
        line += cell;
        if (!_columns[i].numeric) line.append(padding, ' ');
    }
    line.erase(line.find_last_not_of(' ') + 1);
    return line;
}

void Table::print(int screenColumns, bool styled) const {
    const auto columnWidths = widths(screenColumns);
    std::vector<std::string> titles;
    for (const auto& column : _columns) titles.push_back(column.title);
    std::printf(styled ? "\033[1m%s\033[0m\n" : "%s\n", line(titles, columnWidths).c_str());
    for (const auto& row : _rows) std::printf("%s\n", line(row, columnWidths).c_str());
}

}  // namespace mailhost
