#include "Table.h"

#include <algorithm>
#include <numeric>

#include "Terminal.h"

namespace mailhost {

namespace {
constexpr int kGap = 2;                 // between columns
constexpr int kLeastRest = 20;          // a subject narrower than this tells little,
constexpr int kNarrowestRest = 8;       // but a line too long for the screen tells less
constexpr std::size_t kSettling = 500;  // rows

constexpr std::string_view kBold = "\033[1m", kBright = "\033[1;36m", kPlain = "\033[0m";

/// Of all columns that are shown, with the gaps between them.
int total(const std::vector<int>& widths) {
    const int shown = static_cast<int>(std::ranges::count_if(widths, [](int width) { return width > 0; }));
    return std::accumulate(widths.begin(), widths.end(), 0) + kGap * std::max(0, shown - 1);
}
}  // namespace

Table::Table(std::vector<Column> columns, int screenColumns, bool styled)
    : _columns(std::move(columns)), _screen(screenColumns), _styled(styled) {}

void Table::addRow(std::vector<std::string> cells, bool bright) {
    ++_rowCount;
    cells.resize(_columns.size());
    for (auto& cell : cells) {
        if (!isPlain(cell)) cell = printableLine(cell);
    }
    Row row{std::move(cells), bright};
    if (!_widths.empty()) {
        write(row);
        return;
    }
    _held.push_back(std::move(row));
    if (_held.size() > kSettling) settle(/*moreToCome=*/true);
}

void Table::finish() {
    if (_widths.empty() && !empty()) settle(/*moreToCome=*/false);
}

std::vector<int> Table::naturalWidths(bool moreToCome) const {
    std::vector<int> natural;
    for (std::size_t i = 0; i < _columns.size(); ++i) {
        const auto& column = _columns[i];
        int width = displayWidth(column.title);
        for (const auto& row : _held) width = std::max(width, displayWidth(row.cells[i]));
        // Rows that are yet to come may need what these do not.
        if (moreToCome) width = std::max({width, column.widest, column.expected});
        if (moreToCome && column.takesRest) width = std::max(width, _screen);
        if (column.widest > 0) width = std::min(width, column.widest);
        natural.push_back(width);
    }
    return natural;
}

void Table::fit(std::vector<int>& natural) const {
    const auto shrink = [&](std::size_t i, int least) {
        const int tooMuch = total(natural) - _screen;
        if (tooMuch > 0 && natural[i] > least) natural[i] = std::max(least, natural[i] - tooMuch);
    };
    const auto wanted = natural;
    std::vector<std::size_t> dispensable;  // what goes last at the end
    for (std::size_t i = 0; i < _columns.size(); ++i) {
        if (_columns[i].dispensable > 0) dispensable.push_back(i);
    }
    std::ranges::sort(dispensable, std::greater<>(), [&](std::size_t i) { return _columns[i].dispensable; });
    const auto shrinkRest = [&](int least) {
        for (std::size_t i = 0; i < _columns.size(); ++i) {
            if (_columns[i].takesRest) shrink(i, least);
        }
    };
    for (std::size_t gone = 0;; ++gone) {
        natural = wanted;
        for (std::size_t i = 0; i < gone; ++i) natural[dispensable[i]] = 0;
        shrinkRest(kLeastRest);
        for (std::size_t i = 0; i < _columns.size(); ++i) {
            if (_columns[i].narrowest > 0) shrink(i, _columns[i].narrowest);
        }
        if (total(natural) <= _screen || gone == dispensable.size()) break;
    }
    shrinkRest(kNarrowestRest);
}

void Table::settle(bool moreToCome) {
    _widths = naturalWidths(moreToCome);
    fit(_widths);
    std::vector<std::string> titles;
    for (const auto& column : _columns) titles.push_back(column.title);
    _output.write(_styled ? std::string(kBold) + line(titles) + std::string(kPlain) : line(titles));
    for (const auto& row : _held) write(row);
    _held = {};
}

void Table::write(const Row& row) {
    const auto text = line(row.cells);
    _output.write(_styled && row.bright ? std::string(kBright) + text + std::string(kPlain) : text);
}

std::string Table::line(const std::vector<std::string>& cells) const {
    std::string line;
    for (std::size_t i = 0; i < cells.size(); ++i) {
        if (_widths[i] == 0) continue;
        if (!line.empty()) line.append(kGap, ' ');
        const int width = displayWidth(cells[i]);
        const auto padding = static_cast<std::size_t>(std::max(0, _widths[i] - width));
        // Part of a number would be another number.
        const bool whole = width <= _widths[i] || _columns[i].numeric;
        if (_columns[i].numeric) line.append(padding, ' ');
        line += whole ? cells[i] : cutToWidth(cells[i], _widths[i]);
        if (!_columns[i].numeric) line.append(padding, ' ');
    }
    line.erase(line.find_last_not_of(' ') + 1);
    return line;
}

}  // namespace mailhost
