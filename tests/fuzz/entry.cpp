// What libFuzzer calls; HK_FUZZ_TARGET names the target of this program.
#include "tests/fuzz/targets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    HK_FUZZ_TARGET(std::span(data, size));
    return 0;
}
