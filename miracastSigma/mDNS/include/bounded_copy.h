#pragma once

#include <cstddef>
#include <cstring>

// Copies a text into a buffer, cut to fit and always NUL-terminated; a null text gives an empty
// one.
template <size_t Size>
void copyText(char (&destination)[Size], const char* text) {
    const size_t length = text == nullptr ? 0 : strnlen(text, Size - 1);
    memcpy(destination, text == nullptr ? "" : text, length);
    destination[length] = '\0';
}
