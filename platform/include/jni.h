// The two Java types that the session client's callbacks and calls name. The library never looks
// behind them, so their names are all that is declared.
#pragma once

class _jobject {};
typedef _jobject* jobject;

struct _JNIEnv;
typedef _JNIEnv JNIEnv;
