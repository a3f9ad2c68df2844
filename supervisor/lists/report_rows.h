// The lines of the status report. Counters are in hexadecimal; every line begins with a line break.
// The crossover has a line only in the results list.

#pragma once

#include <iterator>

#include "supervisor/lists/line_row.h"

// clang-format off
constexpr line_row REPORT_ROWS[] = {
    {record_letter::ECHO_BACK,
     "\nsp%d, pid %4d echo   , wrote %08x, read %08x, errors %04x",
     {field::UNIT, field::PID, field::WRITE_COUNT, field::READ_COUNT, field::ERRORS}},
    {record_letter::PRODUCER,
     "\nsp%d, pid %4d produce, wrote %08x, errors %04x",
     {field::UNIT, field::PID, field::WRITE_COUNT, field::ERRORS}},
    {record_letter::RECEIVER,
     "\nsp%d, pid %4d consume,               , read %08x, errors %04x    %6lld bps",
     {field::UNIT, field::PID, field::READ_COUNT, field::ERRORS, field::BIT_RATE}},
    {record_letter::SPI_DEVICE,
     "\n    pid %4d spi %s, wrote %08x, read %08x, errors %04x",
     {field::PID, field::REPORT_NAME, field::WRITE_COUNT, field::READ_COUNT, field::ERRORS}},
    {record_letter::FIO,
     "\nsp%ds,pid %4d FIOloop, wrote %08x, read %08x, errors %02x %02x[%02d %02d][%02d %02d][%02d %02d]",
     {field::UNIT, field::PID, field::WRITE_COUNT, field::READ_COUNT,
      field::ERRORS2, field::ERRORS3}, 3},
    {record_letter::SPI_FIO,
     "\nsp%cs,pid %4d SpiFIOloop, wrote %08x, read %08x, errors %02x %02x[%02d %02d][%02d %02d][%02d %02d]",
     {field::UNIT, field::PID, field::WRITE_COUNT, field::READ_COUNT,
      field::ERRORS2, field::ERRORS3}, 3},
    {record_letter::FILESYSTEM,
     "\n     pid %4d filesys, wrote %08x, read %08x, errors %04x    %6ld ",
     {field::PID, field::WRITE_COUNT, field::READ_COUNT, field::ERRORS, field::READ_RATE}},
    {record_letter::FILE_COPY,
     "\n     pid %4d file copy,  read %08x, errors %04x    %6ld ",
     {field::PID, field::READ_COUNT, field::ERRORS, field::WHOLE_SECONDS}},
    {record_letter::DRAM,
     "\n     pid %4d dram   , alloc %08x, test %08x, errors %04x    %6ld ",
     {field::PID, field::READ_COUNT, field::WRITE_COUNT, field::ERRORS, field::READ_RATE}},
    {record_letter::CROSSOVER, ""},
    {record_letter::PANEL, ""},
};
// clang-format on
static_assert(has_a_row_for_every_letter(REPORT_ROWS), "each record_letter has one row");
