/* Loading the library does nothing but static initialisation: it starts no thread and writes
 * nothing. What it would write goes to this program's output, which the test run compares with
 * nothing. */
#include <dirent.h>
#include <dlfcn.h>
#include <stdint.h>
#include <stdio.h>

static int entriesOf(const char* directory) {
    int count = 0;
    DIR* const open = opendir(directory);
    while (readdir(open) != NULL) ++count;
    closedir(open);
    return count;
}

int main(int argc, char** argv) {
    const int threads = entriesOf("/proc/self/task");
    const int descriptors = entriesOf("/proc/self/fd");
    void* const library = argc == 2 ? dlopen(argv[1], RTLD_NOW | RTLD_LOCAL) : NULL;
    if (library == NULL) {
        printf("not loaded: %s\n", dlerror());
        return 1;
    }
    const int32_t* const port = (const int32_t*)dlsym(library, "session_management_control_port");
    const int32_t* const version = (const int32_t*)dlsym(library, "wfd_version");
    if (port == NULL || *port != 7236 || version == NULL || *version != 1) {
        printf("wrong start values\n");
        return 1;
    }
    if (entriesOf("/proc/self/task") != threads || entriesOf("/proc/self/fd") != descriptors) {
        printf("threads or descriptors came\n");
        return 1;
    }
    dlclose(library);
    return 0;
}
