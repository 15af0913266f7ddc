#include "frame/message_table.h"

#include <gtest/gtest.h>

namespace {

TEST(MessageTable, NumbersOutsideTheTableAndUnassignedOnesAreEmpty) {
    for (int number : {-1, 0, 109, 118, 119, 127, 145, 149, 1 << 30}) EXPECT_STREQ("", nal::MessageText(number)) << number;
}

}  // namespace
