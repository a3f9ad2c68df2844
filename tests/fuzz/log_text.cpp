// hk_results on any bytes: a log comes from the network.

#include <algorithm>
#include <array>
#include <sstream>
#include <string_view>

#include "results/history/log_reader.h"
#include "results/output/report.h"
#include "tests/fuzz/targets.h"

namespace {

class given_bytes : public byte_source {
public:
    explicit given_bytes(std::span<const uint8_t> bytes) : left(bytes) {}
    size_t read(std::span<char> room) override {
        const size_t count = std::min(room.size(), left.size());
        std::copy_n(left.begin(), count, room.begin());
        left = left.subspan(count);
        return count;
    }

private:
    std::span<const uint8_t> left;
};

} // namespace

// Without a whole list nothing passes, unless it is expected and a status report shows it, and
// every form can be written. One input in four is judged by what is expected.
void fuzz_log_text(std::span<const uint8_t> input) {
    static const judge_rules EXPECTING = {{}, expect("-C1 -P4 -Y /r0/t -F -L -K -E28 -D")};
    static const judge_rules NO_RULES;
    const judge_rules &rules = input.size() % 4 == 0 ? EXPECTING : NO_RULES;
    const std::string_view text(reinterpret_cast<const char *>(input.data()), input.size());
    given_bytes source(input);
    log_history history;
    log_reader(source, 2026, history).read_all();
    history.finish();
    const totals all = judge_all(history, rules);
    const bool has_list = text.find("<OL>") != std::string_view::npos &&
                          text.find("<LI> ") != std::string_view::npos &&
                          text.find("</OL><P>") != std::string_view::npos;
    require(has_list || exit_code_of(all) != EVERYTHING_PASSES);
    // Writing takes longer than all the rest: one input in 32, by its length.
    constexpr std::array FORMS = {json_report, junit_report, tap_report};
    if (input.size() % 32 != 0)
        return;
    std::ostringstream out;
    write_report(*FORMS[input.size() / 32 % FORMS.size()](out), history, rules, all);
    require(!out.str().empty());
}
