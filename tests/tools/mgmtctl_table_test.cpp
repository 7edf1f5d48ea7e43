// Tables: what stands where, printed at once or piece by piece.
#include <clocale>
#include <sstream>

#include <gtest/gtest.h>

#include "tools/mgmtctl/table.h"
#include "tools/mgmtctl/text.h"

namespace mgmtctl {
namespace {

std::string Printed(Table& table) {
    std::ostringstream out;
    table.Print(out);
    return out.str();
}

class Tables : public testing::Test {
 protected:
    void SetUp() override { std::setlocale(LC_CTYPE, "C.UTF-8"); }
};

TEST_F(Tables, AreAsWideAsWhatIsInThem) {
    Table table({"Name", "N", "Text"});
    table.AlignRight(1);
    table.Add({"漢字", "5", "a"});
    table.Add({"", "1234", ""});
    table.Add({"x\ny", "", "b"});
    EXPECT_EQ(Printed(table),
              "Name     N  Text\n"
              "----     -  ----\n"
              "漢字     5  a\n"
              "      1234\n"
              "x\\ny        b\n");
}

TEST_F(Tables, KeepTheirWidthsOnceTheyArePrinted) {
    Table table({"A", "B", "C"});
    table.Add({"aaa", "b", "c"});
    EXPECT_EQ(Printed(table), "A    B  C\n-    -  -\naaa  b  c\n");
    EXPECT_EQ(Printed(table), "");
    // What is too wide moves its neighbours as far as it must, and nothing is lost.
    table.Add({"a", "bbbbb", "c"});
    table.Add({"aaaaa", "b", "c"});
    table.Add({"a", "b", "c"});
    EXPECT_EQ(Printed(table), "a    bbbbb  c\naaaaa  b  c\na    b  c\n");
}

TEST_F(Tables, AreCutToATerminal) {
    Table table({"Name", "Text"});
    table.CutToFit(30);
    table.Add({"n", std::string(100, 'x')});
    table.Add({std::string(40, 'y'), "z"});
    EXPECT_EQ(Printed(table),
              "Name              Text\n"
              "----              ----\n"
              "n                 xxxxxxxxxxx…\n"
              "yyyyyyyyyyyyyyy…  z\n");
}

TEST_F(Tables, CutByColumnsNotByBytes) {
    EXPECT_EQ(Cut("abc", 3), "abc");
    EXPECT_EQ(Cut("abcd", 3), "ab…");
    EXPECT_EQ(Cut("äöüß", 3), "äö…");
    EXPECT_EQ(Cut("漢字漢", 5), "漢字…");
    EXPECT_EQ(Cut("漢字漢", 4), "漢…");
    EXPECT_EQ(Cut("ab", 1), "…");
}

TEST_F(Tables, GroupTheDigitsOfLargeNumbers) {
    EXPECT_EQ(Grouped(0), "0");
    EXPECT_EQ(Grouped(999), "999");
    EXPECT_EQ(Grouped(1000), "1,000");
    EXPECT_EQ(Grouped(18446744073709551615ULL), "18,446,744,073,709,551,615");
}

}  // namespace
}  // namespace mgmtctl
