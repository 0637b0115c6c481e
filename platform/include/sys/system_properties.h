// The sizes of a system property, for a tree's own cutils/properties.h.
#pragma once

#define PROP_NAME_MAX 32
#define PROP_VALUE_MAX 92  // with the terminating NUL
