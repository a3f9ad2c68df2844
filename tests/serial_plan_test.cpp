#include <gtest/gtest.h>

#include "serial/patterns.h"
#include "supervisor/serial_plan.h"
#include "tests/table_fixture.h"

namespace {

constexpr int CLAIM_ONLY = 1;

using SerialPlan = TableTest;

int32_t receive(const char *port) {
    return consume_dispatch(port, CLAIM_ONLY, paren_pattern);
}

int32_t produce(const char *port) {
    return produce_dispatch(port, CLAIM_ONLY, paren_pattern);
}

TEST_F(SerialPlan, the_two_ends_of_a_link_carry_the_same_code) {
    struct {
        const char *receiver;
        const char *producer;
        int32_t kind_code;
    } const links[] = {{"1", "2", 3}, {"2", "1", 2}, {"3", "5", 0}, {"5", "3", 1}, {"8", "7", 4}};
    for (const auto &link : links) {
        sync_owner = 0;
        EXPECT_EQ(receive(link.receiver), link.kind_code) << "receiver on " << link.receiver;
        EXPECT_EQ(last_claimed_record().kind_code, link.kind_code);
        EXPECT_EQ(last_claimed_record().test_letter, 'C');
        sync_owner = 0;
        EXPECT_EQ(produce(link.producer), link.kind_code) << "producer on " << link.producer;
        EXPECT_EQ(last_claimed_record().kind_code, link.kind_code);
        EXPECT_EQ(last_claimed_record().test_letter, 'P');
    }
    EXPECT_EQ(record_count, 10);
}

TEST_F(SerialPlan, only_port_5_takes_the_synchronous_link) {
    for (const char *port : {"1", "2", "3", "4", "8", "text", ""}) {
        (void)receive(port);
        (void)produce(port);
    }
    EXPECT_EQ(sync_owner, 0);
    EXPECT_EQ(record_count, 14);
    (void)receive("5");
    EXPECT_EQ(sync_owner, 15);
    sync_owner = 0;
    (void)produce("5");
    EXPECT_EQ(sync_owner, 16);
}

TEST_F(SerialPlan, while_the_link_is_taken_receivers_on_3_and_5_start_and_write_nothing) {
    (void)produce("5");
    record(1).kind_code = 77;
    for (const char *port : {"3", "5", "5x"}) {
        EXPECT_FALSE(sync_port_permits(port));
        EXPECT_EQ(receive(port), -1);
    }
    EXPECT_EQ(record_count, 1);
    EXPECT_EQ(sync_owner, 1);
    EXPECT_EQ(record(1).kind_code, 77);
    EXPECT_TRUE(sync_port_permits("2"));
}

TEST_F(SerialPlan, a_second_producer_on_5_starts_nothing_and_writes_0_into_the_newest_record) {
    (void)produce("5");
    (void)produce("7");
    EXPECT_EQ(produce("5"), 0);
    EXPECT_EQ(record(2).kind_code, 0);
    EXPECT_EQ(record_count, 2);
    EXPECT_EQ(sync_owner, 1);
}

TEST_F(SerialPlan, a_producer_on_3_behind_the_field_modules_leaves_the_newest_code_alone) {
    (void)claim_record('F');
    sync_owner = record_count;
    record(1).kind_code = 10;
    EXPECT_EQ(produce("3"), 10);
    EXPECT_EQ(record(1).kind_code, 10);
    EXPECT_EQ(record_count, 1);
}

} // namespace
