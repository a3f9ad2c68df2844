#include "runtime/settings.h"

#include <algorithm>

int32_t led_period = 2;
int32_t log_period = 120;
int32_t xfer_length = 32;
int32_t error_flag = 0;
uint8_t hdlc_mode = 0;
char mac_hex[2 * MAC_BYTES + 1];
std::array<uint8_t, TRANSFER_BYTES> tx_buffer;

void clamp_periods() {
    led_period = std::clamp(led_period, 1, 60);
    log_period = std::clamp(log_period, 5, 600);
}
