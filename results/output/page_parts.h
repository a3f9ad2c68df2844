// The fixed parts of the page, built into the program.

#pragma once

#include <string_view>

std::string_view dygraphs_script(); // the plotting library
std::string_view dygraphs_style();
std::string_view page_script();
std::string_view page_style();
