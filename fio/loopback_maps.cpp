// The maps are in the notation of the wiring sheets, for easy comparison; the compiler turns them
// into tables of steps. A sheet lists steps separated by blanks. A step is an output as byte.bit,
// then ">byte.bit" if its input has another byte and bit, then "+byte.bit" if it has a second
// input.

#include "fio/loopback_maps.h"

namespace {

struct place {
    uint8_t byte;
    uint8_t bit;
};

// Not constexpr: a sheet that calls this does not compile.
void this_sheet_is_wrong() {}

constexpr bool is_digit(char letter) {
    return letter >= '0' && letter <= '9';
}

constexpr uint8_t read_number(const char *&sheet) {
    if (!is_digit(*sheet))
        this_sheet_is_wrong();
    uint8_t value = 0;
    for (; is_digit(*sheet); ++sheet)
        value = static_cast<uint8_t>(value * 10 + (*sheet - '0'));
    return value;
}

constexpr place read_place(const char *&sheet) {
    const uint8_t byte = read_number(sheet);
    if (*sheet++ != '.')
        this_sheet_is_wrong();
    const uint8_t bit = read_number(sheet);
    if (byte > 15 || bit < 1 || bit > 8)
        this_sheet_is_wrong();
    return {byte, bit};
}

// Reads a place after its `sign`, or returns `otherwise` if the sign is missing.
constexpr place read_optional(const char *&sheet, char sign, place otherwise) {
    return *sheet == sign ? read_place(++sheet) : otherwise;
}

constexpr loop_step read_step(const char *&sheet) {
    const place output = read_place(sheet);
    const place input = read_optional(sheet, '>', output);
    const place second = read_optional(sheet, '+', {0, 0});
    return {output.byte, output.bit, input.byte, input.bit, second.byte, second.bit};
}

template <size_t STEPS>
constexpr loopback_map<STEPS> wired_by(const char *sheet) {
    loopback_map<STEPS> map = {};
    for (size_t step = 0; step < STEPS; ++step) {
        if (step > 0 && *sheet++ != ' ')
            this_sheet_is_wrong();
        map[step] = read_step(sheet);
    }
    if (*sheet != '\0')
        this_sheet_is_wrong();
    return map;
}

// Wires each output bit, from byte 0 on, to the same bit of the same input byte.
template <size_t STEPS>
constexpr loopback_map<STEPS> straight() {
    loopback_map<STEPS> map = {};
    for (size_t step = 0; step < STEPS; ++step) {
        const auto byte = static_cast<uint8_t>(step / 8);
        const auto bit = static_cast<uint8_t>(step % 8 + 1);
        map[step] = {byte, bit, byte, bit, 0, 0};
    }
    return map;
}

// The straight map, except for the outputs that the sheet lists.
template <size_t STEPS, size_t EXCEPTIONS>
constexpr loopback_map<STEPS> straight_except(const char *sheet) {
    loopback_map<STEPS> map = straight<STEPS>();
    const loopback_map<EXCEPTIONS> exceptions = wired_by<EXCEPTIONS>(sheet);
    for (size_t i = 0; i < EXCEPTIONS; ++i)
        for (size_t step = 0; step < STEPS; ++step)
            if (map[step].output_byte == exceptions[i].output_byte &&
                map[step].output_bit == exceptions[i].output_bit)
                map[step] = exceptions[i];
    return map;
}

} // namespace

constexpr loopback_map<IDENTITY_STEPS> IDENTITY_MAP = straight<IDENTITY_STEPS>();

// clang-format off
constexpr loopback_map<A_STEPS> MAP_A = wired_by<A_STEPS>(
    "0.1+13.1 3.1 0.2+13.2 3.2 4.2 5.2 10.7 11.3 1.1+14.1 4.1 1.2+14.2 2.2 6.2 8.2 11.2 2.1 "
    "5.1 6.1 11.1 8.1 7.1 7.2 2.3 1.3+14.3 0.3+13.3 0.4+13.4 4.4 3.4 6.4 5.3 4.3 3.3 2.4 "
    "1.4+14.4 5.4 8.4 7.4 9.2 9.3 6.3 8.3 7.3 10.6 10.4 9.1 9.5 9.6 10.3 10.5 10.1 9.4 10.2 "
    "11.4 11.5 3.8 0.8+13.8 1.7+9.7 0.7+13.7 0.6+13.6 0.5+13.5 2.5 1.5+14.5 4.5 3.5 7.5 8.5 "
    "11.6 5.8 1.8+9.8 2.7 2.6 1.6+14.6 5.5 6.5 4.8 2.8 3.7 3.6 4.6 6.6 8.6 7.6 6.8 8.8 7.8 "
    "5.7 4.7 5.6 6.7 8.7 7.7 11.7 11.8 12.1 12.2 12.3 12.4 12.5 12.6 12.7 12.8 10.8");

