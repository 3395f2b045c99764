// The text of a path: short ones in place, long ones on the heap.
#include "base/path_text.h"

#include <gtest/gtest.h>

#include "sim/text.h"

namespace {

TEST(PathText, TakesPathsOfAnyLength) {
  for (const std::size_t cch : {10u, 278u, 279u, 280u, 281u, 900u}) {
    const std::string strPath = "C:\\" + std::string(cch - 3, 'x');
    PathText text;
    EXPECT_TRUE(text.AssignFullPath(sim::Wide(strPath).c_str(), cch));
    EXPECT_EQ(sim::Narrow(text.Text()), strPath);
    EXPECT_EQ(text.Length(), cch);
    EXPECT_TRUE(text.Append(L"y"));
    EXPECT_EQ(sim::Narrow(text.Text()), strPath + "\\y");
  }
}

}  // namespace
