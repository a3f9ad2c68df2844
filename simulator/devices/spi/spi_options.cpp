#include "simulator/devices/spi/spi_options.h"

#include "simulator/base/message.h"
#include "simulator/base/text.h"
#include "simulator/devices/fio/fio_options.h"
#include "simulator/devices/spi/spi_device.h"
#include "simulator/devices/spi/spi_memory.h"

namespace simulator {

namespace {

constexpr const char *DEFAULT_NODE = "manufacturer";
constexpr const char *OTHER_NODE = "reserved";

constexpr size_t MEMORY_BYTES = 256;
constexpr size_t SHORT_BYTES = 20; // of a memory that ends too early
constexpr uint8_t DATAKEY_FILL = 0x5A;
constexpr uint8_t EEPROM_FILL = 0xA5;
constexpr uint8_t KEY_PRESENT = 0x80; // what /dev/datakeypresent reads as
constexpr uint8_t KEY_ABSENT = 0x00;

// The last of several options counts.
spi_memory &put_memory(device_set &devices, const char *node, size_t bytes, uint8_t value) {
    devices.remove<spi_memory>(node);
    return devices.add<spi_memory>(node, std::vector<uint8_t>(bytes, value));
}

} // namespace

bool add_spi_device(device_set &devices, const char *text) {
    auto [node, what] = split_once(text, '=');
    if (std::string_view(text).find('=') == std::string_view::npos)
        what = std::exchange(node, DEFAULT_NODE);
    int module_type = SPI_LOOPBACK;
    if ((node != DEFAULT_NODE && node != OTHER_NODE) ||
        (what != "loop" && !read_number(what, MODULE_BYTE, module_type)))
        return complain("--spi %s: the device is \"loop\" or the type of a module, 1 to 255; "
                        "after \"reserved=\" it is at /dev/reserved, otherwise at "
                        "/dev/manufacturer",
                        text);
    if (devices.find<spi_device>(node) != nullptr)
        return complain("--spi %s: /dev/%s has a device already; it takes one", text, node.c_str());
    devices.add<spi_device>(node, module_type);
    return true;
}

bool add_datakey(device_set &devices, const char *text) {
    const std::string_view state = text;
    if (state != "present" && state != "absent")
        return complain("--datakey %s: the key is present or absent", text);
    const bool present = state == "present";
    spi_memory &holder =
        put_memory(devices, "datakeypresent", 1, present ? KEY_PRESENT : KEY_ABSENT);
    spi_memory &key = put_memory(devices, "datakey", present ? MEMORY_BYTES : 0, DATAKEY_FILL);
    holder.is_part_of_key = key.is_part_of_key = present;
    holder.contents_without_key = {KEY_ABSENT};
    return true;
}

bool add_eeprom(device_set &devices, const char *text) {
    const std::string_view state = text;
    if (state == "missing")
        devices.remove<spi_memory>("eeprom");
    else if (state == "good" || state == "short")
        put_memory(devices, "eeprom", state == "good" ? MEMORY_BYTES : SHORT_BYTES, EEPROM_FILL);
    else
        return complain("--eeprom %s: the eeprom is good, short or missing", text);
    return true;
}

} // namespace simulator
