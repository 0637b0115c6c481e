// One parameter of a command text.
#pragma once

#include <strings.h>

#include <cstddef>

#include "miracast_sigma.h"

// The value of a parameter in a buffer of Size bytes: empty when the parameter is absent, or its
// value is empty or too long for the buffer.
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
