// What the library and the simulated device take for granted of the platform's base headers, where
// no call of theirs would tell. Compiled twice, against the stand-ins and against the platform's
// own: see check_android_compile.sh.
#include <android/log.h>
#include <jni.h>
#include <utils/Condition.h>
#include <utils/Errors.h>
#include <utils/Mutex.h>
#include <utils/RefBase.h>

#include <cerrno>
#include <climits>
#include <type_traits>

using namespace android;

// The library exports a Mutex, mLock, whose size an agent's linker compares.
static_assert(sizeof(Mutex) == sizeof(pthread_mutex_t) && std::is_standard_layout_v<Mutex> &&
              sizeof(Condition) == sizeof(pthread_cond_t));
static_assert(std::is_same_v<decltype(&Mutex::lock), status_t (Mutex::*)()> &&
              std::is_same_v<decltype(&Condition::wait), status_t (Condition::*)(Mutex&)>);

struct Object : virtual RefBase {};
using Strong = sp<Object>;

// A client's record holds such a reference where the library expects a pointer.
static_assert(sizeof(Strong) == sizeof(void*) && alignof(Strong) == alignof(void*) &&
              std::is_standard_layout_v<Strong>);
static_assert(sizeof(RefBase) == 2 * sizeof(void*) && std::is_polymorphic_v<RefBase> &&
              !std::is_copy_constructible_v<Object> && !std::is_destructible_v<RefBase>);
// The session client's functions have these in their linkage names.
static_assert(std::is_same_v<JNIEnv, _JNIEnv> && std::is_same_v<jobject, _jobject*>);

static_assert(std::is_same_v<status_t, int32_t> && OK == 0 && UNKNOWN_ERROR == INT_MIN &&
              NO_MEMORY == -ENOMEM && NO_INIT == -ENODEV && BAD_VALUE == -EINVAL &&
              NAME_NOT_FOUND == -ENOENT);
static_assert(ANDROID_LOG_VERBOSE == 2 && ANDROID_LOG_ERROR == 6 && ANDROID_LOG_SILENT == 8 &&
              LOG_ID_MAIN == 0 && LOG_ID_SYSTEM == 3);
using Text = const char*;
typedef void Assert(Text, Text, Text, ...) __attribute__((noreturn));
static_assert(std::is_same_v<decltype(__android_log_print), int(int, Text, Text, ...)> &&
              std::is_same_v<decltype(__android_log_buf_print), int(int, int, Text, Text, ...)> &&
              std::is_same_v<decltype(__android_log_assert), Assert>);
