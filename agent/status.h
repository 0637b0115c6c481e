// The lines that answer a command.
#pragma once

#include <string>

namespace agent {

constexpr char kRunning[] = "status,RUNNING";
constexpr char kInvalid[] = "status,INVALID,errorCode,-2";
constexpr char kError[] = "status,ERROR,errorCode,-1";

// status,COMPLETE with these values behind it, "name,value,...", if there are any.
inline std::string complete(const std::string& values = "") {
    return "status,COMPLETE" + (values.empty() ? "" : ',' + values);
}

}  // namespace agent
