#include "simulator/own_time/clock_stub.h"

#include "simulator/own_time/clock_functions.h"
#include "simulator/own_time/shared_memory.h"
#include "simulator/requests/caller.h"
#include "simulator/requests/notification.h"
#include "simulator/time/clock.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <elf.h>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <sys/auxv.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <utility>

namespace simulator {

namespace {

using replacement = program_clock::replacement;

constexpr size_t COMPARED_BYTES = 8; // of a function: as long as the shortest replacement

// The code of a function, or the plain call where the kernel's function is shorter.
replacement make_replacement(const Elf64_Sym &symbol, const clock_function &function) {
    if (function.code.empty() || symbol.st_size < function.code.size())
        return {symbol.st_value, plain_call(function.call), symbol.st_size};
    const std::vector<uint8_t> code(function.code.begin(), function.code.end());
    return {symbol.st_value, code, symbol.st_size,
            symbol.st_value + code.size() - sizeof(uint64_t)}; // the last word
}

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
        for (const clock_function &each : clock_functions())
            if (name == each.name)
                found.push_back(make_replacement(*symbol, each));
    }
    return found;
}

unique_fd open_file_of(pid_t process, const char *name, int flags) {
    return unique_fd(
        open(("/proc/" + std::to_string(process) + "/" + name).c_str(), flags | O_CLOEXEC));
}

// Where the process has the functions; 0 if it has none.
uint64_t functions_of(pid_t process) {
    std::array<Elf64_auxv_t, 64> vector{};
    const unique_fd file = open_file_of(process, "auxv", O_RDONLY);
    if (!file.is_open() || read(file.get(), vector.data(), sizeof vector) <= 0)
        return 0;
    for (const Elf64_auxv_t &each : vector)
        if (each.a_type == AT_SYSINFO_EHDR)
            return each.a_un.a_val;
    return 0;
}

// The functions' memory cannot be written but through this file.
bool write_at(const unique_fd &memory, uint64_t address, const void *from, size_t bytes) {
    return pwrite(memory.get(), from, bytes, static_cast<off_t>(address)) ==
           static_cast<ssize_t>(bytes);
}

clock_page::moment in_nanoseconds(int64_t time_us) {
    return {time_us / US_PER_SECOND, time_us % US_PER_SECOND * NS_PER_US};
}

} // namespace

unique_fd open_memory(pid_t process) {
    return open_file_of(process, "mem", O_RDWR);
}

program_clock::program_clock(int number)
    : lent(number), replacements(find_replacements()), memory(memfd_create("shared", MFD_CLOEXEC)) {
    void *mapped = MAP_FAILED;
    if (ftruncate(memory.get(), SHARED_BYTES) == 0)
        mapped = mmap(nullptr, SHARED_BYTES, PROT_READ | PROT_WRITE, MAP_SHARED, memory.get(), 0);
    if (mapped != MAP_FAILED) // else every read is a call
        page = static_cast<clock_page *>(mapped);
}

program_clock::~program_clock() {
    if (page != nullptr)
        (void)munmap(page, SHARED_BYTES);
}

bool program_clock::has_replaced(pid_t process) const {
    const uint64_t begin = functions_of(process);
    if (begin == 0 || replacements.empty())
        return false;
    const replacement &first = replacements.front();
    std::vector<uint8_t> there(COMPARED_BYTES);
    const unique_fd file = open_file_of(process, "mem", O_RDONLY);
    return pread(file.get(), there.data(), there.size(),
                 static_cast<off_t>(begin + first.offset)) == std::ssize(there) &&
           std::ranges::equal(there, std::span(first.code).first(there.size()));
}

bool program_clock::replace_functions(const request &first_call) {
    detours.erase(first_call.caller);
    const uint64_t begin = functions_of(first_call.caller);
    if (begin == 0)
        return true; // it has to call the kernel
    const unique_fd file = open_memory(first_call.caller);
    for (const replacement &each : replacements)
        if (!write_at(file, begin + each.offset, each.code.data(), each.code.size()))
            return false;
    if (first_call.call == SYS_brk && page != nullptr)
        make_map(first_call, file, begin);
    return !replacements.empty();
}

// The first call of a program returns to the code that maps the memory, if a function has room for
// that. When that code shows the memory's address, the instructions after the call are again as
// they were.
void program_clock::make_map(const request &first_call, const unique_fd &file, uint64_t begin) {
    const std::vector<uint8_t> code = mapping_code(lent, first_call.place);
    const auto has_room = [&](const replacement &each) {
        return each.room >= each.code.size() + code.size();
    };
    const auto found = std::ranges::find_if(replacements, has_room);
    if (code.empty() || found == replacements.end())
        return;
    const uint64_t address = begin + found->offset + found->code.size();
    const std::vector<uint8_t> jump = jump_to(address);
    detour made{first_call.place, std::vector<uint8_t>(jump.size())};
    const auto place = static_cast<off_t>(made.address);
    if (pread(file.get(), made.code.data(), made.code.size(), place) == std::ssize(made.code) &&
        write_at(file, address, code.data(), code.size()) &&
        write_at(file, made.address, jump.data(), jump.size()))
        detours[first_call.caller] = made;
}

bool program_clock::take_mapping(const request &asked) const {
    if (asked.call != SYS_mmap || static_cast<int>(asked.arguments[4]) != lent ||
        status_of(asked, lent))
        return false;
    if (page != nullptr && install(asked, memory.get(), lent, true))
        pass_on(asked);
    else
        refuse(asked, EBADF);
    return true;
}

void program_clock::take_address(const request &asked) {
    const auto made = detours.extract(asked.caller);
    if (made.empty())
        return;
    const unique_fd file = open_memory(asked.caller);
    const auto &[address, code] = made.mapped();
    (void)write_at(file, address, code.data(), code.size());
    const uint64_t shared = asked.arguments[3];
    clock_page there{};
    const bool is_mapped = shared != 0 && shared % CLOCK_PAGE_BYTES == 0 &&
                           read_memory(asked, shared, &there, sizeof there) &&
                           memcmp(&there, page, sizeof there) == 0;
    if (!is_mapped)
        return;
    const uint64_t begin = functions_of(asked.caller);
    for (const replacement &each : replacements)
        if (each.page_word != 0)
            (void)write_at(file, begin + each.page_word, &shared, sizeof shared);
}

uint8_t *program_clock::shared_memory() const {
    return reinterpret_cast<uint8_t *>(page);
}

uint64_t program_clock::address_in(pid_t process) const {
    const auto has_page = [](const replacement &each) { return each.page_word != 0; };
    const auto found = std::ranges::find_if(replacements, has_page);
    const uint64_t begin = functions_of(process);
    uint64_t address = 0;
    if (begin == 0 || found == replacements.end() ||
        pread(open_memory(process).get(), &address, sizeof address,
              static_cast<off_t>(begin + found->page_word)) != sizeof address)
        return 0;
    return address;
}

void program_clock::allow_reads(int count) {
    if (page == nullptr)
        return;
    page->reads_left = allowed = count;
    if (std::exchange(shown_us, now_us()) == now_us())
        return;
    page->monotonic = in_nanoseconds(now_us());
    page->calendar = in_nanoseconds(calendar_us());
    page->time_of_day = {calendar_us() / US_PER_SECOND, calendar_us() % US_PER_SECOND};
}

int program_clock::reads_left() const {
    return page != nullptr ? page->reads_left : 0;
}

int program_clock::take_reads() {
    if (page == nullptr)
        return 0;
    const int left = std::max(0, std::exchange(page->reads_left, 0));
    return std::exchange(allowed, 0) - left;
}

} // namespace simulator
