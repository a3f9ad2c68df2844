#include "tests/matrix/fault_cells.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <iterator>

namespace {

constexpr std::array<bounds, 3> NONE = {STAYS, STAYS, STAYS};
constexpr bounds EEPROM_READS = at_least(2);

constexpr std::array<bounds, 3> first(bounds moves, bounds third = STAYS) {
    return {moves, STAYS, third};
}
constexpr std::array<bounds, 3> second(bounds moves) {
    return {STAYS, moves, STAYS};
}
constexpr std::array<bounds, 3> third(bounds moves) {
    return {STAYS, STAYS, moves};
}

// The two modules of the sync port, by address, and the one on SPI.
line_claim fio_20(bounds good, const std::array<bounds, 3> &errors = NONE,
                  const sample_claim &samples = {}) {
    return {'F', "10 FIOloop sp5s", good, errors, samples};
}
line_claim fio_16(bounds good, const std::array<bounds, 3> &errors = NONE,
                  const sample_claim &samples = {}) {
    return {'F', "1 sp5 consume", good, errors, samples};
}
line_claim spi_loop(bounds good, const std::array<bounds, 3> &errors = NONE,
                    const sample_claim &samples = {}) {
    return {'L', "9 SpiFIOloop spBs", good, errors, samples};
}
// The two directions of the crossover between ports 2 and 8.
line_claim port_2(bounds good, const std::array<bounds, 3> &errors,
                  const sample_claim &samples = {}) {
    return {'E', "0 sp2 loop", good, errors, samples};
}
line_claim port_8(bounds good, const std::array<bounds, 3> &errors) {
    return {'E', "5 sp8 loop", good, errors};
}
line_claim written(int64_t least, int64_t most, line_claim line) {
    line.first_count = {least, most};
    return line;
}
line_claim unwritten(const line_claim &line) {
    return written(0, 0, line);
}
// The two requests of the start are all that was ever sent.
line_claim held_at_start(const std::array<bounds, 3> &errors) {
    return written(2, 2, spi_loop(STAYS, errors));
}
line_claim files(const std::array<bounds, 3> &errors, int64_t laid) {
    return {'Y', "11 filesys opt", at_least(32), errors, nullptr, exactly(laid)};
}
line_claim producer(const char *name, int64_t sent) {
    return {'P', name, at_least(sent), NONE};
}
constexpr bounds between(int64_t least, int64_t most) {
    return {least, most};
}
// What came through before the fault struck.
constexpr bounds up_to(int64_t count) {
    return {1, count};
}

// The samples.

sample_claim one_of(const std::vector<sample> &expected) {
    return [expected](const sample &seen) {
        return std::ranges::find(expected, seen) != expected.end();
    };
}
// Position and byte: the board flips one bit of one of the first three bytes.
bool is_flipped_block(const sample &seen) {
    return seen[0] >= 0 && seen[0] < 3 && std::has_single_bit(static_cast<unsigned>(seen[1] ^ ')'));
}
// The byte that the board inserts, somewhere in a block of 16.
bool is_inserted_byte(const sample &seen) {
    return seen[0] >= 0 && seen[0] < 16 && seen[1] == 0xA5;
}
// One bit of one byte.
bool is_garbled_block(const sample &seen) {
    return seen[0] >= 0 && seen[0] < 16 &&
           std::has_single_bit(static_cast<unsigned>(seen[1] ^ ')'));
}
bool is_frame_length(const sample &seen) {
    return seen[0] >= 3 && seen[0] <= 15;
}

// Length and flipped byte of the frames 10, 20, 30 and so on of a crossover, whose frames are the
// same in each run. The flip moves on by one byte, of the first three, and by one bit each time.
const sample_claim IS_FLIPPED_FRAME = one_of({
    {3, 40}, {3, 42},  {3, 35},  {3, 33}, {3, 56},  {3, 7},  {3, 105}, {3, 160},
    {4, 33}, {3, 43},  {7, 218}, {3, 47}, {3, 57},  {3, 8},  {3, 103}, {6, 160},
    {3, 41}, {3, 37},  {3, 45},  {4, 26}, {8, 206}, {4, 37}, {3, 104}, {3, 167},
    {9, 13}, {3, 197}, {8, 36},  {8, 11}, {14, 17}, {4, 11}, {3, 105}, {3, 168},
    {3, 38}, {3, 43},  {14, 5},  {3, 47}, {3, 57},  {3, 0},  {3, 96},  {3, 169},
});
// Input 3.4 of module 221 is stuck: the steps on byte 3, but the one that drives bit 4.
const sample_claim IS_STEP_WITH_STUCK_BIT =
    one_of({{24, 0x09}, {25, 0x0A}, {26, 0x0C}, {28, 0x18}, {29, 0x28}, {30, 0x48}, {31, 0x88}});
const sample_claim IS_SPI_STEP_WITH_STUCK_BIT =
    one_of({{24, 3}, {25, 3}, {26, 3}, {28, 3}, {29, 3}, {30, 3}, {31, 3}});
const sample_claim IS_SPI_STEP_OF_BYTE_0 =
    one_of({{0, 0}, {1, 0}, {2, 0}, {4, 0}, {5, 0}, {6, 0}, {7, 0}});
// Input 1 of a byte of second inputs is stuck: the steps that name another input of that byte.
const sample_claim IS_STEP_WITH_STUCK_13_1 =
    one_of({{2, 0x03}, {24, 0x05}, {25, 0x09}, {55, 0x81}, {57, 0x41}, {58, 0x21}, {59, 0x11}});
const sample_claim IS_STEP_WITH_STUCK_14_1 =
    one_of({{10, 0x03}, {23, 0x05}, {33, 0x09}, {61, 0x11}, {71, 0x21}});

// The harness of the other module type fits no step at all: a sample is the step and the input byte
// that it expects. Those of module 219, by step; those of 221 go up by one every eight steps.
constexpr int64_t SPI_INPUTS_OF_219[] = {
    11, 0,  6,  11, 7,  1, 4,  2,  3,  6, 10, 4, 6,  4,  5,  0, 2,  10, 4,  10, 1,  12, 0, 6,
    10, 2,  2,  1,  11, 0, 7,  11, 13, 7, 11, 7, 3,  13, 10, 4, 0,  1,  0,  9,  10, 4,  4, 13,
    2,  5,  9,  4,  7,  6, 12, 8,  5,  8, 13, 9, 8,  0,  12, 6, 9,  8,  13, 11, 11, 6,  5, 2,
    5,  1,  13, 9,  11, 8, 7,  5,  10, 3, 13, 9, 12, 9,  13, 8, 10, 3,  13, 9,  0,  1,  6, 3,
    13, 13, 13, 9,  12, 8, 2,  5,  12, 2, 7,  1, 12, 3,  5,  3, 1,  3,  7,  9,  12,
};
bool is_spi_step_of_219(const sample &seen) {
    return seen[0] >= 0 && seen[0] < std::ssize(SPI_INPUTS_OF_219) &&
           seen[1] == SPI_INPUTS_OF_219[seen[0]];
}
bool is_spi_step_of_221(const sample &seen) {
    return seen[0] >= 0 && seen[0] < 64 && seen[1] == seen[0] / 8;
}

// The relations.

using lines = std::vector<result_line>;

// A block of 16 bytes comes out of the receiver's FIFO in two halves, which a receiver that is
// quick enough reads one by one. A kill or a list may come between two counts.
bool is_all_received(const lines &seen) {
    return seen[0].counts[0] <= 2 * (seen[1].counts[0] + 1) &&
           seen[0].counts[0] - seen[0].counts[1] - seen[0].errors[0] <= 1;
}
bool is_half_received(const lines &seen) {
    return seen[0].counts[0] <= 2 * (seen[1].counts[0] / 2 + 1);
}
bool are_missing_frames_counted(const lines &seen) {
    return std::ranges::all_of(
        seen,
        [](const result_line &item) {
            return item.counts[0] - item.counts[1] <= 1 + item.errors[1];
        });
}
bool is_one_frame_in_ten_bad(const lines &seen) {
    return std::abs(seen[0].counts[0] / 10 - seen[0].errors[0]) <= 2;
}
// The receiver's check drops a frame with a wrong bit.
bool is_one_frame_in_ten_missing(const lines &seen) {
    return are_missing_frames_counted(seen) &&
           seen[0].counts[0] - seen[0].counts[1] >= seen[0].counts[0] / 10 - 2;
}
bool is_one_block_in_ten_bad(const lines &seen) {
    return is_all_received(seen) && std::abs(seen[1].counts[0] / 10 - seen[0].errors[0]) <= 2;
}
bool is_time_out_of_x_one_behind(const lines &seen) {
    return seen[0].errors[2] == seen[1].errors[2] - 1;
}
bool is_silence_moved_by_fours(const lines &seen) {
    return seen[0].errors[0] % 4 == 0 && std::abs(seen[0].errors[0] - seen[0].errors[1]) <= 4;
}
// Two requests before the first step; a step is one set and one read.
bool are_two_requests_a_step(const lines &seen) {
    return std::abs(seen[0].counts[0] - 2 - 2 * seen[0].counts[1]) <= 2;
}
bool are_two_failures_a_step(const lines &seen) {
    return std::abs(seen[0].errors[1] - (seen[0].counts[0] - 2)) <= 2;
}
bool is_one_failure_a_step(const lines &seen) {
    return std::abs(2 * seen[0].errors[1] - (seen[0].counts[0] - 2)) <= 3;
}
// Of the second line, whose index runs beyond its slots: a list then shows the last five, which
// nothing was written to.
bool are_slots_of_y_empty(const lines &seen) {
    return std::ranges::all_of(
        seen[1].samples,
        [](const sample &shown) {
            return shown == sample{0, 0};
        });
}
// Each lost request ends a pass: a status, four outputs set and read, and the one that is lost.
bool is_one_request_in_ten_lost(const lines &seen) {
    return std::ranges::all_of(
        seen,
        [](const result_line &item) { return std::abs(item.counts[0] - 4 * item.errors[1]) <= 5; });
}
bool is_one_spi_reply_in_ten_bad(const lines &seen) {
    return std::abs(seen[0].counts[0] / 10 - seen[0].errors[1]) <= 1;
}
// Of the second line; a pass is one status and 64 times a set and a read.
bool is_one_reply_in_ten_realigned(const lines &seen) {
    const int64_t replies = seen[1].counts[0] + seen[1].counts[1];
    return std::abs((replies + replies / 128) / 10 - seen[1].errors[2]) <= 1;
}
bool is_every_step_bad(const lines &seen) {
    return are_two_requests_a_step(seen) && std::abs(seen[0].counts[1] - seen[0].errors[0]) <= 1;
}
// A pass reads all sixteen files.
bool is_one_error_a_pass(const lines &seen) {
    return std::abs(seen[0].counts[1] / 16 - seen[0].errors[0]) <= 1;
}
bool is_each_second_read_empty(const lines &seen) {
    return std::abs(seen[0].errors[0] - seen[0].counts[1]) <= 1 &&
           std::abs(seen[0].counts[0] - 2 * seen[0].counts[1]) <= 2;
}
bool is_as_much_read_as_written(const lines &seen) {
    return std::abs(seen[0].counts[0] - seen[0].counts[1]) <= 3;
}

// The table. A row is named for its fault; rows of one name are one row of the matrix.

const std::vector<fault_cell> CELLS = {
    // clang-format off
    {"none", {"--cable", "1-2"}, {"-C1", "-P2"}, {{'C', "3 sp1 consume", at_least(100), NONE},
     producer("3 sp2 produce", 100)}, {}, is_all_received},
    {"none", {"--cable", "3-5"}, {"-C3", "-P5"}, {{'C', "0 sp3 consume", at_least(50), NONE},
     producer("0 sp5 produce", 50)}, {}, is_all_received},
    {"none", {"--cable", "1s-2s"}, {"-h", "-C2", "-P1"}, {{'C', "2 sp2 consume", at_least(50), NONE},
     producer("2 sp1 produce", 50)}, {}, is_all_received},
    {"none", {"--cable", "2-8"}, {"-E28"}, {port_2(at_least(50), NONE), port_8(at_least(50), NONE)}, {},
     are_missing_frames_counted},
    {"none", {"--cable", "2s-8s"}, {"-h", "-E28"}, {port_2(at_least(50), NONE), port_8(at_least(50), NONE)}, {},
     are_missing_frames_counted},
    {"none", {"--cable", "2-8"}, {"-b38400", "-E28"}, {port_2(at_least(50), NONE), port_8(at_least(50), NONE)},
     {}, are_missing_frames_counted},
    {"none", {"--loop", "2"}, {"-E2"}, {{'E', "5 sp2 loop", at_least(50), NONE}}, {}, are_missing_frames_counted},
    {"none", {"--loop", "5s"}, {"-h", "-E55"}, {{'E', "5 sp5 loop", at_least(50), NONE}}, {},
     are_missing_frames_counted},
    {"none", {"--fio", "20=1,16=2"}, {"-F"}, {fio_20(at_least(65)), fio_16(at_least(103))}},
    {"none", {"--fio", "20=219,16=220"}, {"-F"}, {fio_20(at_least(103)), fio_16(at_least(113))}},
    {"none", {"--fio", "20=220,16=221"}, {"-F"}, {fio_20(at_least(113)), fio_16(at_least(65))}},
    {"none", {"--spi", "219"}, {"-L"}, {spi_loop(at_least(118))}, {}, are_two_requests_a_step},
    {"none", {"--spi", "221"}, {"-L"}, {spi_loop(at_least(65))}, {}, are_two_requests_a_step},
    {"none", {"--datakey", "present", "--eeprom", "good"}, {"-S1", "-S2"}, {{'S', "6 Datakey spi", at_least(10)},
     {'S', "7 eeprom spi", EEPROM_READS}}},
    {"none", {"--spi", "loop", "--spi", "reserved=loop"}, {"-S8", "-S4"}, {{'S', "7 eeprom spi", at_least(100)},
     {'S', "7 eeprom spi", at_least(100)}}},
    {"none", {"--release"}, {"-Y", "/r0/f", "-M", "/r0/a:/r0/b:0", "-D"},
     {{'Y', "11 filesys opt", at_least(64), NONE, nullptr, exactly(16)}, {'M', "5 bbsram file_copy", at_least(10)},
     {'D', "8 dram user", at_least(100)}}},

    {"bit flipped on the cable", {"--cable", "1-2", "--fault", "flip:2:10"}, {"-C1", "-P2"},
     {{'C', "3 sp1 consume", at_least(20), first(at_least(9)), is_flipped_block},
     producer("3 sp2 produce", 90)}, {}, is_one_block_in_ten_bad},
    {"bit flipped on the cable", {"--loop", "5s", "--fault", "flip:5s:10"}, {"-h", "-E55"},
     {{'E', "5 sp5 loop", at_least(20), {STAYS, at_least(5), at_least(5)}}}, {}, is_one_frame_in_ten_missing},
    // Every tenth request is dropped by the check of the modules' controller: nobody answers.
    {"bit flipped on the cable", {"--fio", "20=1,16=2", "--fault", "flip:5s:10"}, {"-F"},
     {fio_20(at_least(7), second(at_least(2))), fio_16(at_least(4), second(at_least(1)))},
     {"<20 set 3 3>", "<16 set 4 4>", "<20 set 4 7>"}},
    {.fault = "bit flipped, x to y", .board = {"--cable", "2-8", "--fault", "flip:2:10"}, .arguments = {"-E28"},
     .lines = {port_2(at_least(20), first(at_least(5)), IS_FLIPPED_FRAME), port_8(at_least(40), NONE)},
     .also = is_one_frame_in_ten_bad, .seconds = 1},
    // The record's index runs on, as it is x's that is set back: no sample is to be seen.
    {"bit flipped, y to x", {"--cable", "2-8", "--fault", "flip:8:1"}, {"-E28"}, {port_2(at_least(15), NONE),
     port_8(STAYS, first(at_least(20)))}, {}, are_slots_of_y_empty},
    {"bit flipped in every frame, x to y: first three unseen", {"--loop", "2", "--fault", "flip:2:1"}, {"-E2"},
     {{'E', "5 sp2 loop", exactly(3), first(at_least(5)), is_frame_length}}},
    {"every 2nd block lost", {"--cable", "1-2", "--fault", "drop:2:2"}, {"-C1", "-P2"},
     {{'C', "3 sp1 consume", at_least(50), NONE}, producer("3 sp2 produce", 98)}, {}, is_half_received},
    {"every 5th frame lost, x to y", {"--cable", "2-8", "--fault", "drop:2:5"}, {"-E28"},
     {port_2(at_least(20), {STAYS, at_least(5), at_least(4)}), port_8(at_least(20), {STAYS, STAYS, at_least(5)})}},
    {"every 5th frame lost, y to x", {"--cable", "2-8", "--fault", "drop:8:5"}, {"-E28"},
     {port_2(at_least(20), NONE), port_8(at_least(20), {STAYS, at_least(5), STAYS})}},
    {"every 10th request lost", {"--fio", "20=1,16=2", "--fault", "drop:5s:10"}, {"-F"},
     {fio_20(at_least(15), second(at_least(4))), fio_16(at_least(12), second(at_least(3)))},
     {"<20 set 3 3>", "<16 set 4 4>", "<20 set 4 7>"}, is_one_request_in_ten_lost},
    {"cable cut", {"--cable", "1-2", "--fault", "cut:2"}, {"-C1", "-P2"},
     {{'C', "3 sp1 consume", STAYS, third(at_least(3))}, producer("3 sp2 produce", 50)}},
    {"cable cut", {"--cable", "2-8", "--fault", "cut:2", "--fault", "cut:8"}, {"-E28"},
     {port_2(STAYS, {STAYS, at_least(10), at_least(9)}), port_8(STAYS, {STAYS, at_least(9), at_least(10)})}, {},
     is_time_out_of_x_one_behind},
    {"cable cut", {"--fio", "20=1,16=2", "--fault", "cut:5s"}, {"-F"}, {unwritten(fio_20(STAYS, second(at_least(6)))),
     unwritten(fio_16(STAYS, second(at_least(6))))}},
    {"cable cut, x to y", {"--cable", "2-8", "--fault", "cut:2"}, {"-E28"},
     {port_2(STAYS, {STAYS, at_least(10), at_least(9)}), port_8(at_least(9), {STAYS, STAYS, at_least(10)})}, {},
     is_time_out_of_x_one_behind},
    {"cable cut, y to x", {"--cable", "2-8", "--fault", "cut:8"}, {"-E28"}, {port_2(at_least(9), NONE),
     port_8(STAYS, {STAYS, at_least(10), STAYS})}},
    {"cable pulled after 20 blocks", {"--cable", "1-2", "--fault", "pull:2:20"}, {"-C1", "-P2"},
     {{'C', "3 sp1 consume", up_to(40), third(at_least(3))}, producer("3 sp2 produce", 50)}},
    {"cable pulled after 20 blocks", {"--loop", "2", "--fault", "pull:2:20"}, {"-E2"},
     {{'E', "5 sp2 loop", exactly(20), {at_least(41), at_least(40), at_least(40)}}}, {}, is_silence_moved_by_fours},
    // The 20th request is the ninth output set at 20.
    {"cable pulled after 20 blocks", {"--fio", "20=1,16=2", "--fault", "pull:5s:20"}, {"-F"},
     {written(0, 9, fio_20({0, 8}, second(at_least(3)))), written(0, 8, fio_16({0, 8}, second(at_least(3))))},
     {"<16 stat ", "<20 stat "}},
    {"port hung up", {"--cable", "1-2", "--fault", "hangup:1:10"}, {"-C1", "-P2"},
     {{'C', "3 sp1 consume", up_to(18), third(at_least(3))}, producer("3 sp2 produce", 50)}},
    {"port hung up", {"--cable", "1-2", "--fault", "hangup:2:10"}, {"-C1", "-P2"},
     {{'C', "3 sp1 consume", up_to(18), third(at_least(3))},
     {'P', "3 sp2 produce", exactly(10), third(at_least(10))}}},
    // A frame leaves the port and reaches it again: the tenth is lost.
    {"port hung up", {"--loop", "2", "--fault", "hangup:2:20"}, {"-E2"},
     {{'E', "5 sp2 loop", up_to(9), {at_least(41), at_least(40), STAYS}, nullptr, exactly(10)}}, {},
     is_silence_moved_by_fours},
    {"port hung up", {"--loop", "2s", "--fault", "hangup:2s:20"}, {"-h", "-E2"},
     {{'E', "5 sp2 loop", up_to(9), {at_least(41), at_least(40), STAYS}, nullptr, exactly(10)}}, {},
     is_silence_moved_by_fours},
    {"port x hung up", {"--cable", "2-8", "--fault", "hangup:2:20"}, {"-E28"},
     {written(10, 10, port_2(up_to(10), {STAYS, at_least(10), at_least(9)})),
     written(10, 10, port_8(up_to(10), {at_least(16), at_least(10), at_least(10)}))}, {},
     is_time_out_of_x_one_behind},
    {"port y hung up", {"--cable", "2-8", "--fault", "hangup:8:20"}, {"-E28"},
     {port_2(up_to(10), {STAYS, at_least(10), STAYS}), port_8(up_to(10), {at_least(16), at_least(10), STAYS})}},
    // The 21st chunk is the request to read in step 3. From
    // then on every request fails at once.
    {"port hung up", {"--fio", "20=1,16=2", "--fault", "hangup:5s:21"}, {"-F"},
     {written(0, 4, fio_20({0, 3}, second(at_least(3)))), written(0, 3, fio_16({0, 3}, second(at_least(3))))},
     {"<16 stat ", "<20 stat "}, nullptr, nullptr, ending::stopped, nullptr, false, 0.3},
    {"RTS not wired", {"--cable", "2-8", "--fault", "lines:2-8"}, {"-E28"},
     {port_2(at_least(20), first(exactly(2))), port_8(at_least(20), first(exactly(2)))}},
    {"RTS not wired, port 5 or 6", {"--loop", "5", "--loop", "6", "--fault", "lines:5", "--fault", "lines:6"},
     {"-E5", "-E6"}, {{'E', "5 sp5 loop", at_least(20), NONE}, {'E', "5 sp6 loop", at_least(20), NONE}}},

    {.fault = "port or device missing", .board = {}, .arguments = {"-C1", "-P6"},
     .lines = {{'C', "3 sp0 consume", STAYS, second(exactly(1))}, {'P', "4 sp0 produce", STAYS, third(exactly(1))}},
     .end = ending::by_itself},
    // The modem lines of no port are looked at all the same and give any answer.
    {.fault = "port or device missing", .board = {"--port", "2"}, .arguments = {"-E28"},
     .lines = {{'E', "0 sp0 loop", STAYS, {between(0, 2), STAYS, STAYS}},
     {'E', "5 sp2 loop", STAYS, {between(0, 2), STAYS, STAYS}}}, .log = {"Couldn't open SP8"}, .end = ending::never},
    {.fault = "port or device missing", .board = {"--port", "8"}, .arguments = {"-E28"},
     .lines = {{'E', "0 sp0 loop", STAYS, {between(0, 2), STAYS, STAYS}},
     {'E', "5 sp0 loop", STAYS, {between(0, 2), STAYS, STAYS}}}, .log = {"Couldn't open SP2"}, .end = ending::never},
    {.fault = "port or device missing", .board = {}, .arguments = {"-E77"},
     .lines = {{'E', "5 sp0 loop", STAYS, {between(0, 2), STAYS, STAYS}}}, .log = {"Couldn't open SP7"},
     .end = ending::by_itself},
    {.fault = "port or device missing", .board = {}, .arguments = {"-F"},
     .lines = {{'F', "10 FIOloop sp0s", STAYS, third(exactly(1))}, {'F', "1 sp0 consume", STAYS}},
     .end = ending::held},
    {.fault = "port or device missing", .board = {}, .arguments = {"-L"},
     .lines = {{'L', "", STAYS, second(exactly(2))}}, .end = ending::held,
     .report = " SpiFIOloop, wrote 00000002, read 00000000, errors 00 02"},
    {"port or device missing", {"--eeprom", "missing"}, {"-S2"},
     {{'S', "7 eeprom spi", STAYS, second(EEPROM_READS)}}},
    {"port or device missing", {}, {"-S8"}, {{'S', "7 eeprom spi", STAYS, first(EEPROM_READS)}}},
    {"datakey absent", {"--datakey", "absent", "--eeprom", "good"}, {"-S2", "-S1"},
     {{'S', "7 eeprom spi", EEPROM_READS}, {'S', "6 Datakey spi", STAYS}}},
    {"datakey absent", {"--eeprom", "good"}, {"-S2", "-S1"}, {{'S', "7 eeprom spi", EEPROM_READS},
     {'S', "6 Datakey spi", STAYS}}},
    {"memory too short", {"--eeprom", "short"}, {"-S2"}, {{'S', "7 eeprom spi", STAYS, first(EEPROM_READS)}}},
    {"loopback sends something else", {"--spi", "219"}, {"-S8"}, {{'S', "7 eeprom spi", STAYS, first(EEPROM_READS)}}},

    {"input stuck", {"--fio", "20=221,16=221", "--fault", "stuck:20:3.4"}, {"-F"},
     {fio_20(at_least(32), first(at_least(7)), IS_STEP_WITH_STUCK_BIT), fio_16(ANY)}},
    {"input stuck", {"--spi", "221", "--fault", "stuck:manufacturer:3.4"}, {"-L"},
     {spi_loop(at_least(32), first(at_least(7)), IS_SPI_STEP_WITH_STUCK_BIT)}},
    {"input stuck in byte 0", {"--fio", "20=221,16=1", "--fault", "stuck:20:0.4"}, {"-F"}, {fio_20(at_least(65)),
     fio_16(at_least(1))}},
    {"input stuck in byte 0", {"--spi", "221", "--fault", "stuck:manufacturer:0.4"}, {"-L"},
     {spi_loop(at_least(8), first(exactly(65)), IS_SPI_STEP_OF_BYTE_0)}},
    {"second input stuck", {"--fio", "20=219,16=3", "--fault", "stuck:20:13.1"}, {"-F"},
     {fio_20(at_least(25), first(at_least(2)), IS_STEP_WITH_STUCK_13_1), unwritten(fio_16(STAYS))}},
    {"second input stuck", {"--fio", "20=2,16=3", "--fault", "stuck:20:14.1"}, {"-F"},
     {fio_20(at_least(24), first(at_least(2)), IS_STEP_WITH_STUCK_14_1), unwritten(fio_16(STAYS))}},
    {"second input stuck in byte 14 of module 219", {"--fio", "20=219,16=3", "--fault", "stuck:20:14.1"}, {"-F"},
     {fio_20(at_least(103)), unwritten(fio_16(STAYS))}},
    // On module 220 output 5.2 drives input byte 0 as well. The dead ones are those of steps 2 and 41.
    {"output to input byte 0 dead", {"--fio", "20=221,16=220", "--fault", "dead:20:0.3", "--fault", "dead:16:5.2"},
     {"-F"}, {fio_20(at_least(10)), fio_16(at_least(43))}},
    {"output to input byte 0 dead", {"--spi", "221", "--fault", "dead:manufacturer:0.3"}, {"-L"},
     {spi_loop(at_least(8), first(exactly(9)), one_of({{2, 0}}))}},
    {"output dead", {"--fio", "20=2,16=220", "--fault", "dead:20:5.2", "--fault", "dead:16:5.3"}, {"-F"},
     {fio_20(at_least(103), first(at_least(2)), one_of({{5, 0}})),
     fio_16(at_least(113), first(at_least(2)), one_of({{42, 0}}))}},
    {"output dead", {"--spi", "219", "--fault", "dead:manufacturer:0.1"}, {"-L"},
     {spi_loop(at_least(118), first(exactly(5)), one_of({{0, 11}}))}},
    {"silent to status", {"--fio", "20=1,16=2", "--fault", "silent:20:1"}, {"-F"},
     {unwritten(fio_20(STAYS, second(at_least(2)))), fio_16(at_least(1))}, {"<20 stat 0 0>"}},
    // At 20 a module of unknown type, which costs no time and moves nothing.
    {"silent to status", {"--fio", "20=3,16=2", "--fault", "silent:16:1"}, {"-F"}, {unwritten(fio_20(STAYS)),
     unwritten(fio_16(STAYS, second(at_least(2))))}, {"<16 stat 0 0>"}},
    {"silent to status", {"--spi", "221", "--fault", "silent:manufacturer:1"}, {"-L"},
     {spi_loop(at_least(10), second(exactly(1)))}, {}, are_two_requests_a_step},
    {"silent to set outputs", {"--fio", "20=1,16=2", "--fault", "silent:20:7"}, {"-F"},
     {unwritten(fio_20(STAYS, second(at_least(2)))), fio_16(at_least(1))}, {"<20 set 0 0>"}},
    {"silent to set outputs", {"--fio", "20=3,16=2", "--fault", "silent:16:7"}, {"-F"}, {unwritten(fio_20(STAYS)),
     unwritten(fio_16(STAYS, second(at_least(2))))}, {"<16 set 0 0>"}},
    {"silent to set outputs", {"--spi", "221", "--fault", "silent:manufacturer:7"}, {"-L"},
     {spi_loop(STAYS, second(at_least(20)))}, {}, are_two_failures_a_step},
    {"silent to read inputs", {"--fio", "20=1,16=2", "--fault", "silent:20:4"}, {"-F"},
     {fio_20(STAYS, second(at_least(2))), fio_16(at_least(1))}, {"<20 read 0 1>"}},
    {"silent to read inputs", {"--fio", "20=3,16=2", "--fault", "silent:16:4"}, {"-F"}, {unwritten(fio_20(STAYS)),
     fio_16(STAYS, second(at_least(2)))}, {"<16 read 0 1>"}},
    {"silent to read inputs", {"--spi", "221", "--fault", "silent:manufacturer:4"}, {"-L"},
     {spi_loop(STAYS, second(at_least(20)))}, {}, is_one_failure_a_step},
    {"silent to identify", {"--fio", "20=1,16=2", "--fault", "silent:20:12"}, {"-F"},
     {unwritten(fio_20(STAYS, second(at_least(6)))), fio_16(at_least(1))}},
    {"silent to identify", {"--fio", "20=3,16=2", "--fault", "silent:16:12"}, {"-F"}, {unwritten(fio_20(STAYS)),
     unwritten(fio_16(STAYS, second(at_least(6))))}},
    {.fault = "silent to identify", .board = {"--spi", "219", "--fault", "silent:manufacturer:12"},
     .arguments = {"-L"}, .lines = {held_at_start(second(exactly(1)))}, .end = ending::held},
    {"module says that it is another", {"--fio", "20=1,16=2", "--fault", "type:16:221"}, {"-F"}, {fio_20(at_least(1)),
     unwritten(fio_16(STAYS, second(at_least(2))))}, {"<16 set 0 0>"}},
    {"module says that it is another", {"--fio", "20=1,16=3", "--fault", "type:20:221"}, {"-F"},
     {unwritten(fio_20(STAYS, second(at_least(2)))), unwritten(fio_16(STAYS))}, {"<20 set 0 0>"}},
    {"module says that it is another", {"--spi", "221", "--fault", "type:manufacturer:219"}, {"-L"},
     {spi_loop(at_least(10), first(at_least(9)), is_spi_step_of_219)}, {}, is_every_step_bad},
    {"module says that it is another", {"--spi", "219", "--fault", "type:manufacturer:221"}, {"-L"},
     {spi_loop(at_least(10), first(at_least(9)), is_spi_step_of_221)}, {}, is_every_step_bad},
    {"module missing", {"--fio", "30=1"}, {"-F"}, {unwritten(fio_20(STAYS, second(at_least(6)))),
     unwritten(fio_16(STAYS, second(at_least(6))))}},
    {"module of unknown type", {"--fio", "20=221,16=1", "--fault", "type:20:3"}, {"-F"}, {unwritten(fio_20(STAYS)),
     fio_16(at_least(10))}},
    {.fault = "module of unknown type", .board = {"--spi", "220"}, .arguments = {"-L"},
     .lines = {held_at_start(NONE)}, .end = ending::held},
    {.fault = "module of unknown type", .board = {"--spi", "219", "--fault", "type:manufacturer:3"},
     .arguments = {"-L"}, .lines = {held_at_start(NONE)}, .end = ending::held},
    // The 50th reply is that of the read in step 23. Nobody is at 16: what comes late is read while
    // that module is asked what it is.
    {"reply late", {"--fio", "20=221", "--fault", "late:20:50"}, {"-F"},
     {fio_20(at_least(1), {STAYS, at_least(1), STAYS}), fio_16(STAYS, second(at_least(1)))},
     {"<20 read 23 24>", "<24 4 "}},
    {"reply late", {"--spi", "221", "--fault", "late:manufacturer:10"}, {"-L"},
     {spi_loop(at_least(10), second(at_least(3)))}, {}, is_one_spi_reply_in_ten_bad},
    {"check byte wrong", {"--spi", "221", "--fault", "check:manufacturer:10"}, {"-L"},
     {spi_loop(at_least(10), second(at_least(3)))}, {}, is_one_spi_reply_in_ten_bad},
    {"stray bytes before a reply", {"--fio", "20=221,16=1", "--fault", "stray:20:10"}, {"-F"},
     {fio_20(at_least(1), third(at_least(3))), fio_16(ANY)}, {"<27 24 ", " 3>"}},
    {"stray bytes before a reply", {"--fio", "20=3,16=1", "--fault", "stray:16:10"}, {"-F"},
     {unwritten(fio_20(STAYS)), fio_16(at_least(10), third(at_least(3)))}, {"<18 15 ", " 3>"},
     is_one_reply_in_ten_realigned},
    {"reply two bytes too long", {"--fio", "20=221,16=1", "--fault", "long:20:10"}, {"-F"}, {fio_20(at_least(10)),
     fio_16(ANY)}, {"[26 24]"}},
    {"reply two bytes too long", {"--fio", "20=3,16=1", "--fault", "long:16:10"}, {"-F"}, {unwritten(fio_20(STAYS)),
     fio_16(at_least(10))}, {"[17 15]"}},
    {"reply one byte too short", {"--fio", "20=221,16=1", "--fault", "short:16:10"}, {"-F"}, {fio_20(ANY),
     fio_16(at_least(10))}, {"[14 15]"}},
    {"reply one byte too short", {"--fio", "20=221,16=3", "--fault", "short:20:10"}, {"-F"}, {fio_20(at_least(10)),
     unwritten(fio_16(STAYS))}, {"[23 24]"}},

    {.fault = "word of a file wrong", .board = {"--release"}, .arguments = {"-Y", "/r0/f"},
     .lines = {files(first(at_least(2)), 15)}, .also = is_one_error_a_pass,
     .prepared_by = "mkdir /r0/f; (head -c 510 /dev/zero; printf '\\0\\1') >/r0/f/file-0001"},
    {.fault = "last word of a file wrong", .board = {"--release"}, .arguments = {"-Y", "/r0/f"},
     .lines = {files(NONE, 15)},
     .prepared_by = "mkdir /r0/f; (head -c 510 /dev/zero; printf '\\1\\1') >/r0/f/file-0000"},
    {.fault = "file of a wrong size", .board = {"--release"}, .arguments = {"-Y", "/r0/f"},
     .lines = {files(first(at_least(2)), 16)}, .also = is_one_error_a_pass,
     .prepared_by = "mkdir /r0/f; echo >/r0/f/file-0010"},
    {.fault = "file that is not there", .board = {"--release"}, .arguments = {"-Y", "/r0/f"},
     .lines = {files(first(at_least(2)), 16)}, .also = is_one_error_a_pass,
     .prepared_by = "mkdir /r0/f; ln -s nowhere /r0/f/file-0010"},
    {.fault = "file system full", .board = {"--release"}, .arguments = {"-Y", "/r0/f", "-M", "/r0/f/a:/r0/f/b:0"},
     .lines = {{'Y', "11 filesys opt", STAYS, first(at_least(32))},
     {'M', "5 bbsram file_copy", STAYS, first(at_least(4))}},
     .prepared_by = "mkdir /r0/f; mount -t tmpfs -o size=4k none /r0/f; head -c 4096 /dev/zero >/r0/f/all", .seconds = 5},
    {"source reads as empty", {"--release"}, {"-M", "/dev/null:/r0/b:0"},
     {{'M', "5 bbsram file_copy", at_least(3), first(at_least(3))}}, {}, is_each_second_read_empty},
    {"source reads as something else", {"--release"}, {"-M", "/dev/zero:/r0/b:0"},
     {{'M', "5 bbsram file_copy", at_least(10)}}, {}, is_as_much_read_as_written},
    {"destination cannot be opened", {"--release"}, {"-M", "/r0/a:/r0/missing/b:0"},
     {{'M', "5 bbsram file_copy", at_least(10)}}, {}, is_as_much_read_as_written},
    // More blocks than ever fit: a pass that ends so gives back what it has.
    {.fault = "no memory to map", .board = {"--release"}, .arguments = {"-D"},
     .lines = {{'D', "8 dram user", at_least(2000), first(at_least(2))}}, .prepared_by = "ulimit -v 30000",
     .needs_limits = true, .seconds = 1},

    {"byte lost on the way", {"--cable", "1-2", "--fault", "lostbyte:2:100"}, {"-C1", "-P2"},
     {{'C', "3 sp1 consume", at_least(100), NONE}, producer("3 sp2 produce", 50)}},
    {"byte lost on the way", {"--cable", "2-8", "--fault", "lostbyte:2:50"}, {"-E28"},
     {port_2(at_least(20), first(at_least(3))), port_8(at_least(20), NONE)}},
    {"byte inserted on the way", {"--cable", "1-2", "--fault", "insert:2:100"}, {"-C1", "-P2"},
     {{'C', "3 sp1 consume", at_least(50), first(at_least(5)), is_inserted_byte},
     producer("3 sp2 produce", 30)}},
    {"byte inserted on the way", {"--cable", "2-8", "--fault", "insert:2:50"}, {"-E28"},
     {port_2(at_least(20), first(at_least(3))), port_8(at_least(20), NONE)}},
    // Ports without INPCK hand on what was sampled before the stop bit.
    {"stop bit low", {"--cable", "1-2", "--fault", "framing:2:50"}, {"-C1", "-P2"},
     {{'C', "3 sp1 consume", at_least(100), NONE}, producer("3 sp2 produce", 50)}},
    {"stop bit low", {"--cable", "2-8", "--fault", "framing:2:50"}, {"-E28"},
     {port_2(at_least(50), NONE), port_8(at_least(50), NONE)}},
    {"frame garbled after its check", {"--cable", "1s-2s", "--fault", "garble:1s:10"}, {"-h", "-C2", "-P1"},
     {{'C', "2 sp2 consume", at_least(20), first(at_least(5)), is_garbled_block},
     producer("2 sp1 produce", 50)}},
    {"frame garbled after its check", {"--loop", "5s", "--fault", "garble:5s:10"}, {"-h", "-E55"},
     {{'E', "5 sp5 loop", at_least(20), {at_least(5), STAYS, STAYS}}}, {}, is_one_frame_in_ten_bad},
    {"frame garbled after its check", {"--cable", "2s-8s", "--fault", "garble:2s:10"}, {"-h", "-E28"},
     {port_2(at_least(20), first(at_least(5))), port_8(at_least(20), NONE)}, {},
     is_one_frame_in_ten_bad},
    {"frame garbled after its check", {"--fio", "20=1,16=2", "--fault", "garble:5s:5"}, {"-F"},
     {fio_20(at_least(1), second(at_least(1))), fio_16(at_least(1), {at_least(1), at_least(1), STAYS})}},
    {"line stalled", {"--cable", "1-2", "--fault", "stall:2"}, {"-C1", "-P2"},
     {{'C', "3 sp1 consume", STAYS, third(at_least(3))}, {'P', "3 sp2 produce", exactly(1)}}},
    {"line stalled", {"--cable", "1s-2s", "--fault", "stall:1s"}, {"-h", "-C2", "-P1"},
     {{'C', "2 sp2 consume", STAYS, third(at_least(3))}, {'P', "2 sp1 produce", exactly(1)}}},
    // The test waits in tcdrain for good.
    {"line stalled", {"--cable", "2-8", "--fault", "stall:2"}, {"-E28"},
     {written(1, 1, port_2(STAYS, NONE)), written(1, 1, port_8(STAYS, NONE))}},
    {"line stalled", {"--loop", "5s", "--fault", "stall:5s"}, {"-h", "-E55"},
     {written(1, 1, {'E', "5 sp5 loop", STAYS})}},
    {"line stalled", {"--fio", "20=1,16=2", "--fault", "stall:5s"}, {"-F"},
     {unwritten(fio_20(STAYS)), unwritten({'F', "1 sp0 consume", STAYS})}},
    {"line stalled, 1 to 2 s", {"--cable", "1-2", "--fault", "stall:2@1-2"}, {"-C1", "-P2"},
     {{'C', "3 sp1 consume", at_least(800), third(at_least(3))}, producer("3 sp2 produce", 400)}},
    {"CTS stuck", {"--cable", "1-2", "--fault", "cts:2:0"}, {"-C1", "-P2"},
     {{'C', "3 sp1 consume", at_least(100), NONE}, producer("3 sp2 produce", 50)}},
    {"CTS stuck", {"--cable", "2-8", "--fault", "cts:2:0"}, {"-E28"},
     {port_2(at_least(20), first(exactly(1))), port_8(at_least(20), NONE)}},
    {"CTS stuck", {"--cable", "2-8", "--fault", "cts:8:1"}, {"-E28"},
     {port_2(at_least(20), NONE), port_8(at_least(20), first(exactly(1)))}},
    {"CTS stuck", {"--cable", "2s-8s", "--fault", "cts:2s:0"}, {"-h", "-E28"},
     {port_2(at_least(20), first(exactly(1))), port_8(at_least(20), NONE)}},
    {"DCD stuck", {"--cable", "1-2", "--fault", "dcd:2:0"}, {"-C1", "-P2"},
     {{'C', "3 sp1 consume", at_least(100), NONE}, producer("3 sp2 produce", 50)}},
    {"DCD stuck", {"--cable", "2-8", "--fault", "dcd:2:0"}, {"-E28"},
     {port_2(at_least(20), first(exactly(1))), port_8(at_least(20), NONE)}},
    {"DCD stuck", {"--loop", "2", "--fault", "dcd:2:1"}, {"-E2"},
     {{'E', "5 sp2 loop", at_least(20), {exactly(1), STAYS, STAYS}}}},
    {"speed 12 per cent off", {"--cable", "1-2", "--fault", "speed:2:12"}, {"-C1", "-P2"},
     {{'C', "3 sp1 consume", STAYS, first(at_least(20))}, producer("3 sp2 produce", 20)}},
    {"speed 12 per cent off", {"--cable", "2-8", "--fault", "speed:2:-12"}, {"-E28"},
     {port_2(between(0, 3), first(at_least(20))), port_8(at_least(20), NONE)}},
    {"speed 3 per cent off", {"--cable", "1-2", "--fault", "speed:2:3"}, {"-C1", "-P2"},
     {{'C', "3 sp1 consume", at_least(100), NONE}, producer("3 sp2 produce", 50)}},
    {"speed 3 per cent off", {"--cable", "2-8", "--fault", "speed:2:-3"}, {"-E28"},
     {port_2(at_least(50), NONE), port_8(at_least(50), NONE)}},

    {"reply corrupted", {"--fio", "20=1,16=2", "--fault", "corrupt:20:3"}, {"-F"},
     {fio_20(ANY, first(at_least(1))), fio_16(at_least(1))}},
    {"reply corrupted", {"--spi", "221", "--fault", "corrupt:manufacturer:10"}, {"-L"},
     {spi_loop(at_least(10), second(at_least(3)))}, {}, is_one_spi_reply_in_ten_bad},
    {"reply lost", {"--fio", "20=1,16=2", "--fault", "lose:20:10"}, {"-F"},
     {fio_20(at_least(1), second(at_least(2))), fio_16(at_least(1))}},
    {"reply lost", {"--spi", "221", "--fault", "lose:manufacturer:10"}, {"-L"},
     {spi_loop(at_least(10), second(at_least(3)))}, {}, is_one_spi_reply_in_ten_bad},
    // What comes late is read while the other module is asked.
    {"each reply late", {"--fio", "20=1,16=2", "--fault", "delay:20:1000"}, {"-F"},
     {unwritten(fio_20(STAYS, second(at_least(3)))), fio_16(at_least(1), second(at_least(1)))}},
    {"each reply late", {"--spi", "221", "--fault", "delay:manufacturer:5"}, {"-L"},
     {held_at_start(second(exactly(2)))}},
    // A pass that has taken too long ends the reads of an eeprom for good: the test then only looks at the time.
    {.fault = "memory slow", .board = {"--eeprom", "good", "--fault", "slow:eeprom:100"}, .arguments = {"-S2"},
     .lines = {{'S', "7 eeprom spi", EEPROM_READS}}, .seconds = 1},
    {"memory slow", {"--datakey", "present", "--fault", "slow:datakey:100"}, {"-S1"},
     {{'S', "6 Datakey spi", at_least(3)}}},
    {"memory reads fail", {"--eeprom", "good", "--fault", "fail:eeprom:3"}, {"-S2"},
     {{'S', "7 eeprom spi", EEPROM_READS, first(at_least(1))}}},
    {"memory reads fail", {"--datakey", "present", "--fault", "fail:datakey:3"}, {"-S1"},
     {{'S', "6 Datakey spi", at_least(3), first(at_least(3))}}},
    {"bit of a memory weak", {"--eeprom", "good", "--fault", "weak:eeprom:5.3"}, {"-S2"},
     {{'S', "7 eeprom spi", EEPROM_READS}}},
    {"bit of a memory weak", {"--datakey", "present", "--fault", "weak:datakey:5.3"}, {"-S1"},
     {{'S', "6 Datakey spi", at_least(10)}}},
    {"key pulled out and put back", {"--datakey", "present", "--fault", "gone:datakey@1-2"}, {"-S1"},
     {{'S', "6 Datakey spi", at_least(300)}}},
    {.fault = "LED missing at the start", .board = {"--release", "--fault", "gone:led@0-1"}, .arguments = {"-D"},
     .lines = {{'D', "8 dram user", at_least(100)}}, .seconds = 3},
    {.fault = "LED write protected at the start", .board = {"--release", "--fault", "readonly:led@0-1"}, .arguments = {"-D"},
     .lines = {{'D', "8 dram user", at_least(100)}}, .seconds = 3},
    {.fault = "network interface missing", .board = {"--release", "--fault", "gone:eth0"}, .arguments = {"-D"},
     .lines = {{'D', "8 dram user", at_least(100)}}, .seconds = 3},
    {.fault = "store full", .board = {"--release", "--fault", "full:r0"}, .arguments = {"-Y", "/r0/f", "-M", "/r0/a:/r0/b:0"},
     .lines = {{'Y', "11 filesys opt", STAYS, first(at_least(32))}, {'M', "5 bbsram file_copy", STAYS, first(at_least(4))}},
     .seconds = 5},
    {"store too small", {"--release", "--fault", "size:r0:4"}, {"-Y", "/r0/f", "-M", "/r0/a:/r0/b:0"},
     {{'Y', "11 filesys opt", ANY, first(at_least(32))}, {'M', "5 bbsram file_copy", STAYS, first(at_least(4))}}},
    {.fault = "store write protected", .board = {"--release", "--fault", "readonly:r0"},
     .arguments = {"-M", "/r0/a:/r0/b:0"}, .lines = {{'M', "5 bbsram file_copy", STAYS, first(at_least(1))}},
     .end = ending::never},
    {.fault = "no room for a process", .board = {"--cable", "1-2", "--fault", "limit:processes:1"},
     .arguments = {"-C1", "-P2"}, .lines = {{'C', "3 sp0 consume", STAYS, third(exactly(1))},
     {'P', "3 sp0 produce", STAYS, third(exactly(1))}}, .end = ending::by_itself},
    {.fault = "no room for a process", .board = {"--cable", "2-8", "--fault", "limit:processes:1"},
     .arguments = {"-E28"}, .lines = {{'E', "0 sp0 loop", STAYS}, {'E', "5 sp0 loop", STAYS, second(exactly(1))}},
     .end = ending::by_itself},
    {.fault = "no room for a process", .board = {"--fio", "20=1,16=2", "--fault", "limit:processes:1"},
     .arguments = {"-F"}, .lines = {{'F', "10 FIOloop sp0s", STAYS}, {'F', "1 sp0 consume", STAYS, third(exactly(1))}},
     .end = ending::by_itself},
    {.fault = "no room for a process", .board = {"--eeprom", "good", "--fault", "limit:processes:1"},
     .arguments = {"-S2"}, .lines = {{'S', "7 eeprom spi", STAYS, second(exactly(1))}}, .end = ending::by_itself},
    {.fault = "no room for a process", .board = {"--release", "--fault", "limit:processes:1"},
     .arguments = {"-Y", "/r0/f", "-M", "/r0/a:/r0/b:0", "-D"},
     .lines = {{'Y', "11 filesys opt", STAYS, first(exactly(1))}, {'M', "5 bbsram file_copy", STAYS, first(exactly(1))},
     {'D', "8 dram user", STAYS, first(exactly(1))}}, .end = ending::by_itself},

    // Everything is bad for one second. What is bad is no more than a test can do in a second, what
    // is good is more than it can do before: the fault came and went.
    {"bit flipped, 1 to 2 s", {"--cable", "1-2", "--fault", "flip:2:1@1-2"}, {"-C1", "-P2"},
     {{'C', "3 sp1 consume", at_least(1300), first(between(10, 310)), is_flipped_block},
     producer("3 sp2 produce", 650)}},
    {"bit flipped, 1 to 2 s", {"--cable", "2-8", "--fault", "flip:2:1@1-2"}, {"-E28"},
     {port_2(at_least(600), first(between(10, 400))), port_8(at_least(600), NONE)}},
    {"frame garbled, 1 to 2 s", {"--loop", "5s", "--fault", "garble:5s:1@1-2"}, {"-h", "-E55"},
     {{'E', "5 sp5 loop", at_least(600), {between(10, 400), STAYS, STAYS}}}},
    {"cable cut, x to y, 1 to 2 s", {"--cable", "2-8", "--fault", "cut:2@1-2"}, {"-E28"},
     {port_2(at_least(600), {STAYS, exactly(64), exactly(63)}), port_8(at_least(600), third(exactly(64)))}},
    {"reply lost, 1 to 2 s", {"--fio", "20=1,16=3", "--fault", "lose:20:1@1-2"}, {"-F"},
     {fio_20(at_least(150), second(between(1, 40))), unwritten(fio_16(STAYS))}},
    {"reply lost, 1 to 2 s", {"--spi", "221", "--fault", "lose:manufacturer:1@1-2"}, {"-L"},
     {spi_loop(at_least(100), second(exactly(61)))}},
    {"memory reads fail, 1 to 2 s", {"--datakey", "present", "--fault", "fail:datakey:1@1-2"}, {"-S1"},
     {{'S', "6 Datakey spi", at_least(300), first(between(5, 290))}}},
    {"store full, first second", {"--release", "--fault", "full:r0@0-1"}, {"-M", "/r0/a:/r0/b:0"},
     {{'M', "5 bbsram file_copy", at_least(100), first(exactly(380))}}},
    // clang-format on
};

} // namespace

std::span<const fault_cell> fault_cells() {
    return CELLS;
}