constexpr loopback_map<C_STEPS> MAP_C = straight_except<C_STEPS, 49>(
    "0.5>12.8 0.6>8.1 0.7>3.1 0.8>11.6 "
    "1.1>9.3 1.5>13.1 1.7>13.7 "
    "2.5>13.8 "
    "3.1>1.7 3.8>11.2 "
    "4.5>13.6 "
    "5.2>0.8 "
    "8.1>0.7 8.3>10.5 8.7>3.8 "
    "9.3>13.2 9.7>2.5 9.8>0.5 "
    "10.2>11.7 10.3>10.2 10.4>10.3 10.5>10.4 10.6>0.6 10.7>10.6 10.8>1.1 "
    "11.1>10.8 11.2>11.1 11.3>13.3 11.4>11.3 11.5>11.4 11.6>11.5 11.7>5.2 11.8>10.5 "
    "12.1>11.5 12.2>11.6 12.3>11.7 12.4>8.7 12.5>13.6 12.6>13.7 12.7>9.7 12.8>9.8 "
    "13.1>11.8 13.2>12.1 13.3>12.2 13.4>12.3 13.5>12.5 13.6>12.6 13.7>12.7 13.8>10.7");

constexpr loopback_map<S_STEPS> MAP_S = wired_by<S_STEPS>(
    "0.1>11.6+8.8 0.2>0.1 0.3>6.6 0.4>11.3 0.5>7.3 0.6>1.3 0.7>4.4 "
    "1.1>2.8 1.2>3.3 1.3>6.5 1.4>10.1 1.5>4.8 1.6>6.4 1.7>4.2 "
    "2.1>5.5 2.2>0.3 2.3>2.2 2.4>10.7 2.5>4.6 2.6>10.6 2.7>1.2 "
    "3.1>12.8 3.2>0.8 3.3>6.7 3.4>10.3 3.5>2.1 3.6>2.3 3.7>1.7 "
    "4.1>11.2 4.2>0.7 4.3>7.8 4.4>11.4 4.5>13.7 4.6>7.2 4.7>11.8 "
    "5.1>7.7 5.2>3.7 5.3>13.2 5.4>10.2 5.5>4.3 5.6>0.6 5.7>1.4 "
    "6.2>0.5 6.3>9.1 6.4>10.5 6.5>4.1 6.6>4.7 6.7>13.1 "
    "7.2>2.7 7.3>5.4 7.4>9.7 7.5>4.5 7.6>7.4 7.7>6.3 "
    "8.2>12.1 8.3>8.1 8.4>5.1 8.5>8.4 8.6>13.8 8.7>9.3 8.8>8.6 "
    "9.1>0.2 9.2>12.4 9.3>6.1 9.4>9.8 9.5>8.5 9.6>13.7 9.7>11.1 9.8>11.7 "
    "10.1>6.8 10.2>5.7 10.3>2.4 10.4>5.3 10.5>1.5 10.6>13.6 10.7>9.4 10.8>11.5 "
    "11.1>8.3 11.2>7.1 11.3>5.6 11.4>10.8 11.5>3.1 11.6>13.5 11.7>9.6 11.8>12.5 "
    "12.1>9.5 12.2>13.6 12.3>8.2 12.4>10.4 12.5>3.4 12.6>13.1 12.7>9.8 12.8>0.4 "
    "13.1>1.6 13.2>6.2 13.3>3.6 13.4>13.8 13.5>13.5 13.6>13.2 13.7>9.7 13.8>12.3 "
    "14.1>8.7 14.2>2.6 14.3>5.2 14.4>12.7 14.5>2.5 14.6>7.5+13.3 14.7>1.1 14.8>12.2 "
    "15.1>3.2 15.2>5.8 15.3>3.8 15.4>1.8 15.5>3.5 15.6>7.6+13.4 15.7>9.2 15.8>12.6");
// clang-format on

namespace {

template <size_t SIZE>
constexpr bool drives_every_output_once(const std::array<loop_step, SIZE> &map) {
    bool driven[16][9] = {};
    for (size_t step = 0; step + 1 < SIZE; ++step) {
        bool &output = driven[map[step].output_byte][map[step].output_bit];
        if (output)
            return false;
        output = true;
    }
    return map[SIZE - 1].output_bit == 0;
}

constexpr bool is(const loop_step &step, const loop_step &wanted) {
    return step.output_byte == wanted.output_byte && step.output_bit == wanted.output_bit &&
           step.input_byte == wanted.input_byte && step.input_bit == wanted.input_bit &&
           step.second_byte == wanted.second_byte && step.second_bit == wanted.second_bit;
}

static_assert(drives_every_output_once(IDENTITY_MAP));
static_assert(drives_every_output_once(MAP_A));
static_assert(drives_every_output_once(MAP_C));
static_assert(drives_every_output_once(MAP_S));

static_assert(is(IDENTITY_MAP[0], {0, 1, 0, 1, 0, 0}) && is(IDENTITY_MAP[63], {7, 8, 7, 8, 0, 0}));
static_assert(is(MAP_A[0], {0, 1, 0, 1, 13, 1}) && is(MAP_A[56], {1, 7, 1, 7, 9, 7}));
static_assert(is(MAP_A[101], {10, 8, 10, 8, 0, 0}));
static_assert(is(MAP_C[0], {0, 1, 0, 1, 0, 0}) && is(MAP_C[4], {0, 5, 12, 8, 0, 0}));
static_assert(is(MAP_C[111], {13, 8, 10, 7, 0, 0}));
static_assert(is(MAP_S[0], {0, 1, 11, 6, 8, 8}) && is(MAP_S[106], {14, 6, 7, 5, 13, 3}));
static_assert(is(MAP_S[116], {15, 8, 12, 6, 0, 0}));

} // namespace
