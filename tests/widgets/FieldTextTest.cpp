// What becomes of a text on its way into a field.
#include "platform/qt/FieldText.h"

#include <gtest/gtest.h>

namespace vexil {
namespace {

struct Pasted {
    const char* text;
    int cursor;
    const char* clean;
    int cleanCursor;
};

TEST(FieldText, CursorStaysBehindTheSameCharacter) {
    for (const Pasted& pasted :
         {Pasted{"a\nb", 1, "a b", 1}, Pasted{"a\nb", 2, "a b", 2}, Pasted{"a\nb", 3, "a b", 3},
          Pasted{"a\r\nb", 1, "a b", 1}, Pasted{"a\r\nb", 3, "a b", 2}, Pasted{"\nab", 0, "ab", 0},
          Pasted{"\nab", 1, "ab", 0}, Pasted{"\nab", 2, "ab", 1}, Pasted{"ab\n", 2, "ab", 2},
          Pasted{"ab\n", 3, "ab", 2}}) {
        int cursor = pasted.cursor;
        EXPECT_EQ(WithoutLineBreaks(pasted.text, cursor).toStdString(), pasted.clean);
        EXPECT_EQ(cursor, pasted.cleanCursor) << pasted.clean << " from " << pasted.cursor;
    }
}

}  // namespace
}  // namespace vexil
