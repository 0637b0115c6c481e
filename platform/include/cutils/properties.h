// System properties: short texts under names, kept by the platform. They also control its init
// services.
#pragma once

#include <sys/system_properties.h>

#ifdef __cplusplus
extern "C" {
#endif

// Size of a value with its terminating NUL.
#define PROPERTY_VALUE_MAX PROP_VALUE_MAX

// Copies the value of `key` into `value` (PROPERTY_VALUE_MAX bytes) and returns its length. For a
// property that is not set, or empty, copies `default_value` (null: empty), cut to fit.
// "init.svc.NAME" is the state of an init service: "running" or "stopped". Any thread may call.
int property_get(const char* key, char* value, const char* default_value);

// Sets `key` to `value` (null: empty). "ctl.start" and "ctl.stop" ask init to start or stop the
// service `value`; "init.svc.NAME" then shows the result. Returns 0, or a negative value if the
// property was not set. Any thread may call.
int property_set(const char* key, const char* value);

#ifdef __cplusplus
}
#endif
