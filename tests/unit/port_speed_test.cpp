#include <gtest/gtest.h>

#include "serial/port_settings.h"

namespace {

TEST(SpeedCodes, map_nine_rates_both_ways_any_other_rate_to_1200_and_any_other_code_to_1) {
    struct {
        int32_t bps;
        uint32_t code;
    } const rates[] = {{1200, 9},   {2400, 11},   {4800, 12},   {9600, 13},  {38400, 15},
                       {57600, 16}, {115200, 17}, {153600, 32}, {614400, 33}};
    for (const auto &rate : rates) {
        EXPECT_EQ(baud_to_speed_code(rate.bps), rate.code);
        EXPECT_EQ(speed_code_to_baud(rate.code), rate.bps);
    }
    for (const int32_t bps : {0, -1, 300, 9601, 230400})
        EXPECT_EQ(baud_to_speed_code(bps), 9u) << bps;
    for (const uint32_t code : {0u, 8u, 14u, 18u, 34u})
        EXPECT_EQ(speed_code_to_baud(code), 1) << code;
}

} // namespace
