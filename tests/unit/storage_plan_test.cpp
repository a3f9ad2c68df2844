#include <unistd.h>

#include "supervisor/plan/option_table.h"
#include "tests/support/scratch_directory.h"

namespace {

class StoragePlan : public ScratchDirectoryTest {
protected:
    static void walk(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), "hk_stress");
        std::vector<char *> words;
        for (std::string &argument : arguments)
            words.push_back(argument.data());
        words.push_back(nullptr);
        optind = 0; // begin anew, see getopt(3)
        walk_options(static_cast<int>(arguments.size()), words.data());
    }
};

TEST_F(StoragePlan, tests_are_held_before_their_first_turn_and_carry_their_code_until_they_stop) {
    walk({"-D", "-Ysub", "-Ma:b:0"});
    EXPECT_EQ(record_count, 3);
    EXPECT_EQ(record(4).hold, HOLD_NONE);
    const int32_t kind_codes[] = {8, 11, 5};
    for (int i = 1; i <= 3; ++i) {
        EXPECT_EQ(record(i).kind_code, kind_codes[i - 1]);
        EXPECT_TRUE(wait_until([i] { return record(i).hold == HOLD_ACKNOWLEDGED; }));
        EXPECT_EQ(stop(i), 2);
        EXPECT_EQ(record(i).pid, PID_FINISHED);
        EXPECT_EQ(record(i).read_count, 0u);
    }
}

TEST_F(StoragePlan, a_bad_copy_argument_claims_nothing_but_holds_and_marks_the_newest_record) {
    (void)claim_record(record_letter::CROSSOVER);
    walk({"-Ma:b"});
    EXPECT_EQ(record_count, 1);
    EXPECT_EQ(record(1).hold, HOLD_REQUESTED);
    EXPECT_EQ(record(1).kind_code, 5);
    EXPECT_EQ(record(2).hold, HOLD_NONE);

    record(1).hold = HOLD_ACKNOWLEDGED;
    walk({"-M::"});
    EXPECT_EQ(record(1).hold, HOLD_ACKNOWLEDGED);

    record_count = 0;
    walk({"-Ma"});
    EXPECT_EQ(record(0).kind_code, 5);
}

TEST_F(StoragePlan, a_full_table_takes_no_test_more) {
    record_count = TEST_RECORDS;
    walk({"-D", "-Ysub", "-Ma:b:0"});
    EXPECT_EQ(record_count, TEST_RECORDS);
    EXPECT_EQ(record(TEST_RECORDS).hold, HOLD_NONE);
    EXPECT_EQ(record(TEST_RECORDS).kind_code, 0);
}

} // namespace
