// Reads one of the board's SPI memories repeatedly, or sends 20 bytes through one of its SPI
// loopbacks. It reads the removable datakey while it is present, the eeprom until a pass takes too
// long.

#include "fio/spi/spi_device.h"
#include "fio/start.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

#include "fio/spi/spi_transfer.h"
#include "runtime/clock.h"
#include "runtime/poll.h"
#include "runtime/runner.h"
#include "runtime/system_log.h"

namespace {

constexpr int32_t DATAKEY = 1; // selectors; `unit` also has these two values
constexpr int32_t EEPROM = 2;
constexpr int32_t RESERVED = 4;
constexpr int32_t MANUFACTURER = 8;

constexpr size_t MEMORY_BYTES = 32; // read from a memory in one pass
constexpr int32_t FIRST_POLL_MS = 2;
constexpr int32_t SECOND_POLL_MS = 12;
constexpr int32_t READ_PAUSE_US = 5000;
constexpr int32_t SLOW_PASS_US = 100000;
constexpr uint8_t LOOPBACK_BYTE = '#';

struct spi_loopback {
    const char *path;
    int device = -1; // below 1: not open; stays open
};

struct spi_device {
    TestRecord &record;
    int32_t selector;
    spi_loopback manufacturer = {"/dev/manufacturer"};
    spi_loopback reserved = {"/dev/reserved"};
    int32_t eeprom_flag = 1;

    void set_up();
    void turn();
};

bool datakey_present() {
    uint8_t present = 0;
    const int device = open("/dev/datakeypresent", O_RDONLY | O_NONBLOCK);
    if (device > 0) {
        (void)!read(device, &present, 1); // nothing read: not present
        (void)close(device);
    }
    return present != 0;
}

void read_datakey(TestRecord &record) {
    if (datakey_present())
        spi_read_device(record, "/dev/datakey", MEMORY_BYTES);
    record.unit = DATAKEY;
}

// After a failed open the next turn tries again.
void exchange_loopback(TestRecord &record, spi_loopback &loopback) {
    if (loopback.device < 1)
        loopback.device = open(loopback.path, O_RDWR);
    if (loopback.device < 1) {
        ++record.errors2;
        return;
    }
    std::array<uint8_t, LOOPBACK_BYTES> transmit;
    std::array<uint8_t, LOOPBACK_BYTES> reply{};
    transmit.fill(LOOPBACK_BYTE);
    ++record.write_count;
    if (spi_manufacturer_poll(transmit, reply, loopback.device) == 1)
        ++record.read_count;
    else
        ++record.errors2;
}

void spi_device::set_up() {
    record.unit = selector;
    record.errors = 0;
}

void spi_device::turn() {
    if (selector == DATAKEY)
        read_datakey(record);
    const timeval begin = time_of_day();
    timeval end = begin;
    if (selector == MANUFACTURER)
        exchange_loopback(record, manufacturer);
    if (selector == RESERVED)
        exchange_loopback(record, reserved);
    if (eeprom_flag == 0)
        return;
    if (selector == EEPROM) {
        spi_read_device(record, "/dev/eeprom", MEMORY_BYTES);
        record.unit = EEPROM;
        end = time_of_day();
    }
    char message[EEPROM_MESSAGE_MAX];
    eeprom_flag = check_eeprom_timing(begin, end, message);
    if (eeprom_flag == 0)
        log_text(message);
}

} // namespace

pid_t spi_device_test(int no_fork, int32_t selector) {
    return start_test(no_fork, spi_device{claim_record(record_letter::SPI_DEVICE), selector});
}

void spi_read_device(TestRecord &record, const char *device_path, size_t length) {
    const int device = open(device_path, O_RDWR);
    if (device < 1) { // descriptor 0 counts as a failure and stays open
        ++record.errors;
        return;
    }
    std::array<uint8_t, MEMORY_BYTES> contents{};
    ssize_t count = 0;
    if (input_within(device, FIRST_POLL_MS) || input_within(device, SECOND_POLL_MS)) {
        (void)lseek(device, 0, SEEK_SET);
        count = read(device, contents.data(), std::min(length, contents.size()));
    }
    sleep_us(READ_PAUSE_US);
    if (count >= static_cast<ssize_t>(length))
        ++record.read_count;
    else
        ++record.errors2;
    (void)close(device);
}

int spi_manufacturer_poll(std::span<const uint8_t, LOOPBACK_BYTES> transmit,
                          std::span<uint8_t, LOOPBACK_BYTES> reply, int device) {
    static spi_settings settings;
    std::ranges::fill(reply, uint8_t{0});
    spi_transfer(device, settings, transmit, reply);
    return std::ranges::equal(transmit, reply) ? 1 : 0;
}

int32_t check_eeprom_timing(const timeval &begin, const timeval &end,
                            char (&message)[EEPROM_MESSAGE_MAX]) {
    const auto s1 = static_cast<int32_t>(begin.tv_sec);
    const auto s2 = static_cast<int32_t>(end.tv_sec);
    const auto us1 = static_cast<int32_t>(begin.tv_usec);
    const auto us2 = static_cast<int32_t>(end.tv_usec);
    constexpr size_t room = sizeof message;
    const int32_t passed_us = us2 - us1 + US_PER_S; // assumes one new second between them
    message[0] = '\0';
    if (s1 == s2) {
        if (us2 >= us1)
            return 1;
        (void)snprintf(message, room, "a eeprom too long %d %x %d %x", s2, us2, s1, us1);
    } else if (us2 >= us1) {
        (void)snprintf(message, room, "an eeprom too long %d %x %d %x", s2, us2, s1, us1);
    } else if (passed_us <= SLOW_PASS_US) {
        return passed_us;
    } else {
        (void)snprintf(message, room, "eeprom too long %d %x %d %x", s2, us2, s1, us1);
    }
    return 0;
}
