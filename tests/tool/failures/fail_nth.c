/* SPDX-License-Identifier: Apache-2.0 */
/* A library to preload with libfiu's: the calls of FAIL_POINT (libfiu's name, or a prefix and *) are counted
 * in the file FAIL_COUNTS, and number FAIL_NTH of them fails with the error FAIL_ERRNO, or, with FAIL_FROM=1,
 * all from there on. Calls before main are not counted: in constructors of libraries the C++ runtime ends a
 * process that lacks memory, before it has done anything. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <fcntl.h>
#include <fiu-control.h>
#include <fiu.h>
#include <stdint.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

struct counts {
    uint64_t calls;
    uint64_t failed;
};

static struct counts* counts;
static uint64_t nth;
static int all_after;
static int error;
static int in_main;
static int (*real_main)(int, char**, char**);

static uint64_t number(const char* name) {
    const char* const text = getenv(name);
    return text != NULL ? strtoull(text, NULL, 10) : 0;
}

static int fails(const char* point, int* failnum, void** failinfo, unsigned int* flags) {
    (void)point;
    (void)flags;
    if (!__atomic_load_n(&in_main, __ATOMIC_RELAXED)) return 0;
    const uint64_t call = __atomic_add_fetch(&counts->calls, 1, __ATOMIC_RELAXED);
    if (nth == 0 || call < nth || (call > nth && !all_after)) return 0;
    __atomic_add_fetch(&counts->failed, 1, __ATOMIC_RELAXED);
    *failnum = 1;
    *failinfo = (void*)(intptr_t)error; /* libfiu sets errno to it */
    return 1;
}

__attribute__((constructor)) static void start(void) {
    const char* const point = getenv("FAIL_POINT");
    const char* const file = getenv("FAIL_COUNTS");
    const int descriptor = file != NULL && point != NULL ? open(file, O_RDWR | O_CLOEXEC) : -1;
    if (descriptor < 0) abort();
    counts = mmap(NULL, sizeof *counts, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    if (counts == MAP_FAILED) abort();
    close(descriptor);
    nth = number("FAIL_NTH");
    all_after = number("FAIL_FROM") == 1;
    error = (int)number("FAIL_ERRNO");
    unsetenv("LD_PRELOAD"); /* not in programs that this one starts */
    if (fiu_init(0) != 0 || fiu_enable_external(point, 1, NULL, 0, fails) != 0) abort();
}

static int counted_main(int argc, char** argv, char** environment) {
    __atomic_store_n(&in_main, 1, __ATOMIC_RELAXED);
    const int code = real_main(argc, argv, environment);
    __atomic_store_n(&in_main, 0, __ATOMIC_RELAXED);
    return code;
}

/* libc's own, by which every program starts. */
int __libc_start_main(int (*main)(int, char**, char**), int argc, char** argv, void (*init)(void),
                      void (*fini)(void), void (*rtld_fini)(void), void* stack_end) {
    int (*next)(int (*)(int, char**, char**), int, char**, void (*)(void), void (*)(void), void (*)(void),
                void*);
    *(void**)&next = dlsym(RTLD_NEXT, "__libc_start_main");
    if (next == NULL) abort();
    real_main = main;
    return next(counted_main, argc, argv, init, fini, rtld_fini, stack_end);
}
