// The run as JSON.

#include <cstdio>
#include <string>

#include "ctl/commands/show.h"
#include "ctl/text.h"

namespace {

std::string quoted(const std::string &text) {
    std::string result = "\"";
    for (size_t at = 0; at < text.size();) {
        const size_t length = utf8_length(text, at);
        const auto byte = static_cast<unsigned char>(text[at]);
        if (length == 0)
            result += "\\ufffd";
        else if (byte < 0x20 || byte == 0x7F)
            result += text_of("\\u%04x", byte);
        else if (byte == '"' || byte == '\\')
            result += {'\\', text[at]};
        else
            result.append(text, at, length);
        at += length == 0 ? 1 : length;
    }
    return result + "\"";
}

void print_counters(const char *name, const std::vector<named_counter> &counters) {
    printf(",\"%s\":[", name);
    const char *separator = "";
    for (const named_counter &counter : counters) {
        printf("%s{\"field\":\"%s\",\"meaning\":%s,\"value\":%lld}", separator, counter.field,
               quoted(counter.meaning).c_str(), static_cast<long long>(counter.value));
        separator = ",";
    }
    printf("]");
}

void print_samples(const TestRecord &record) {
    printf(",\"hist\":[");
    const char *separator = "";
    for (const ErrorSample &sample : samples_newest_first(record)) {
        printf("%s[%d,%d]", separator, sample.position, sample.value);
        separator = ",";
    }
    printf("]");
}

void print_record(const stress_run &run, size_t index) {
    const TestRecord &record = run.table().records[index];
    const counter_meaning &meaning = run.meaning_of(index);
    printf("\n{\"record\":%zu,\"name\":%s,\"test\":\"%s\",\"state\":\"%s\",\"pid\":%d,"
           "\"unit\":%d,\"hold\":%d,\"kind_code\":%d",
           index, quoted(list_name(record)).c_str(), meaning.test,
           name_of(run.state_of(run.test_of(index))), record.pid, record.unit, record.hold,
           record.kind_code);
    print_counters("counts", counts_of(record, meaning));
    print_counters("errors", errors_of(record, meaning));
    print_samples(record);
    printf("}");
}

void print_options(const stress_run &run) {
    printf(",\"options\":[");
    const char *separator = "";
    for (const std::string &word : run.options) {
        printf("%s%s", separator, quoted(word).c_str());
        separator = ",";
    }
    printf("]");
}

const char *name_of(supervisor_state state) {
    switch (state) {
    case supervisor_state::RUNNING:
        return "running";
    case supervisor_state::GONE:
        return "gone";
    case supervisor_state::UNSEEN:
        return "unseen";
    }
    return "";
}

} // namespace

void print_json(const stress_run &run) {
    printf("{\"supervisor\":%d,\"state\":\"%s\",\"since\":%lld,\"segment\":%d",
           static_cast<int>(run.supervisor_id()), name_of(run.supervisor_is),
           static_cast<long long>(run.memory.created), run.memory.id);
    print_options(run);
    printf(",\"records\":[");
    for (size_t index = 1; index < run.records_used; ++index) {
        printf("%s", index > 1 ? "," : "");
        print_record(run, index);
    }
    printf("\n]}\n");
}
