#include <gtest/gtest.h>

#include "serial/patterns.h"
#include "supervisor/plan/serial_plan.h"
#include "tests/support/table_fixture.h"

namespace {

constexpr int CLAIM_ONLY = 1;

using SerialPlan = TableTest;

int32_t receive(const char *port) {
    return consume_dispatch(port, CLAIM_ONLY, paren_pattern);
}

int32_t produce(const char *port) {
    return produce_dispatch(port, CLAIM_ONLY, paren_pattern);
}

TEST_F(SerialPlan, the_two_ends_of_a_link_carry_the_same_code_and_port_5_takes_the_sync_port) {
    struct {
        const char *receiver;
        const char *producer;
        int32_t kind_code;
    } const links[] = {{"1", "2", 3}, {"2", "1", 2}, {"3", "5", 0},
                       {"5", "3", 1}, {"8", "7", 4}, {"text", "", 4}};
    const auto expect_claimed = [](const char *port, char letter, int32_t kind_code) {
        SCOPED_TRACE(port);
        EXPECT_EQ(last_claimed_record().kind_code, kind_code);
        EXPECT_EQ(last_claimed_record().test_letter, letter);
        EXPECT_EQ(sync_owner, *port == '5' ? record_count : 0);
        sync_owner = 0;
    };
    for (const auto &link : links) {
        EXPECT_EQ(receive(link.receiver), link.kind_code);
        expect_claimed(link.receiver, 'C', link.kind_code);
        EXPECT_EQ(produce(link.producer), link.kind_code);
        expect_claimed(link.producer, 'P', link.kind_code);
    }
    EXPECT_EQ(record_count, 12);
}

TEST_F(SerialPlan, while_the_sync_port_is_taken_nothing_starts_on_3_and_5) {
    (void)produce("5");
    record(1).kind_code = 77;
    for (const char *port : {"3", "5", "5x"}) {
        EXPECT_FALSE(sync_port_permits(port));
        EXPECT_EQ(receive(port), -1);
    }
    EXPECT_TRUE(sync_port_permits("2"));
    EXPECT_EQ(produce("3"), 77);
    EXPECT_EQ(record(1).kind_code, 77);
    EXPECT_EQ(produce("5"), 0);
    EXPECT_EQ(record(1).kind_code, 0) << "a second producer on 5 marks the newest record";
    EXPECT_EQ(record_count, 1);
    EXPECT_EQ(sync_owner, 1);
}

} // namespace
