#pragma once

#include <cstdint>
#include <span>
#include <string>

// Gives every input of a folder of the corpus to a target. Returns how many there were.
int replay(const std::string &folder, void (*target)(std::span<const uint8_t>));
