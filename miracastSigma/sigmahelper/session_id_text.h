// Writes wfdSessionId, the text of the session identifier. Any thread may call.
#pragma once

#include <string_view>

// Stores the first 11 characters of `text`.
void setSessionIdText(std::string_view text);
