// System properties: short texts under names, kept by the platform, and the way to have its init
// services started and stopped.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

// Size of a value with its terminating NUL.
#define PROPERTY_VALUE_MAX 92

// Copies the value of `key` into `value` (PROPERTY_VALUE_MAX bytes) and returns its length. A
// property that is not set, or empty, gives `default_value` (may be null: empty), cut to fit.
// "init.svc.NAME" tells an init service's state: "running" or "stopped". Callable on any thread.
int property_get(const char* key, char* value, const char* default_value);

// Sets `key` to `value` (null: empty). "ctl.start" and "ctl.stop" have the init service started or
// stopped that `value` names; this is a request, whose result "init.svc.NAME" shows. Returns 0, or
// a negative value when the property was not set. Callable on any thread.
int property_set(const char* key, const char* value);

#ifdef __cplusplus
}
#endif
