#pragma once

#include <strings.h>

#include <cstddef>

#include "miracast_sigma.h"

// One parameter of a command text. Its value is kept in a buffer of Size bytes; it is empty if the
// parameter is absent or its value is empty or does not fit.
template <size_t Size>
class Parameter {
 public:
    Parameter(const char* command, const char* name) { read(command, name); }

    // Reads another parameter into the same buffer.
    void read(const char* command, const char* name) {
        mValue[0] = '\0';
        mFound = get_param(command, name, mValue, Size) == 0;
    }

    bool found() const { return mFound; }
    bool empty() const { return mValue[0] == '\0'; }
    bool is(const char* text) const { return strcasecmp(mValue, text) == 0; }  // ignoring case
    const char* text() const { return mValue; }

 private:
    char mValue[Size];
    bool mFound = false;
};
