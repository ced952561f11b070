#include "runtime/temporary_file.h"

#include "tests/support/support.h"

class TemporaryFile : public DirectoryTest {};

TEST_F(TemporaryFile, GoesUnlessItIsKept) {
    nimbo::TmpFile((base / "gone").string(), true);
    nimbo::TmpFile((base / "kept").string(), false);
    EXPECT_THAT(namesIn(base), MatchesRegex("d . f kept......"));
}
