#include "concurrency/base/utf8.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using Orvane::Internal::ToUtf8;

TEST(Utf8, HasEachCharacterAndNoTerminator) {
    EXPECT_EQ(ToUtf8(L"a"), "a");
    EXPECT_EQ(ToUtf8(L"Gr\u00F6\u00DFe 5 \u20AC \U0001F600"),
              "Gr\xC3\xB6\xC3\x9F"
              "e 5 \xE2\x82\xAC \xF0\x9F\x98\x80");
}

TEST(Utf8, OfAnEmptyTextIsEmpty) {
    EXPECT_EQ(ToUtf8(L""), "");
}

}  // namespace
