#include "results/reading/byte_source.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>
#include <zlib.h>
#include <zstd.h>

#include "runtime/unique_fd.h"

namespace {

constexpr size_t PACKED_BYTES = size_t{64} * 1024;

[[noreturn]] void fail(const std::string &path, const char *why) {
    throw unreadable_input(path + ": " + why);
}

// A file as it is. What was read to recognise its form is given back first.
class plain_file : public byte_source {
public:
    plain_file(const std::string &name, unique_fd opened) : path(name), file(std::move(opened)) {}

    size_t read(std::span<char> room) override {
        if (!returned.empty()) {
            const size_t count = std::min(room.size(), returned.size());
            std::copy_n(returned.begin(), count, room.begin());
            returned.erase(0, count);
            return count;
        }
        ssize_t count = 0;
        do
            count = ::read(file.get(), room.data(), room.size());
        while (count < 0 && errno == EINTR);
        if (count < 0)
            fail(path, strerror(errno));
        return static_cast<size_t>(count);
    }

    // The first bytes, fewer if the file is shorter.
    std::string_view peek(size_t wanted) {
        std::string read_now(wanted, '\0');
        size_t count = 0;
        for (size_t more = 1; count < wanted && more > 0; count += more)
            more = read(std::span(read_now).subspan(count));
        returned = read_now.substr(0, count);
        return returned;
    }

    std::string path;

private:
    unique_fd file;
    std::string returned;
};

// The packed bytes that are not used yet.
struct packed_bytes {
    std::unique_ptr<plain_file> file;
    std::vector<char> buffer = std::vector<char>(PACKED_BYTES);

    std::span<char> refill() {
        return std::span(buffer).first(file->read(buffer));
    }
};

// Files of several members follow one another, as `cat` of two packed files does.
class gzip_file : public byte_source {
public:
    explicit gzip_file(std::unique_ptr<plain_file> file) : packed{std::move(file)} {
        constexpr int GZIP_WINDOW = 15 + 16;
        if (inflateInit2(&stream, GZIP_WINDOW) != Z_OK)
            throw std::bad_alloc();
    }
    ~gzip_file() override {
        (void)inflateEnd(&stream);
    }
    gzip_file(const gzip_file &) = delete;
    gzip_file &operator=(const gzip_file &) = delete;

    size_t read(std::span<char> room) override {
        stream.next_out = reinterpret_cast<Bytef *>(room.data());
        stream.avail_out = static_cast<uInt>(room.size());
        while (stream.avail_out == room.size()) {
            if (stream.avail_in == 0 && !refill())
                break;
            const int status = inflate(&stream, Z_NO_FLUSH);
            is_in_member = status != Z_STREAM_END;
            if (status == Z_STREAM_END)
                (void)inflateReset(&stream);
            else if (status != Z_OK && status != Z_BUF_ERROR)
                fail(packed.file->path, "damaged gzip data");
        }
        return room.size() - stream.avail_out;
    }

private:
    bool refill() {
        const std::span<char> more = packed.refill();
        stream.next_in = reinterpret_cast<Bytef *>(more.data());
        stream.avail_in = static_cast<uInt>(more.size());
        if (more.empty() && is_in_member)
            fail(packed.file->path, "the gzip data ends too early");
        return !more.empty();
    }

    packed_bytes packed;
    z_stream stream{};
    bool is_in_member = false;
};

class zstd_file : public byte_source {
public:
    explicit zstd_file(std::unique_ptr<plain_file> file)
        : packed{std::move(file)}, stream(ZSTD_createDStream(), ZSTD_freeDStream) {}

    size_t read(std::span<char> room) override {
        ZSTD_outBuffer out = {room.data(), room.size(), 0};
        while (out.pos == 0) {
            if (input.pos == input.size && !refill())
                break;
            const size_t status = ZSTD_decompressStream(stream.get(), &out, &input);
            if (ZSTD_isError(status) != 0)
                fail(packed.file->path, "damaged zstd data");
            is_in_frame = status != 0;
        }
        return out.pos;
    }

private:
    bool refill() {
        const std::span<char> more = packed.refill();
        input = {more.data(), more.size(), 0};
        if (more.empty() && is_in_frame)
            fail(packed.file->path, "the zstd data ends too early");
        return !more.empty();
    }

    packed_bytes packed;
    std::unique_ptr<ZSTD_DStream, size_t (*)(ZSTD_DStream *)> stream;
    ZSTD_inBuffer input{};
    bool is_in_frame = false;
};

unique_fd open_file(const std::string &path) {
    unique_fd file(path == "-" ? dup(STDIN_FILENO) : open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (file.get() < 0)
        fail(path, strerror(errno));
    struct stat facts = {};
    if (fstat(file.get(), &facts) == 0 && S_ISDIR(facts.st_mode))
        fail(path, "is a directory");
    return file;
}

} // namespace

std::unique_ptr<byte_source> open_source(const std::string &path) {
    constexpr std::string_view GZIP_MARK = "\x1f\x8b";
    constexpr std::string_view ZSTD_MARK = "\x28\xb5\x2f\xfd";
    const std::string name = path == "-" ? "standard input" : path;
    auto file = std::make_unique<plain_file>(name, open_file(path));
    const std::string_view start = file->peek(ZSTD_MARK.size());
    if (start.starts_with(GZIP_MARK))
        return std::make_unique<gzip_file>(std::move(file));
    if (start == ZSTD_MARK)
        return std::make_unique<zstd_file>(std::move(file));
    return file;
}
