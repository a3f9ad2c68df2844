#include "results/output/page_parts.h"

// The assembler copies a file; CMake names it.
#define HK_PART(name, path)                                                                        \
    asm(".pushsection .rodata\n" #name "_begin:\n.incbin \"" path "\"\n" #name                     \
        "_end:\n.popsection\n");                                                                   \
    extern "C" const char name##_begin[];                                                          \
    extern "C" const char name##_end[];

HK_PART(hk_dygraphs_script, HK_DYGRAPHS_SCRIPT)
HK_PART(hk_dygraphs_style, HK_DYGRAPHS_STYLE)
HK_PART(hk_page_script, HK_PAGE_SCRIPT)
HK_PART(hk_page_style, HK_PAGE_STYLE)

namespace {

std::string_view between(const char *begin, const char *end) {
    return {begin, static_cast<size_t>(end - begin)};
}

} // namespace

// Without its last line, which names a file for debuggers that a page of its own does not have.
std::string_view dygraphs_script() {
    const std::string_view script = between(hk_dygraphs_script_begin, hk_dygraphs_script_end);
    return script.substr(0, script.find("//# sourceMappingURL"));
}

std::string_view dygraphs_style() {
    const std::string_view style = between(hk_dygraphs_style_begin, hk_dygraphs_style_end);
    return style.substr(0, style.find("/*# sourceMappingURL"));
}

std::string_view page_script() {
    return between(hk_page_script_begin, hk_page_script_end);
}

std::string_view page_style() {
    return between(hk_page_style_begin, hk_page_style_end);
}
