// The lines of the results list. Every line has the same shape: the kind code, a name, two counts,
// three error numbers and five pairs of numbers, with zeros where a test records none. Each test
// has its own order of the error counters.

#pragma once

#include <iterator>

#include "supervisor/lists/line_row.h"

// clang-format off
constexpr line_row RESULTS_ROWS[] = {
    {record_letter::CROSSOVER,
     "<LI> %d sp%d loop wrote %d read %d errors %d,%d,%d hist %d,%d %d,%d %d,%d %d,%d %d,%d\n",
     {field::KIND_CODE, field::UNIT, field::WRITE_COUNT, field::READ_COUNT,
      field::ERRORS2, field::ERRORS, field::ERRORS3}, 5},
    {record_letter::ECHO_BACK,
     "<LI> %d sp%d echo wrote %d read %d errors %d,%d,0 hist %d,%d %d,%d %d,%d %d,%d %d,%d\n",
     {field::KIND_CODE, field::UNIT, field::WRITE_COUNT, field::READ_COUNT,
      field::ERRORS2, field::ERRORS}, 5},
    {record_letter::PRODUCER,
     "<LI> %d sp%d produce wrote %d verify %d errors %d,%d,%d hist 0,0 0,0 0,0 0,0 0,0\n",
     {field::KIND_CODE, field::UNIT, field::WRITE_COUNT, field::WRITE_COUNT,
      field::ERRORS2, field::ERRORS3, field::ERRORS}},
    {record_letter::RECEIVER,
     "<LI> %d sp%d consume read %d verify %d errors %d,%d,%d hist %d,%d %d,%d %d,%d %d,%d %d,%d\n",
     {field::KIND_CODE, field::UNIT, field::READ_COUNT, field::PREV_READ_COUNT,
      field::ERRORS2, field::ERRORS3, field::ERRORS}, 5},
    {record_letter::SPI_DEVICE,
     "<LI> %d %s spi wrote %d read %d errors %d,%d,0 hist 0,0 0,0 0,0 0,0 0,0\n",
     {field::KIND_CODE, field::LIST_NAME, field::WRITE_COUNT, field::READ_COUNT,
      field::ERRORS2, field::ERRORS}},
    {record_letter::FIO,
     "<LI> %d FIOloop sp%ds wrote %d read %d errors %d,%d,%d hist %d,%d %d,%d %d,%d %d,%d %d,%d\n",
     {field::KIND_CODE, field::UNIT, field::WRITE_COUNT, field::PREV_READ_COUNT,
      field::ERRORS2, field::ERRORS3, field::ERRORS}, 5},
    {record_letter::SPI_FIO,
     "<LI> %d SpiFIOloop sp%cs wrote %d read %d errors %d,%d,0 hist %d,%d %d,%d %d,%d %d,%d %d,%d\n",
     {field::KIND_CODE, field::UNIT, field::WRITE_COUNT, field::READ_COUNT,
      field::ERRORS2, field::ERRORS3}, 5},
    {record_letter::FILESYSTEM,
     "<LI> %d filesys opt wrote %d read %d errors %d,0,0 hist 0,0 0,0 0,0 0,0 0,0\n",
     {field::KIND_CODE, field::WRITE_COUNT, field::READ_COUNT, field::ERRORS}},
    {record_letter::FILE_COPY,
     "<LI> %d bbsram file_copy wrote %d read %d errors %d,0,0 hist 0,0 0,0 0,0 0,0 0,0\n",
     {field::KIND_CODE, field::WRITE_COUNT, field::READ_COUNT, field::ERRORS}},
    {record_letter::DRAM,
     "<LI> %d dram user alloc %d test %d errors %d,0,0 hist 0,0 0,0 0,0 0,0 0,0\n",
     {field::KIND_CODE, field::READ_COUNT, field::WRITE_COUNT, field::ERRORS}},
    {record_letter::PANEL, ""},
};
// clang-format on
static_assert(has_a_row_for_every_letter(RESULTS_ROWS), "each record_letter has one row");
