// What the fuzz targets on the simulated device share.
//
// Device time passes so fast that no wait of the library lasts; nothing is logged to standard
// error; no shell tool is started (targets are linked with --wrap=system). Linked into a target, it
// sets all of this up before the first input.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <string>
#include <vector>

// Ends the process, so that the fuzzer keeps the input; not inlined, so that it shows where.
__attribute__((noinline)) inline void require(bool condition) {
    if (!condition) abort();
}

// A text in memory of exactly its size, its end included, so that a read past it is seen. What
// comes behind a NUL byte is left out.
std::vector<char> exactText(const std::string& text);
