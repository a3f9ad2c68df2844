#include "results/judging/words.h"

#include <algorithm>
#include <span>

#include "ctl/run/tests.h"
#include "ctl/text.h"
#include "fio/loopback_maps.h"
#include "results/reading/rows/row_reader.h"

namespace {

struct map_row {
    const char *modules; // the types that have this harness
    const loop_step *steps;
    size_t count;

    const loop_step *step(int32_t number) const {
        return number >= 0 && static_cast<size_t>(number) < count ? steps + number : nullptr;
    }
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

bool is_set(uint32_t value, uint8_t bit) {
    return bit != 0 && (value >> (bit - 1) & 1U) != 0;
}

// What the byte that was read says of the input of a step.
std::string reading_of(const loop_step &step, uint32_t value) {
    if (!is_set(value, step.input_bit))
        return "reads 0";
    std::string text = "reads 1";
    for (uint8_t bit = 1; bit <= 8; ++bit)
        if (bit != step.input_bit && is_set(value, bit))
            text += text_of(", input %d.%d too", step.input_byte, bit);
    return text;
}

std::string sync_step(const loop_step &step, uint32_t value) {
    return text_of("output %d.%d, %s %s", step.output_byte, step.output_bit, input_of(step).c_str(),
                   reading_of(step, value).c_str());
}

std::string spi_step(const loop_step &step, uint32_t) {
    return text_of("output %d.%d, %s", step.output_byte, step.output_bit, input_of(step).c_str());
}

// The second word of a sample: of -F the byte that was read, of -L which byte it was.
bool fits_sync(const loop_step &step, const ErrorSample &sample) {
    return is_set(static_cast<uint32_t>(sample.value), step.input_bit);
}
bool fits_spi(const loop_step &step, const ErrorSample &sample) {
    return step.input_byte == sample.value;
}

struct harness {
    std::span<const map_row> maps;
    bool (*fits)(const loop_step &, const ErrorSample &);
    std::string (*words)(const loop_step &, uint32_t);
    const char *sample; // see printf(3): step and second word
};

const harness SYNC_HARNESS = {SYNC_MAPS, fits_sync, sync_step, "step %d, byte read 0x%02x"};
const harness SPI_HARNESS = {SPI_MAPS, fits_spi, spi_step, "step %d, input byte %u"};

// The list does not show the type of the module: those whose map fits most samples are likely.
std::vector<const map_row *> likely_maps(const harness &wiring,
                                         std::span<const ErrorSample> samples) {
    std::vector<const map_row *> likely;
    ptrdiff_t most = 0;
    for (const map_row &row : wiring.maps) {
        const auto fitting = std::ranges::count_if(samples, [&](const ErrorSample &sample) {
            const loop_step *step = row.step(sample.position);
            return step != nullptr && wiring.fits(*step, sample);
        });
        if (fitting > most)
            likely.clear();
        if (fitting >= most)
            likely.push_back(&row);
        most = std::max(most, fitting);
    }
    return likely;
}

std::string step_words(const harness &wiring, std::span<const map_row *const> likely,
                       const ErrorSample &sample) {
    const auto value = static_cast<uint32_t>(sample.value);
    std::string text = text_of(wiring.sample, sample.position, value);
    const char *separator = ": ";
    for (const map_row *row : likely)
        if (const loop_step *step = row->step(sample.position); step != nullptr) {
            text.append(separator)
                .append("on module ")
                .append(row->modules)
                .append(" ")
                .append(wiring.words(*step, value));
            separator = "; ";
        }
    return text;
}

std::vector<std::string> words_of_steps(const harness &wiring,
                                        std::span<const ErrorSample> samples) {
    const auto likely = likely_maps(wiring, samples);
    std::vector<std::string> words;
    for (const ErrorSample &sample : samples)
        words.push_back(step_words(wiring, likely, sample));
    return words;
}

std::vector<std::string> words_of_bytes(const char *format, std::span<const ErrorSample> samples) {
    std::vector<std::string> words;
    for (const ErrorSample &sample : samples)
        words.push_back(text_of(format, sample.position, static_cast<uint32_t>(sample.value)));
    return words;
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
    if (board.is_report)
        name.append(" (status report)");
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

std::string span_text(const run_history &run) {
    if (run.is_report)
        return "known from its status report";
    return text_of("%s to %s (%s), %u list%s", time_text(run.first_ms).c_str(),
                   time_text(run.last_ms).c_str(), duration_text(run.clock_ms).c_str(), run.lists,
                   run.lists == 1 ? "" : "s");
}

std::string why_idle(const TestRecord &record, const counter_meaning &meaning) {
    std::string release = text_of("it is held: hk_ctl release %s lets it work", meaning.test);
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
    const size_t shown = record.layout->samples;
    const auto letter = static_cast<record_letter>(record.newest.test_letter);
    if (shown == 0 || meaning.sample_position == nullptr)
        return {};
    const auto ring = samples_newest_first(record.newest);
    std::vector<ErrorSample> samples(
        ring.begin(),
        ring.begin() + static_cast<ptrdiff_t>(std::min<uint64_t>(record.error(0), shown)));
    std::erase_if(samples, [letter](const ErrorSample &each) { return !is_sample(each, letter); });
    if (meaning.option != nullptr && *meaning.option == 'F')
        return words_of_steps(SYNC_HARNESS, samples);
    if (letter == record_letter::SPI_FIO)
        return words_of_steps(SPI_HARNESS, samples);
    return words_of_bytes(letter == record_letter::CROSSOVER
                              ? "a frame of %d bytes, first bad byte 0x%02x"
                              : "byte %d of a block read as 0x%02x",
                          samples);
}
