/* Preloaded: lets chosen allocations of the process fail, and counts those that are alive. */
#define _GNU_SOURCE
#include <errno.h>
#include <stddef.h>

extern void *__libc_malloc(size_t);
extern void *__libc_calloc(size_t, size_t);
extern void *__libc_realloc(void *, size_t);
extern void *__libc_memalign(size_t, size_t);
extern void __libc_free(void *);

static long passing = 0; /* allocations before the first that fails */
static long failing = 0; /* that fail after these */
static long failed = 0;
static long alive = 0;

void fail_allocations(long first, long count) {
    failed = 0;
    passing = first;
    failing = count;
}

/* Ends the failures and returns how many there were. */
long end_failures(void) {
    failing = 0;
    return failed;
}

long live_allocations(void) { return alive; }

static int must_fail(void) {
    if (failing == 0) return 0;
    if (passing > 0) {
        --passing;
        return 0;
    }
    --failing;
    ++failed;
    errno = ENOMEM;
    return 1;
}

static void *counted(void *memory) {
    if (memory) __atomic_add_fetch(&alive, 1, __ATOMIC_RELAXED);
    return memory;
}

void *malloc(size_t size) { return must_fail() ? NULL : counted(__libc_malloc(size)); }

void *calloc(size_t count, size_t size) {
    return must_fail() ? NULL : counted(__libc_calloc(count, size));
}

void *realloc(void *memory, size_t size) {
    if (must_fail()) return NULL;
    return memory ? __libc_realloc(memory, size) : counted(__libc_malloc(size));
}

void *memalign(size_t alignment, size_t size) {
    return must_fail() ? NULL : counted(__libc_memalign(alignment, size));
}

void *aligned_alloc(size_t alignment, size_t size) { return memalign(alignment, size); }

int posix_memalign(void **memory, size_t alignment, size_t size) {
    *memory = memalign(alignment, size);
    return *memory ? 0 : ENOMEM;
}

void free(void *memory) {
    if (memory) __atomic_sub_fetch(&alive, 1, __ATOMIC_RELAXED);
    __libc_free(memory);
}
