#include "results/reading/line_reader.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr size_t BUFFER_START_BYTES = 4096; // grows as long as the source fills it
constexpr size_t BUFFER_BYTES = size_t{512} * 1024;
static_assert(BUFFER_BYTES >= 2 * LINE_MAX_BYTES);

} // namespace

line_reader::line_reader(byte_source &input) : source(input), buffer(BUFFER_START_BYTES) {}

// Moves what is left to the front and reads more. Returns false at the end of the source.
bool line_reader::fill() {
    if (is_at_end)
        return false;
    if (at > 0) {
        std::copy(buffer.begin() + static_cast<ptrdiff_t>(at),
                  buffer.begin() + static_cast<ptrdiff_t>(end), buffer.begin());
        end -= at;
        at = 0;
    }
    if (end == buffer.size() || is_filled)
        buffer.resize(std::min(2 * buffer.size(), BUFFER_BYTES));
    const size_t count = source.read(std::span(buffer).subspan(end));
    end += count;
    is_filled = end == buffer.size();
    is_at_end = count == 0;
    return !is_at_end;
}

std::optional<std::string_view> line_reader::next() {
    size_t searched = 0; // bytes after `at` that have no line break
    bool is_start = true;
    std::string_view line;
    for (;;) {
        const char *from = buffer.data() + at;
        const void *found = memchr(from + searched, '\n', end - at - searched);
        if (found != nullptr) {
            const auto length = static_cast<size_t>(static_cast<const char *>(found) - from);
            at += length + 1;
            has_break = true;
            return is_start ? std::string_view(from, std::min(length, LINE_MAX_BYTES)) : "";
        }
        searched = end - at;
        if (searched > LINE_MAX_BYTES) { // no line of a log: it is skipped
            is_start = false;
            at = end;
            searched = 0;
        }
        if (!fill())
            break;
    }
    if (at == end)
        return std::nullopt;
    line = {buffer.data() + at, end - at};
    last = at;
    at = end;
    has_break = false;
    return is_start ? line : "";
}

void line_reader::keep_last() {
    at = last;
}

void line_reader::skip(uint64_t count) {
    while (count > 0 && (at < end || fill())) {
        const auto skipped = static_cast<size_t>(std::min<uint64_t>(count, end - at));
        at += skipped;
        count -= skipped;
    }
}

std::string_view line_reader::next_bytes(uint64_t count) {
    if (count > LINE_MAX_BYTES) {
        skip(count);
        return {};
    }
    while (end - at < count && fill()) {
    }
    const std::string_view bytes(buffer.data() + at, std::min<size_t>(count, end - at));
    at += bytes.size();
    return bytes;
}
