// The two Java types in the session client's declarations. The library passes pointers to them on
// without using the objects.
#pragma once

class _jobject {};
typedef _jobject* jobject;

struct _JNIEnv;
typedef _JNIEnv JNIEnv;
