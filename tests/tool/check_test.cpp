#include <string>

#include <gtest/gtest.h>

#include "support/raw_file.h"
#include "tool_fixture.h"

namespace aostorage::testing {
namespace {

TEST_F(Tool, CheckTellsWhatIsWrongAndWhereAndHowGraveItIs) {
  ASSERT_EQ(Code({"put", store, "a\x1b"}, "1234"), 0);
  ASSERT_EQ(Code({"put", store, "gone"}, "5678"), 0);
  ASSERT_EQ(Code({"rm", store, "gone"}), 0);
  Outcome outcome = Run({"check", "--strict", "--notes", store});
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_NE(outcome.out.find("note     N1   at 604, <removed 604>: "), std::string::npos)
      << outcome.out;
  EXPECT_NE(outcome.out.find("sound: 0 errors, 0 warnings, 1 note\n"), std::string::npos);

  PatchFile32(store, SlotOffset(6) + 72, 12);  // lastBlock
  outcome = Run({"check", store});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_NE(outcome.out.find("warning  I17  at 596, a\\x1B: "), std::string::npos) << outcome.out;
  EXPECT_NE(outcome.out.find("not sound: 0 errors, 1 warning"), std::string::npos);
  EXPECT_EQ(Code({"check", "--strict", store}), 1);

  PatchFile32(store, kEmptyFileSize, 0);  // the block's magic word
  outcome = Run({"check", store});
  EXPECT_EQ(outcome.code, 1);
  EXPECT_NE(outcome.out.find("error    I11  at 5164, a\\x1B: a chain leads to something that is no "
                             "block (no magic word)\n"),
            std::string::npos)
      << outcome.out;
  EXPECT_EQ(outcome.err, "");

  PatchFile32(store, 0, 0);
  EXPECT_EQ(Code({"check", store}), 4);
  EXPECT_EQ(Code({"check", dir.File("none")}), 1);
}

}  // namespace
}  // namespace aostorage::testing
