#include "simulator/devices/spi/spi_memory.h"

#include "simulator/base/message.h"
#include "simulator/base/unique_fd.h"
#include "simulator/world/root.h"

#include <fcntl.h>

namespace simulator {

bool spi_memory::open_nodes() {
    const std::string path = "/dev/" + name;
    const unique_fd node(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
    if (!node.is_open() || write(node.get(), contents.data(), contents.size()) !=
                               static_cast<ssize_t>(contents.size()))
        return cannot("write", path);
    return true;
}

} // namespace simulator
