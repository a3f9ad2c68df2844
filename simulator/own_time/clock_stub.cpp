#include "simulator/own_time/clock_stub.h"

#include "simulator/base/unique_fd.h"

#include <array>
#include <cstring>
#include <elf.h>
#include <fcntl.h>
#include <string>
#include <sys/auxv.h>
#include <sys/syscall.h>
#include <vector>

namespace simulator {

namespace {

struct clock_function {
    const char *name;
    uint32_t call;
};

#if defined(__x86_64__)
constexpr clock_function CLOCK_FUNCTIONS[] = {
    {"__vdso_clock_gettime", SYS_clock_gettime},
    {"__vdso_gettimeofday", SYS_gettimeofday},
    {"__vdso_time", SYS_time},
};

// mov eax, number; syscall; ret
std::array<uint8_t, 8> plain_call(uint32_t number) {
    std::array<uint8_t, 8> code = {0xb8, 0, 0, 0, 0, 0x0f, 0x05, 0xc3};
    memcpy(&code[1], &number, sizeof number);
    return code;
}
#else
constexpr clock_function CLOCK_FUNCTIONS[] = {{"", 0}};

std::array<uint8_t, 8> plain_call(uint32_t) {
    return {};
}
#endif

struct replacement {
    uint64_t offset; // from the beginning of the mapped functions
    std::array<uint8_t, 8> code;
};

// Every process has the same functions, at another address.
const char *own_functions() {
    return reinterpret_cast<const char *>(getauxval(AT_SYSINFO_EHDR));
}

template <class Header>
const Header *at(uint64_t offset) {
    return reinterpret_cast<const Header *>(own_functions() + offset);
}

const Elf64_Shdr *find_section(uint32_t type) {
    const auto *file = at<Elf64_Ehdr>(0);
    for (uint16_t i = 0; i < file->e_shnum; i++) {
        const auto *section = at<Elf64_Shdr>(file->e_shoff + i * sizeof(Elf64_Shdr));
        if (section->sh_type == type)
            return section;
    }
    return nullptr;
}

std::vector<replacement> find_replacements() {
    std::vector<replacement> found;
    const Elf64_Shdr *symbols = own_functions() != nullptr ? find_section(SHT_DYNSYM) : nullptr;
    if (symbols == nullptr)
        return found;
    const auto *names =
        at<Elf64_Shdr>(at<Elf64_Ehdr>(0)->e_shoff + symbols->sh_link * sizeof(Elf64_Shdr));
    for (uint64_t i = 0; i < symbols->sh_size / sizeof(Elf64_Sym); i++) {
        const auto *symbol = at<Elf64_Sym>(symbols->sh_offset + i * sizeof(Elf64_Sym));
        const std::string_view name = at<char>(names->sh_offset + symbol->st_name);
        for (const clock_function &each : CLOCK_FUNCTIONS)
            if (name == each.name)
                found.push_back({symbol->st_value, plain_call(each.call)});
    }
    return found;
}

// Where the process has the functions; 0 if it has none.
uint64_t functions_of(pid_t process) {
    std::array<Elf64_auxv_t, 64> vector{};
    const unique_fd file(
        open(("/proc/" + std::to_string(process) + "/auxv").c_str(), O_RDONLY | O_CLOEXEC));
    if (!file.is_open() || read(file.get(), vector.data(), sizeof vector) <= 0)
        return 0;
    for (const Elf64_auxv_t &each : vector)
        if (each.a_type == AT_SYSINFO_EHDR)
            return each.a_un.a_val;
    return 0;
}

} // namespace

bool replace_clock_functions(pid_t process) {
    static const std::vector<replacement> REPLACEMENTS = find_replacements();
    const uint64_t begin = functions_of(process);
    if (begin == 0)
        return true; // it has to call the kernel
    const unique_fd memory(
        open(("/proc/" + std::to_string(process) + "/mem").c_str(), O_RDWR | O_CLOEXEC));
    for (const replacement &each : REPLACEMENTS)
        if (pwrite(memory.get(), each.code.data(), each.code.size(),
                   static_cast<off_t>(begin + each.offset)) !=
            static_cast<ssize_t>(each.code.size()))
            return false;
    return !REPLACEMENTS.empty();
}

} // namespace simulator
