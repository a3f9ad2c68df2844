// A file of its own, since the kernel's termios structure and the C library's have the same name.

#include <asm/termbits.h>
#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>

#include "runtime/unique_fd.h"
#include "serial/port_access.h"

namespace {

#if defined(BOTHER) && defined(TCGETS2)
TEST(CustomSpeed, the_board_driver_s_rates_are_really_set_and_a_standard_one_after_them) {
    const unique_fd master(posix_openpt(O_RDWR | O_NOCTTY));
    ASSERT_EQ(unlockpt(master.get()), 0);
    const unique_fd slave(open(ptsname(master.get()), O_RDWR | O_NOCTTY));
    ASSERT_TRUE(slave);
    struct {
        uint32_t code;
        uint32_t bps;
    } const rates[] = {{32, 153600}, {33, 614400}, {13, 9600}};
    for (const auto &rate : rates) {
        EXPECT_EQ(set_port_speed(slave.get(), rate.code), 0);
        struct termios2 settings = {};
        ASSERT_EQ(ioctl(slave.get(), TCGETS2, &settings), 0);
        EXPECT_EQ(settings.c_ospeed, rate.bps);
        EXPECT_EQ(settings.c_ispeed, rate.bps);
    }
}
#endif

} // namespace
