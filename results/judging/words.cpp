#include "results/judging/words.h"

#include <algorithm>

#include "ctl/run/tests.h"
#include "ctl/text.h"
#include "fio/loopback_maps.h"
#include "results/reading/row_reader.h"

namespace {

constexpr int64_t MS_PER_S = 1000;

struct map_row {
    const char *modules; // the types that have this harness
    const loop_step *steps;
    size_t count;
};

// On the sync port module 219 has the map of module 2, on SPI one of its own.
const map_row SYNC_MAPS[] = {
    {"1 or 221", IDENTITY_MAP.data(), IDENTITY_STEPS},
    {"2 or 219", MAP_A.data(), A_STEPS},
    {"220", MAP_C.data(), C_STEPS},
};
const map_row SPI_MAPS[] = {
    {"221", IDENTITY_MAP.data(), IDENTITY_STEPS},
    {"219", MAP_S.data(), S_STEPS},
};

std::string input_of(const loop_step &step) {
    std::string text = text_of("input %d.%d", step.input_byte, step.input_bit);
    if (step.second_bit != 0)
        text += text_of(" and %d.%d", step.second_byte, step.second_bit);
    return text;
}

// What the byte that was read says of one input bit.
std::string reading_of(const loop_step &step, uint32_t value) {
    const bool is_set = step.input_bit != 0 && (value >> (step.input_bit - 1) & 1U) != 0;
    return is_set ? "1, with other bits set too" : "0";
}

std::string sync_step(const loop_step &step, uint32_t value) {
    return text_of("output %d.%d, %s read back as %s", step.output_byte, step.output_bit,
                   input_of(step).c_str(), reading_of(step, value).c_str());
}

std::string spi_step(const loop_step &step, uint32_t input_byte) {
    return step.input_byte == input_byte ? text_of("output %d.%d, %s", step.output_byte,
                                                   step.output_bit, input_of(step).c_str())
                                         : "";
}

// The list does not show the type of the module: every map that has such a step is named.
template <size_t maps, typename Words>
std::string step_words(const map_row (&rows)[maps], int32_t number, uint32_t value, Words words) {
    std::string text;
    for (const map_row &row : rows) {
        const std::string step = number >= 0 && static_cast<size_t>(number) < row.count
                                     ? words(row.steps[number], value)
                                     : "";
        if (!step.empty())
            text.append(text.empty() ? "" : "; ")
                .append("module ")
                .append(row.modules)
                .append(": ")
                .append(step);
    }
    return text;
}

std::string fio_sample(const ErrorSample &sample) {
    const auto value = static_cast<uint32_t>(sample.value);
    std::string text = text_of("step %d, byte read 0x%02x: ", sample.position, value);
    return text.append(step_words(SYNC_MAPS, sample.position, value, sync_step));
}

std::string spi_sample(const ErrorSample &sample) {
    const auto value = static_cast<uint32_t>(sample.value);
    std::string text = text_of("step %d, input byte %u: ", sample.position, value);
    return text.append(step_words(SPI_MAPS, sample.position, value, spi_step));
}

std::string sample_words(const counter_meaning &meaning, const ErrorSample &sample) {
    if (meaning.option != nullptr && *meaning.option == 'F')
        return fio_sample(sample);
    switch (meaning.letter) {
    case record_letter::SPI_FIO:
        return spi_sample(sample);
    case record_letter::CROSSOVER:
        return text_of("a frame of %d bytes, first bad byte 0x%02x", sample.position,
                       static_cast<uint32_t>(sample.value));
    default:
        return text_of("byte %d of a block read as 0x%02x", sample.position,
                       static_cast<uint32_t>(sample.value));
    }
}

// No frame has the length 0. The other tests keep samples of every error of this counter.
bool is_sample(const ErrorSample &sample, record_letter letter) {
    return letter != record_letter::CROSSOVER || sample.position != 0;
}

} // namespace

std::string printable_name(const TestRecord &record) {
    return printable(list_name(record));
}

std::string name_of(const board_history &board) {
    std::string name = printable(board.ident);
    if (!board.host.empty())
        name.append(" on ").append(printable(board.host));
    return name;
}

std::string time_text(int64_t time_ms) {
    constexpr int64_t LATEST_MS = int64_t{253402300799} * MS_PER_S; // the year 9999
    const bool is_time = time_ms > 0 && time_ms < LATEST_MS;
    return is_time ? date_text(time_ms / MS_PER_S) : "-";
}

std::string duration_text(int64_t duration_ms) {
    const int64_t seconds = (duration_ms + MS_PER_S / 2) / MS_PER_S;
    const auto part = [](int64_t value) { return static_cast<long long>(value); };
    if (seconds < 120)
        return text_of("%lld s", part(seconds));
    if (seconds < 7200)
        return text_of("%lld min", part(seconds / 60));
    return text_of("%lld h %lld min", part(seconds / 3600), part(seconds / 60 % 60));
}

std::string error_words(const moved_error &error) {
    return std::string(error.meaning).append(": ").append(std::to_string(error.count));
}

std::string why_idle(const TestRecord &record, const counter_meaning &meaning) {
    const std::string release = text_of("it is held: hk_ctl release %s lets it work", meaning.test);
    switch (static_cast<record_letter>(record.test_letter)) {
    case record_letter::DRAM:
    case record_letter::FILE_COPY:
    case record_letter::FILESYSTEM:
        return release;
    case record_letter::SPI_DEVICE:
        return record.unit == 1 ? "no datakey in the holder" : "no such device";
    case record_letter::FIO:
    case record_letter::SPI_FIO:
        return "no module of a known type";
    default:
        return "it never worked";
    }
}

std::string why_stalled(const run_history &run, const record_history &record) {
    const bool goes_on = record.moved_at_ms == run.clock_ms;
    std::string text = text_of("no progress for %s", duration_text(record.longest_rest_ms).c_str());
    if (record.longest_rest_ms == 0)
        return "it gave up";
    return text.append(" from ")
        .append(time_text(record.rest_since_ms))
        .append(goes_on ? "; it went on later" : "");
}

std::vector<std::string> samples_of(const record_history &record, const counter_meaning &meaning) {
    constexpr uint64_t SAMPLES_SHOWN = 5;
    std::vector<std::string> words;
    const auto letter = static_cast<record_letter>(record.newest.test_letter);
    if (!layout_of(record.newest.test_letter).has_samples || meaning.sample_position == nullptr)
        return words;
    const uint64_t count = std::min(record.error(0), SAMPLES_SHOWN);
    const auto samples = samples_newest_first(record.newest);
    for (size_t i = 0; i < count; ++i)
        if (is_sample(samples[i], letter))
            words.push_back(sample_words(meaning, samples[i]));
    words.erase(std::unique(words.begin(), words.end()), words.end());
    return words;
}
