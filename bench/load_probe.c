/* Loads the library given as the argument and prints what that took, in nanoseconds, and what the
 * process grew by, in KiB of resident memory. */
#include <dlfcn.h>
#include <stdio.h>
#include <time.h>

static long long nowNs(void) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000000000LL + now.tv_nsec;
}

static long residentKib(void) {
    long resident = -1;
    char line[256];
    FILE* const file = fopen("/proc/self/smaps_rollup", "r");
    if (file == NULL) return -1;
    while (resident < 0 && fgets(line, sizeof line, file) != NULL) {
        (void)sscanf(line, "Rss: %ld kB", &resident);
    }
    fclose(file);
    return resident;
}

int main(int argc, char** argv) {
    const long residentBefore = residentKib();
    const long long begin = nowNs();
    if (argc != 2 || dlopen(argv[1], RTLD_NOW) == NULL) {
        fprintf(stderr, "%s\n", argc != 2 ? "usage: load_probe LIBRARY" : dlerror());
        return 1;
    }
    const long long end = nowNs();
    const long residentAfter = residentKib();
    if (residentBefore < 0 || residentAfter < 0) return 1;
    printf("%lld %ld\n", end - begin, residentAfter - residentBefore);
    return 0;
}
