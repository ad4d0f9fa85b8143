#include <gmock/gmock.h>

#include <algorithm>
#include <string>
#include <vector>

#include "examples/mailhost/Table.h"

namespace lorvale::testing {
namespace {

using namespace lorvale::testing;
using namespace ::testing;
using mailhost::Table;

const std::vector<Table::Column> kColumns = {
    {.title = "No.", .numeric = true},
    {.title = "From", .widest = 10, .narrowest = 6},
    {.title = "Subject", .takesRest = true},
    {.title = "", .expected = 2},
    {.title = "Size", .numeric = true, .dispensable = 1},
};

/// The lines that a table prints, "|" behind each.
template <class Fill>
std::string printed(int screen, bool styled, Fill fill) {
    ::testing::internal::CaptureStdout();
    Table table(kColumns, screen, styled);
    fill(table);
    table.finish();
    std::string text = ::testing::internal::GetCapturedStdout();
    std::ranges::replace(text, '\n', '|');
    return text;
}

TEST(MailhostTable, FitsItsColumnsIntoTheScreen) {
    const struct {
        int screen;
        const char* text;
    } rows[] = {
        {100,
         "No.  From        Subject                       Size|  1  Anna Maria  a subject, of some length...    "
         "77|"},
        {51,
         "No.  From        Subject                       Size|  1  Anna Maria  a subject, of some length...    "
         "77|"},
        {50,
         "No.  From        Subject                      Size|  1  Anna Maria  a subject, of some length.…    "
         "77|"},
        {39, "No.  From    Subject               Size|  1  Anna …  a subject, of some …    77|"},
        {38, "No.  From        Subject|  1  Anna Maria  a subject, of some l…|"},
        {30, "No.  From    Subject|  1  Anna …  a subject, of so…|"},
        {5, "No.  From    Subject|  1  Anna …  a subje…|"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(printed(row.screen, false,
                          [](Table& table) {
                              table.addRow({"1", "Anna Maria", "a subject, of some length...", "", "77"});
                          }),
                  row.text)
            << row.screen;
    }
    EXPECT_EQ(printed(80, false, [](Table&) {}), "");
}

// A long table begins before it knows its last row: what comes then must fit the columns that are settled.
TEST(MailhostTable, KeepsColumnsOnceTheyAreSettled) {
    const auto text = printed(60, false, [](Table& table) {
        for (int i = 1; i <= 600; ++i) table.addRow({std::to_string(i), "Bo", "short", "", "7"});
        table.addRow({"601", "Wilhelmina Augusta", std::string(90, 'x'), "UD", "123456"});
    });
    EXPECT_THAT(text, StartsWith("No.  From        Subject"));
    EXPECT_THAT(text, HasSubstr("|600  Bo          short"));
    EXPECT_THAT(text, EndsWith("|601  Wilhelmin…  " + std::string(32, 'x') + "…  UD  123456|"));
}

TEST(MailhostTable, BrightensRowsAndTitlesWhereItIsStyled) {
    const auto fill = [](Table& table) {
        table.addRow({"1", "a", "read", "", "1"});
        table.addRow({"2", "b", "new", "U", "1"}, /*bright=*/true);
    };
    EXPECT_EQ(printed(80, true, fill),
              "\033[1mNo.  From  Subject     Size\033[0m|  1  a     read           1|"
              "\033[1;36m  2  b     new      U     1\033[0m|");
    EXPECT_EQ(printed(80, false, fill),
              "No.  From  Subject     Size|  1  a     read           1|  2  b     new      U     1|");
}

}  // namespace
}  // namespace lorvale::testing
