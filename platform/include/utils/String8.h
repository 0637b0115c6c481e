// android::String8: the platform's 8-bit text, as an argument of compositor calls.
#pragma once

#include <string>

namespace android {

class String8 {
 public:
    String8() = default;
    explicit String8(const char* text) : mText(text) {}
    const char* string() const { return mText.c_str(); }

 private:
    std::string mText;
};

}  // namespace android
