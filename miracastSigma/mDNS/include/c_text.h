// Helpers for NUL-terminated texts.
#pragma once

#include <cstddef>
#include <cstring>

// Copies `text` into a buffer, cut to fit and NUL-terminated; null is copied as an empty text.
template <size_t Size>
void copyText(char (&destination)[Size], const char* text) {
    const size_t length = text == nullptr ? 0 : strnlen(text, Size - 1);
    memcpy(destination, text == nullptr ? "" : text, length);
    destination[length] = '\0';
}

// Returns `text`, or "(null)" for null, to print with "%s".
inline const char* printable(const char* text) { return text == nullptr ? "(null)" : text; }
