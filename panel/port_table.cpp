#include "panel/port_table.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>

#include "panel/screen.h"

namespace {

constexpr int MESSAGE_MAX = 120;
constexpr uint8_t MESSAGE_COLUMN = 1;
constexpr uint8_t MESSAGE_ROW = 8;
constexpr uint8_t LABEL_ROW = 3;

port_row ports[] = {
    // name, labels
    {"/dev/sp1", 1},   {"/dev/sp1s", 0},  {"/dev/sp1sa", 0},
    {"/dev/sp1sb", 0}, {"/dev/sp1sc", 0}, {"/dev/sp1sd", 0},
    {"/dev/sp1se", 0}, {"/dev/sp2", 1},   {"/dev/sp2s", 0},
    {"/dev/sp2sa", 0}, {"/dev/sp2sb", 0}, {"/dev/sp2sc", 0},
    {"/dev/sp2sd", 0}, {"/dev/sp2se", 0}, {"/dev/sp3", 0},
    {"/dev/sp3s", 0},  {"/dev/sp3se", 0}, {"/dev/sp3sf", 0},
    {"/dev/sp4", 0},   {"/dev/sp5", 0},   {"/dev/sp5s", 0},
    {"/dev/sp5se", 0}, {"/dev/sp5sf", 0}, {"/dev/sp6", 0}, // the front panel
    {"/dev/sp8", 1},   {"/dev/sp8s", 0},  {"/dev/manufacturer", 0},
    {"", 0}, // end
};

port_row &find_port(const char *name) {
    port_row *row = ports;
    while (row->name[0] != '\0' && strcmp(row->name, name) != 0)
        ++row;
    return *row;
}

} // namespace

port_row &open_port_by_name(const char *name) {
    char message[MESSAGE_MAX];
    port_row &port = find_port(name);
    if (port.name[0] == '\0') {
        (void)snprintf(message, sizeof message, "Fail: Unknown port: %s", name);
        end_with_message(message);
    }
    if (port.labels != 0) {
        screen_print(0, 13, LABEL_ROW, "RTS:");
        screen_print(0, 22, LABEL_ROW, "CTS:");
        screen_print(0, 31, LABEL_ROW, "DCD:");
    }
    port.fd = open(name, O_RDWR, 0640);
    if (port.fd < 0) {
        (void)snprintf(message, sizeof message, "Fail: Opening %s: %d", name, errno);
        end_with_message(message);
    }
    return port;
}

void end_with_message(const char *message) {
    screen_print(0, MESSAGE_COLUMN, MESSAGE_ROW, message);
    exit(0);
}
